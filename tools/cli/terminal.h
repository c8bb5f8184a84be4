#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

namespace zentadb {

enum class Paint { bold, dim, red, green, yellow, cyan };

// auto, always or never. "auto" is the default: on a terminal, unless NO_COLOR is in the environment or TERM is dumb.
void choose_colours(const std::string& when);
[[nodiscard]] bool is_terminal(const std::ostream& stream);
// How many columns it has, if it is a terminal.
[[nodiscard]] std::optional<std::size_t> terminal_width(const std::ostream& stream);
// The text in a colour if the stream has colours, else unchanged.
[[nodiscard]] std::string painted(Paint paint, std::string_view text, const std::ostream& stream);

// Text from a store, safe for a terminal: control characters, characters that change the direction of text, and bytes
// that are not UTF-8 are written as escapes.
[[nodiscard]] std::string printable(std::string_view text);

// A filter between a stream and a terminal, for JSON, which is not made printable. It writes the characters that a
// terminal could obey as JSON escapes. Those of colours and line ends pass.
class TerminalBuffer : public std::streambuf {
   public:
    // Calls `before` each time before it writes.
    explicit TerminalBuffer(
        std::ostream& stream, std::function<void()> before = [] {});
    ~TerminalBuffer() override;
    TerminalBuffer(const TerminalBuffer&) = delete;
    TerminalBuffer& operator=(const TerminalBuffer&) = delete;

   protected:
    std::streamsize xsputn(const char* data, std::streamsize size) override;
    int_type overflow(int_type character) override;
    int sync() override;

   private:
    bool write(bool all);

    std::ostream* stream_;
    std::streambuf* target_;
    std::function<void()> before_;
    std::string pending_;
};

}  // namespace zentadb
