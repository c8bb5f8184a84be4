#pragma once

#include <string>
#include <vector>

#include "memory/text_buffer.h"

namespace libzentadbpp {

// How sets of ids and revision strings are answered: joined by commas with nothing around them, or as a JSON array. An
// element with a NUL byte fits only into the latter: TextContainsNul.
[[nodiscard]] CText joined(const std::vector<std::string>& set);
[[nodiscard]] CText json_list(const std::vector<std::string>& list);

}  // namespace libzentadbpp
