#include "host/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <iostream>

namespace zentadb {

namespace {

// What the user chose on the command line; the one thing that is the same for all of a run.
std::string& choice() {
    static std::string when = "auto";
    return when;
}

bool has_colours(const std::ostream& stream) {
    if (choice() != "auto") return choice() == "always";
    const char* no_color = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return is_terminal(stream) && (no_color == nullptr || *no_color == '\0') &&
           (terminal == nullptr || std::string_view(terminal) != "dumb");
}

}  // namespace

void choose_colours(const std::string& when) { choice() = when; }

bool is_terminal(const std::ostream& stream) {
    if (&stream == &std::cout) return ::isatty(STDOUT_FILENO) == 1;
    return &stream == &std::cerr && ::isatty(STDERR_FILENO) == 1;
}

std::optional<std::size_t> terminal_width(const std::ostream& stream) {
    winsize size{};
    if (!is_terminal(stream) || ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return std::nullopt;
    return size.ws_col;
}

std::string painted(Paint paint, std::string_view text, const std::ostream& stream) {
    constexpr std::array codes = {"\x1b[1m", "\x1b[2m", "\x1b[31m", "\x1b[32m", "\x1b[33m", "\x1b[36m"};
    if (!has_colours(stream)) return std::string(text);
    return std::string(codes[static_cast<std::size_t>(paint)]).append(text).append("\x1b[0m");
}

std::string printable(std::string_view text) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string result;
    std::size_t escaped = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const auto byte = static_cast<unsigned char>(text[at]);
        // U+0080 to U+009F, which some terminals obey as well.
        if (byte == 0xc2 && at + 1 < text.size() && (static_cast<unsigned char>(text[at + 1]) & 0xe0U) == 0x80U)
            escaped = 2;
        if (byte < 0x20 || byte == 0x7f) escaped = 1;
        if (escaped == 0) {
            result.push_back(text[at]);
        } else {
            --escaped;
            result.append("\\x").append(1, digits[byte >> 4]).append(1, digits[byte & 15]);
        }
    }
    return result;
}

}  // namespace zentadb
