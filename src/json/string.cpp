#include "json/string.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace libzentadbpp {
namespace {

constexpr int hex_digit(char c) { return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1; }

unsigned hex_value(const char* four) {
    unsigned value = 0;
    std::from_chars(four, four + 4, value, 16);
    return value;
}

char* put_utf8(unsigned code, char* out) {
    const auto put = [&out](unsigned byte) { *out++ = static_cast<char>(byte); };
    if (code < 0x80) {
        put(code);
    } else if (code < 0x800) {
        put(0xc0 | code >> 6);
        put(0x80 | (code & 0x3f));
    } else if (code < 0x10000) {
        put(0xe0 | code >> 12);
        put(0x80 | (code >> 6 & 0x3f));
        put(0x80 | (code & 0x3f));
    } else {
        put(0xf0 | code >> 18);
        put(0x80 | (code >> 12 & 0x3f));
        put(0x80 | (code >> 6 & 0x3f));
        put(0x80 | (code & 0x3f));
    }
    return out;
}

}  // namespace

int canonical_escape_by_code(const char* escape, const char* end, const char*& end_of_escape) {
    if (end - escape < 6 || escape[1] != 'u') return -1;
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

const char* canonical_string_end_from(const char* stop, const char* end, bool& escaped) {
    escaped = false;
    // What follows a stop that does not end the string, or null.
    const auto past_stop = [end, &escaped](const char* at) -> const char* {
        if (*at == '\\') {
            escaped = true;
            return canonical_escape(at, end, at) < 0 ? nullptr : at;
        }
        const bool is_line_mark = end - at >= 3 && at[1] == '\x80' && (at[2] == '\xa8' || at[2] == '\xa9');
        return *at == '\xe2' && !is_line_mark ? at + 1 : nullptr;
    };
    const char* p = stop;
    while (end - p > static_cast<std::ptrdiff_t>(mask_bytes)) {
        const char* const block = p;
        p += mask_bytes;
        for (std::uint64_t stops = stop_mask<StopAt::escape>(block); stops != 0;) {
            const char* const at = block + __builtin_ctzll(stops);
            if (*at == '"') return at;
            const char* const past = past_stop(at);
            if (past == nullptr) return nullptr;
            // The character after a backslash does not stop the scan.
            stops &= stops - 1;
            if (*at == '\\') {
                if (past > p) p = past;
                stops &= ~(std::uint64_t{2} << (at - block));
            }
        }
    }
    for (;;) {
        p = find_stop<StopAt::escape>(p, end);
        if (p == end) return nullptr;
        if (*p == '"') return p;
        p = past_stop(p);
        if (p == nullptr) return nullptr;
    }
}

std::string_view decode_string(std::string_view raw, Arena& arena) {
    char* const begin = static_cast<char*>(arena.allocate(raw.size(), 1));
    char* out = begin;
    const char* p = raw.data();
    const char* const end = p + raw.size();
    while (p != end) {
        const void* found = std::memchr(p, '\\', static_cast<std::size_t>(end - p));
        const char* escape = found == nullptr ? end : static_cast<const char*>(found);
        out = std::copy(p, escape, out);
        if (escape == end) break;
        p = escape + 2;
        if (escape[1] != 'u') {
            const int byte = short_escapes[static_cast<unsigned char>(escape[1])];
            *out++ = byte < 0 ? escape[1] : static_cast<char>(byte);
            continue;
        }
        unsigned code = hex_value(p);
        p += 4;
        if (code >= 0xd800 && code <= 0xdbff && end - p >= 6 && p[0] == '\\' && p[1] == 'u') {
            const unsigned trail = hex_value(p + 2);
            if (trail >= 0xdc00 && trail <= 0xdfff) {
                code = ((code - 0xd800) << 10 | (trail - 0xdc00)) + 0x10000;
                p += 6;
            }
        }
        out = put_utf8(code, out);
    }
    return {begin, static_cast<std::size_t>(out - begin)};
}

}  // namespace libzentadbpp
