#pragma once

#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace zentadb {

enum class Paint { bold, dim, red, green, yellow, cyan };

// auto, always or never. "auto" is the default: on a terminal, unless NO_COLOR is in the environment or TERM is dumb.
void choose_colours(const std::string& when);
[[nodiscard]] bool is_terminal(const std::ostream& stream);
// How many columns it has, where it is a terminal.
[[nodiscard]] std::optional<std::size_t> terminal_width(const std::ostream& stream);
// The text in a colour where the stream is to have colours, else as it is.
[[nodiscard]] std::string painted(Paint paint, std::string_view text, const std::ostream& stream);

// Text from a store as a terminal may be given it: control characters are written as escapes.
[[nodiscard]] std::string printable(std::string_view text);

}  // namespace zentadb
