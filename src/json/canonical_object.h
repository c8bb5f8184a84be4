#pragma once

#include <span>
#include <string>
#include <string_view>

#include "memory/arena.h"
#include "memory/text_buffer.h"
#include "text/byte_scan.h"

namespace libzentadbpp {

// Walks texts that this library wrote or recognised as written so: nothing is checked again.

// The end of the string whose opening quote is at `begin`, behind its closing quote. `end` is that of the whole text.
[[nodiscard]] inline const char* written_string_end(const char* begin, const char* end) {
    const char* at = find_stop<StopAt::string_end>(begin + 1, end);
    while (*at == '\\') at = find_stop<StopAt::string_end>(at + 2, end);
    return at + 1;
}
// The end of any value.
[[nodiscard]] const char* written_value_end(const char* begin, const char* end);

// The text between the quotes of a written string.
[[nodiscard]] inline std::string_view inside_quotes(std::string_view string) {
    return string.substr(1, string.size() - 2);
}
// The same decoded; almost always that is the same text.
class DecodedString {
   public:
    explicit DecodedString(std::string_view escaped) : text_(escaped) {
        if (escaped.find('\\') != std::string_view::npos) decode();
    }
    DecodedString(const DecodedString&) = delete;
    DecodedString& operator=(const DecodedString&) = delete;

    // As long as this and the written text.
    [[nodiscard]] std::string_view text() const { return text_; }
    // As long as the arena and the written text.
    [[nodiscard]] std::string_view text_in(Arena& arena) const { return decoded_.empty() ? text_ : arena.copy(text_); }

   private:
    void decode();

    std::string_view text_;
    std::string decoded_;
};
// Orders a key as written (without its quotes) against a plain one.
[[nodiscard]] int compare_written_key(std::string_view escaped, std::string_view key);

// One member of a written object, as slices.
struct WrittenMember {
    std::string_view key;  // as written, without its quotes
    std::string_view value;
};

// The members of a written object one after the other.
class WrittenObject {
   public:
    explicit WrittenObject(std::string_view object) : at_(object.data() + 1), end_(object.data() + object.size()) {}
    [[nodiscard]] bool next(WrittenMember& member);

   private:
    const char* at_;
    const char* end_;
};

// Appends a written object with some members set: `members` in ascending order of (plain) keys, values written. Members
// of those names that the object has give way.
void write_object_with(std::string_view object, std::span<const WrittenMember> members, TextBuffer& out);

}  // namespace libzentadbpp
