#include "json/canonical_text.h"

#include <cmath>
#include <cstring>
#include <string_view>

#include "json/environment.h"
#include "json/number_text.h"
#include "json/number_token.h"
#include "json/string.h"
#include "memory/small_stack.h"
#include "text/first_bytes.h"

namespace libzentadbpp {
namespace {

std::size_t left(const char* p, const char* end) { return static_cast<std::size_t>(end - p); }

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

bool precedes(const Key& a, const Key& b) {
    if (!a.escaped && !b.escaped) return is_before({a.begin, left(a.begin, a.end)}, {b.begin, left(b.begin, b.end)});
    KeyBytes bytes_a(a);
    KeyBytes bytes_b(b);
    for (;;) {
        const int byte_a = bytes_a.next();
        const int byte_b = bytes_b.next();
        if (byte_a != byte_b) return byte_a < byte_b;
        if (byte_a < 0) return false;
    }
}

// Reads a key with its quotes and ": ", and returns what follows, or null.
const char* read_key(const char* p, const char* end, Key& key) {
    if (p == end || *p != '"') return nullptr;
    key.begin = p + 1;
    key.end = canonical_string_end(key.begin, end, key.escaped);
    if (key.end == nullptr || left(key.end, end) < 3 || key.end[1] != ':' || key.end[2] != ' ') return nullptr;
    return key.end + 3;
}

// The end of the number at `p` if it has the digits that write_real would write.
const char* number_end(const char* p, const char* end) {
    const NumberToken token = scan_number(p, end);
    if (token.fault != NumberToken::Fault::none) return nullptr;
    const std::string_view text = token.text;
    const char* const end_of_number = p + text.size();
    if (token.is_written_integer()) return end_of_number;
    if (token.whole) {
        // Real numbers: the shortest digits always have a point or an exponent; 17 digits distinguish them exactly as
        // far as whole numbers are exact.
        constexpr std::size_t exact_digits = 15;
        if (fast_float_enabled()) return nullptr;
        if (text.size() - (*p == '-' ? 1 : 0) <= exact_digits) return end_of_number;  // "-0" too
    }
    if (text.size() > longest_number) return nullptr;
    const double value = read_real(text);
    if (!std::isfinite(value)) return nullptr;
    char written[longest_number];
    return std::string_view(written, left(written, write_real(value, written))) == text ? end_of_number : nullptr;
}

template <std::size_t size>
const char* word_end(const char* p, const char* end, const char (&word)[size]) {
    return left(p, end) >= size - 1 && std::memcmp(p, word, size - 1) == 0 ? p + size - 1 : nullptr;
}

const char* scalar_end(const char* p, const char* end) {
    switch (*p) {
        case '"': {
            bool escaped = false;
            const char* quote = canonical_string_end(p + 1, end, escaped);
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
                    if (p == nullptr || !precedes(last, key)) return nullptr;
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
