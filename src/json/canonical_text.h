#pragma once

#include <cstddef>

namespace libzentadbpp {

// Recognizes a JSON value that has exactly the form of write_json: separators ", " and ": ", keys in ascending order
// and each once, strings with just the escapes of the writer, numbers in the writer's digits ("-0" counts). Returns the
// end of the value, or null if it has any other form, is malformed, or nests deeper than `deepest` (the value itself is
// at depth 0). Null decides nothing: the caller then reads the value in full.
[[nodiscard]] const char* canonical_value_end(const char* begin, const char* end, std::size_t deepest);

}  // namespace libzentadbpp
