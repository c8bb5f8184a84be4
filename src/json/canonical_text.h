#pragma once

#include <cstddef>
#include <string_view>

namespace libzentadbpp {

// Recognises a JSON value that stands exactly as write_json would write it: separators ", " and ": ", keys in
// ascending order and each once, strings with just the escapes the writer uses, numbers in the writer's digits ("-0"
// counts). Answers the end of the value, or null where it is written in any other way, is malformed, or nests deeper
// than `deepest` (the value itself is at depth 0). A null answer decides nothing: the caller then reads it in full.
[[nodiscard]] const char* canonical_value_end(const char* begin, const char* end, std::size_t deepest);

}  // namespace libzentadbpp
