#include "cli/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <iostream>
#include <utility>

namespace zentadb {

namespace {

// The choice on the command line, the only state that is common to a whole run.
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

struct Character {
    std::size_t size;
    std::optional<char32_t> code;  // nothing if the byte is not UTF-8
};

// The first character of a text that is not empty.
Character character_at(std::string_view text) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    if (byte(0) < 0x80) return {1, byte(0)};
    const std::size_t size = byte(0) >= 0xf0 ? 4 : byte(0) >= 0xe0 ? 3 : 2;
    constexpr std::array<char32_t, 5> least = {0, 0, 0x80, 0x800, 0x10000};
    if (byte(0) < 0xc2 || byte(0) > 0xf4 || text.size() < size) return {1, std::nullopt};
    char32_t code = byte(0) & (0xffU >> (size + 1));
    for (std::size_t at = 1; at < size; ++at) {
        if ((byte(at) & 0xc0U) != 0x80U) return {1, std::nullopt};
        code = code << 6 | (byte(at) & 0x3fU);
    }
    const bool is_surrogate = code >= 0xd800 && code <= 0xdfff;
    if (code < least[size] || code > 0x10ffff || is_surrogate) return {1, std::nullopt};
    return {size, code};
}

// A character that a terminal may obey, or that changes the direction of the text around it.
bool is_control(char32_t code) {
    const auto is_between = [code](char32_t first, char32_t last) { return code >= first && code <= last; };
    return code < 0x20 || is_between(0x7f, 0x9f) || code == 0x61c || code == 0x200e || code == 0x200f ||
           is_between(0x2028, 0x202e) || is_between(0x2066, 0x2069);
}

std::string hexadecimal(char32_t number, std::size_t digits) {
    std::string text(digits, '0');
    for (std::size_t at = digits; at-- > 0; number >>= 4) text[at] = "0123456789abcdef"[number & 15U];
    return text;
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
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const Character character = character_at(text.substr(at));
        const std::string_view bytes = text.substr(at, character.size);
        at += character.size;
        if (!character.code || *character.code < 0x20 || *character.code == 0x7f) {
            for (const char byte : bytes) result.append("\\x").append(hexadecimal(static_cast<unsigned char>(byte), 2));
        } else if (is_control(*character.code)) {
            result.append("\\u").append(hexadecimal(*character.code, 4));
        } else {
            result.append(bytes);
        }
    }
    return result;
}

TerminalBuffer::TerminalBuffer(std::ostream& stream, std::function<void()> before)
    : stream_(&stream), target_(stream.rdbuf()), before_(std::move(before)) {
    stream.rdbuf(this);
}

TerminalBuffer::~TerminalBuffer() {
    stream_->flush();
    stream_->rdbuf(target_);
}

std::streamsize TerminalBuffer::xsputn(const char* data, std::streamsize size) {
    pending_.append(data, static_cast<std::size_t>(size));
    return write(false) ? size : 0;
}

TerminalBuffer::int_type TerminalBuffer::overflow(int_type character) {
    if (character == traits_type::eof()) return traits_type::not_eof(character);
    pending_.push_back(static_cast<char>(character));
    return write(false) ? character : traits_type::eof();
}

int TerminalBuffer::sync() { return write(true) && target_->pubsync() == 0 ? 0 : -1; }

// The last bytes may be the beginning of a character, of which the rest comes with the next call.
bool TerminalBuffer::write(bool all) {
    constexpr std::size_t longest_character = 4;
    std::string text;
    std::size_t at = 0;
    while (at < pending_.size() &&
           (all || static_cast<unsigned char>(pending_[at]) < 0x80 || pending_.size() - at >= longest_character)) {
        const Character character = character_at(std::string_view(pending_).substr(at));
        if (!character.code) {
            text.append("\\ufffd");
        } else if (*character.code >= 0x20 && is_control(*character.code)) {
            text.append("\\u").append(hexadecimal(*character.code, 4));
        } else {
            text.append(pending_, at, character.size);
        }
        at += character.size;
    }
    pending_.erase(0, at);
    if (text.empty()) return true;
    before_();
    return target_->sputn(text.data(), static_cast<std::streamsize>(text.size())) ==
           static_cast<std::streamsize>(text.size());
}

}  // namespace zentadb
