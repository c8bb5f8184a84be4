#include "common/canonical_text.h"

#include <cmath>
#include <cstring>
#include <string_view>

#include "common/byte_scan.h"
#include "common/environment.h"
#include "common/number_text.h"
#include "common/number_token.h"
#include "common/small_stack.h"

namespace libzentadbpp {
namespace {

std::size_t left(const char* p, const char* end) { return static_cast<std::size_t>(end - p); }

constexpr int hex_digit(char c) { return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1; }

// The byte or, for U+2028 and U+2029, the code point that an escape stands for when the writer would write it so;
// -1 for any other. `end_of_escape` is set to where it ends.
int canonical_escape(const char* escape, const char* end, const char*& end_of_escape) {
    if (left(escape, end) < 2) return -1;
    end_of_escape = escape + 2;
    switch (escape[1]) {
        case '"':
        case '\\':
            return escape[1];
        case 'b':
            return '\b';
        case 'f':
            return '\f';
        case 'n':
            return '\n';
        case 'r':
            return '\r';
        case 't':
            return '\t';
        case 'u':
            break;
        default:
            return -1;
    }
    if (left(escape, end) < 6) return -1;
    end_of_escape = escape + 6;
    const std::string_view digits(escape + 2, 4);
    if (digits == "2028") return 0x2028;
    if (digits == "2029") return 0x2029;
    const int low = hex_digit(digits[3]);
    if (digits[0] != '0' || digits[1] != '0' || (digits[2] != '0' && digits[2] != '1') || low < 0) return -1;
    const int code = (digits[2] - '0') * 16 + low;
    const bool has_short_escape = code == '\b' || code == '\f' || code == '\n' || code == '\r' || code == '\t';
    return has_short_escape ? -1 : code;
}

// The closing quote of the string whose inside begins at `p`, or null where it is not canonical.
const char* string_end(const char* p, const char* end, bool& escaped) {
    escaped = false;
    for (;;) {
        p = find_stop<StopAt::escape>(p, end);
        if (p == end) return nullptr;
        if (*p == '"') return p;
        if (*p == '\\') {
            if (canonical_escape(p, end, p) < 0) return nullptr;
            escaped = true;
        } else if (*p == '\xe2') {
            if (left(p, end) >= 3 && p[1] == '\x80' && (p[2] == '\xa8' || p[2] == '\xa9')) return nullptr;
            ++p;
        } else {
            return nullptr;
        }
    }
}

struct Key {
    const char* begin;  // null in an array, which has no keys
    const char* end;
    bool escaped;
};

// The bytes of a key with its escapes undone, one after the other.
class KeyBytes {
   public:
    explicit KeyBytes(const Key& key) : p_(key.begin), end_(key.end) {}

    // The next byte, or -1 at the end.
    int next() {
        if (tail_size_ != 0) return static_cast<unsigned char>(tail_[--tail_size_]);
        if (p_ == end_) return -1;
        if (*p_ != '\\') return static_cast<unsigned char>(*p_++);
        const int code = canonical_escape(p_, end_, p_);
        if (code < 0x80) return code;
        tail_[1] = '\x80';
        tail_[0] = code == 0x2028 ? '\xa8' : '\xa9';
        tail_size_ = 2;
        return 0xe2;
    }

   private:
    const char* p_;
    const char* end_;
    char tail_[2] = {};
    int tail_size_ = 0;
};

bool is_before(const Key& a, const Key& b) {
    if (!a.escaped && !b.escaped) {
        return std::string_view(a.begin, left(a.begin, a.end)) < std::string_view(b.begin, left(b.begin, b.end));
    }
    KeyBytes bytes_a(a);
    KeyBytes bytes_b(b);
    for (;;) {
        const int byte_a = bytes_a.next();
        const int byte_b = bytes_b.next();
        if (byte_a != byte_b) return byte_a < byte_b;
        if (byte_a < 0) return false;
    }
}

// Reads a key with its quotes and ": ", and answers what follows, or null.
const char* read_key(const char* p, const char* end, Key& key) {
    if (p == end || *p != '"') return nullptr;
    key.begin = p + 1;
    key.end = string_end(key.begin, end, key.escaped);
    if (key.end == nullptr || left(key.end, end) < 3 || key.end[1] != ':' || key.end[2] != ' ') return nullptr;
    return key.end + 3;
}

// The end of the number at `p` if it stands in the digits that write_real would give to it.
const char* number_end(const char* p, const char* end) {
    const NumberToken token = scan_number(p, end);
    if (token.fault != NumberToken::Fault::none) return nullptr;
    const std::string_view text = token.text;
    const char* const end_of_number = p + text.size();
    if (token.is_integer()) return end_of_number;
    if (token.whole) {
        // Real numbers: the shortest digits always have a point or an exponent; 17 digits tell them exactly as far
        // as whole numbers are exact.
        constexpr std::size_t exact_digits = 15;
        if (fast_float_enabled()) return nullptr;
        if (text.size() - (*p == '-' ? 1 : 0) <= exact_digits) return end_of_number;
    }
    if (text.size() > longest_number) return nullptr;
    const double value = read_real(text);
    if (!std::isfinite(value)) return nullptr;
    char written[longest_number];
    return std::string_view(written, left(written, write_real(value, written))) == text ? end_of_number : nullptr;
}

const char* word_end(const char* p, const char* end, std::string_view word) {
    return std::string_view(p, left(p, end)).starts_with(word) ? p + word.size() : nullptr;
}

const char* scalar_end(const char* p, const char* end) {
    switch (*p) {
        case '"': {
            bool escaped = false;
            const char* quote = string_end(p + 1, end, escaped);
            return quote == nullptr ? nullptr : quote + 1;
        }
        case 't':
            return word_end(p, end, "true");
        case 'f':
            return word_end(p, end, "false");
        case 'n':
            return word_end(p, end, "null");
        default:
            return number_end(p, end);
    }
}

}  // namespace

const char* canonical_value_end(const char* p, const char* end, std::size_t deepest) {
    SmallStack<Key, 16> open;  // of each open object the last key
    for (;;) {
        if (open.size() > deepest || p == end) return nullptr;
        if (*p == '{' || *p == '[') {
            if (left(p, end) < 2) return nullptr;
            const bool is_object = *p++ == '{';
            if (*p == (is_object ? '}' : ']')) {
                ++p;
            } else {
                Key key = {};
                if (is_object && (p = read_key(p, end, key)) == nullptr) return nullptr;
                open.push(key);
                continue;
            }
        } else {
            p = scalar_end(p, end);
            if (p == nullptr) return nullptr;
        }
        // A whole value ended: so may any number of those around it.
        for (;;) {
            if (open.empty()) return p;
            if (p == end) return nullptr;
            Key& last = open.top();
            const bool is_object = last.begin != nullptr;
            if (*p == ',') {
                if (left(p, end) < 2 || p[1] != ' ') return nullptr;
                p += 2;
                if (is_object) {
                    Key key;
                    p = read_key(p, end, key);
                    if (p == nullptr || !is_before(last, key)) return nullptr;
                    last = key;
                }
                break;
            }
            if (*p++ != (is_object ? '}' : ']')) return nullptr;
            open.pop();
        }
    }
}

}  // namespace libzentadbpp
