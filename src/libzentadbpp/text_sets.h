#pragma once

#include <string>
#include <vector>

#include "memory/text_buffer.h"

namespace libzentadbpp {

// Sets of ids and revision strings as results: separated by commas, or as a JSON array. Only the latter can contain an
// element with a NUL byte; the former throws TextContainsNul.
[[nodiscard]] CText joined(const std::vector<std::string>& set);
[[nodiscard]] CText json_list(const std::vector<std::string>& list);

}  // namespace libzentadbpp
