#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "memory/arena.h"
#include "text/byte_scan.h"

namespace libzentadbpp {

// The insides of strings in a JSON text.

// What `canonical_string_end` does after the first stop of its scan.
[[nodiscard]] const char* canonical_string_end_from(const char* stop, const char* end, bool& escaped);

// The closing quote of the string whose inside begins at `p`, if it has the form of write_json_string; null if it does
// not, or does not end. `escaped` is whether it has escapes.
[[nodiscard]] inline const char* canonical_string_end(const char* p, const char* end, bool& escaped) {
    escaped = false;
    p = find_stop<StopAt::escape>(p, end);
    return p != end && *p == '"' ? p : canonical_string_end_from(p, end, escaped);
}

// The meaning of the character after a backslash, if the writer writes it so; else -1.
inline constexpr std::array<std::int16_t, 256> short_escapes = [] {
    std::array<std::int16_t, 256> table{};
    table.fill(-1);
    table['"'] = '"';
    table['\\'] = '\\';
    table['b'] = '\b';
    table['f'] = '\f';
    table['n'] = '\n';
    table['r'] = '\r';
    table['t'] = '\t';
    return table;
}();
[[nodiscard]] int canonical_escape_by_code(const char* escape, const char* end, const char*& end_of_escape);

// The byte or, for U+2028 and U+2029, the code point that an escape means, if the writer would write it so; -1 for any
// other. `end_of_escape` is set to its end.
[[nodiscard]] inline int canonical_escape(const char* escape, const char* end, const char*& end_of_escape) {
    if (end - escape < 2) return -1;
    end_of_escape = escape + 2;
    const int byte = short_escapes[static_cast<unsigned char>(escape[1])];
    return byte >= 0 ? byte : canonical_escape_by_code(escape, end, end_of_escape);
}

// Decodes the inside of a string that is well formed; it never gets longer.
[[nodiscard]] std::string_view decode_string(std::string_view raw, Arena& arena);

// A string with escapes of a value that was read. It is decoded on first use, because most strings are only written
// again unchanged.
class EscapedString {
   public:
    EscapedString(std::string_view raw, Arena& arena) : raw_(raw), arena_(&arena) {}

    [[nodiscard]] std::string_view raw() const { return raw_; }
    [[nodiscard]] std::string_view text() const {
        if (text_.data() == nullptr) text_ = decode_string(raw_, *arena_);
        return text_;
    }

   private:
    std::string_view raw_;
    Arena* arena_;
    mutable std::string_view text_;
};

}  // namespace libzentadbpp
