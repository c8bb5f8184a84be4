#pragma once

#include <string_view>
#include <vector>

namespace libzentadbpp {

// Splits at every separator but one in first place, and keeps empty pieces; an empty text is one empty piece.
[[nodiscard]] std::vector<std::string_view> split(std::string_view text, char separator);

}  // namespace libzentadbpp
