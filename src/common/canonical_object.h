#pragma once

#include <span>
#include <string>
#include <string_view>

#include "common/text_buffer.h"

namespace libzentadbpp {

// Walks texts that this library wrote or recognised as written so: nothing is checked again.

// The end of the string whose opening quote is at `begin`, behind its closing quote. `end` is that of the whole text.
[[nodiscard]] const char* written_string_end(const char* begin, const char* end);
// The end of any value.
[[nodiscard]] const char* written_value_end(const char* begin, const char* end);

// What stands between the quotes of a written string, decoded.
[[nodiscard]] std::string decode_written(std::string_view escaped);
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
