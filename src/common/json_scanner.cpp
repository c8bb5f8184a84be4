#include "common/json_scanner.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "common/byte_scan.h"
#include "common/error.h"
#include "common/number_text.h"
#include "common/number_token.h"

namespace libzentadbpp {
namespace {

constexpr bool is_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

[[noreturn]] void fail(const char* message) { throw ParseError(message); }
[[noreturn]] void fail(std::string message, std::string_view rest) { throw ParseError(message.append(rest)); }

// Where a key must be.
void expect_quote(char c) {
    if (c != '"') fail("expected '\"' in object, got ", told(c));
}

[[noreturn]] void fail_number(NumberToken::Fault fault, char met) {
    switch (fault) {
        case NumberToken::Fault::leading_zero:
            fail("leading 0s not permitted in numbers");
        case NumberToken::Fault::no_fraction_digit:
            fail("at least one digit required in fractional part");
        case NumberToken::Fault::no_exponent_digit:
            fail("at least one digit required in exponent");
        default:
            fail("invalid " + told(met), " in number");
    }
}

JsonValue number_value(const NumberToken& token, MinusZero minus_zero) {
    if (!token.is_integer() || (minus_zero == MinusZero::real && token.text == "-0"))
        return JsonValue::real(read_real(token.text));
    std::int32_t value = 0;
    std::from_chars(token.text.data(), token.text.data() + token.text.size(), value);
    return JsonValue::integer(value);
}

unsigned hex_value(const char* four) {
    unsigned value = 0;
    std::from_chars(four, four + 4, value, 16);
    return value;
}

bool is_hex_digit(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

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

char unescaped(char c) {
    switch (c) {
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
        default:
            return c;
    }
}

// Decodes the inside of a string that was found to be well formed; it never gets longer.
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
            *out++ = unescaped(escape[1]);
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

}  // namespace

std::string told(char c) {
    const auto byte = static_cast<unsigned char>(c);
    const std::string code = "(" + std::to_string(static_cast<signed char>(c)) + ")";
    return byte >= 0x20 && byte <= 0x7f ? std::string("'") + c + "' " + code : code;
}

std::span<JsonMember> settle_members(std::span<JsonMember> members) {
    std::stable_sort(members.begin(), members.end(),
                     [](const JsonMember& a, const JsonMember& b) { return a.key < b.key; });
    std::size_t left = 0;
    for (std::size_t i = 0; i < members.size(); ++i) {
        if (i + 1 < members.size() && members[i].key == members[i + 1].key) continue;
        members[left++] = members[i];
    }
    return members.first(left);
}

void JsonScanner::skip_space() {
    while (position_ < text_.size() && is_space(text_[position_])) ++position_;
    if (comments_ == Comments::allowed) skip_comments();
}

char JsonScanner::next_token() {
    skip_space();
    if (position_ == text_.size()) fail("unexpected end of input");
    return text_[position_++];
}

void JsonScanner::skip_comments() {
    while (position_ < text_.size() && text_[position_] == '/') {
        ++position_;
        if (position_ == text_.size()) fail("unexpected end of input after start of comment");
        if (text_[position_] == '/') {
            position_ = std::min(text_.find('\n', position_), text_.size());
        } else if (text_[position_] == '*') {
            const std::size_t close = text_.find("*/", position_ + 1);
            if (close == std::string_view::npos) fail("unexpected end of input inside multi-line comment");
            position_ = close + 2;
        } else {
            fail("malformed comment");
        }
        while (position_ < text_.size() && is_space(text_[position_])) ++position_;
    }
}

void JsonScanner::check_unicode_escape(std::size_t digits) {
    const std::string_view four = text_.substr(digits, 4);
    if (four.size() < 4 || !std::all_of(four.begin(), four.end(), is_hex_digit)) fail("bad \\u escape: ", four);
}

// Checks the rest of a string and answers its inside as it stands.
std::string_view JsonScanner::skip_string(bool& escaped) {
    const char* const begin = text_.data() + position_;
    const char* const end = text_.data() + text_.size();
    const char* p = begin;
    escaped = false;
    for (;;) {
        p = find_stop<StopAt::string_end>(p, end);
        if (p == end) fail("unexpected end of input in string");
        if (*p == '"') break;
        if (*p != '\\') fail("unescaped " + told(*p), " in string");
        escaped = true;
        if (++p == end) fail("unexpected end of input in string");
        if (*p == 'u') {
            check_unicode_escape(static_cast<std::size_t>(p + 1 - text_.data()));
            p += 5;
        } else if (std::string_view("bfnrt\"\\/").find(*p) != std::string_view::npos) {
            ++p;
        } else {
            fail("invalid escape character ", told(*p));
        }
    }
    position_ = static_cast<std::size_t>(p + 1 - text_.data());
    return {begin, static_cast<std::size_t>(p - begin)};
}

std::string_view JsonScanner::read_string() {
    bool escaped = false;
    const std::string_view raw = skip_string(escaped);
    return escaped ? decode_string(raw, *arena_) : raw;
}

void JsonScanner::expect_colon() {
    const char c = next_token();
    if (c != ':') fail("expected ':' in object, got ", told(c));
}

std::string_view JsonScanner::read_key(char first) {
    expect_quote(first);
    const std::string_view key = read_string();
    expect_colon();
    return key;
}

void JsonScanner::skip_key(char first) {
    expect_quote(first);
    bool escaped = false;
    skip_string(escaped);
    expect_colon();
}

char JsonScanner::after_member() {
    char c = next_token();
    if (c == '}') return c;
    if (c != ',') fail("expected ',' in object, got ", told(c));
    c = next_token();
    expect_quote(c);
    return c;
}

void JsonScanner::expect_word(std::string_view word) {
    const std::string_view got = text_.substr(position_ - 1, word.size());
    if (got != word) fail("parse error: expected " + std::string(word) + ", got ", got);
    position_ += word.size() - 1;
}

// The number whose first character was consumed.
NumberToken JsonScanner::read_number() {
    const NumberToken token = scan_number(text_.data() + position_ - 1, text_.data() + text_.size());
    position_ += token.text.size() - 1;
    if (token.fault != NumberToken::Fault::none) {
        fail_number(token.fault, position_ < text_.size() ? text_[position_] : '\0');
    }
    return token;
}

void JsonScanner::add_key(std::string_view key) {
    Open& object = open_.back();
    if (object.ascending && waiting_members_.size() > object.first && !(waiting_members_.back().key < key)) {
        object.ascending = false;
    }
    waiting_members_.push_back({key, {}});
}

JsonValue JsonScanner::close_object() {
    const Open object = open_.back();
    open_.pop_back();
    std::span<JsonMember> members = std::span(waiting_members_).subspan(object.first);
    if (!object.ascending) members = settle_members(members);
    const JsonValue value = JsonValue::object(arena_->copy(std::span<const JsonMember>(members)));
    waiting_members_.resize(object.first);
    return value;
}

JsonValue JsonScanner::close_array() {
    const Open array = open_.back();
    open_.pop_back();
    const std::span<const JsonValue> elements = std::span(waiting_elements_).subspan(array.first);
    const JsonValue value = JsonValue::array(arena_->copy(elements));
    waiting_elements_.resize(array.first);
    return value;
}

template <bool keep>
JsonValue JsonScanner::walk(std::size_t depth, std::size_t deepest) {
    open_.clear();
    waiting_elements_.clear();
    waiting_members_.clear();
    const auto read_or_skip_key = [this](char first) {
        if constexpr (keep) {
            add_key(read_key(first));
        } else {
            skip_key(first);
        }
    };
    for (;;) {
        if (depth + open_.size() > deepest) fail("exceeded maximum nesting depth");
        JsonValue value;
        const char c = next_token();
        switch (c) {
            case '{': {
                const char first = next_token();
                if (first == '}') {
                    value = JsonValue::object({});
                    break;
                }
                open_.push_back({waiting_members_.size(), true, true});
                read_or_skip_key(first);
                continue;
            }
            case '[':
                if (next_token() == ']') {
                    value = JsonValue::array({});
                    break;
                }
                put_back();
                open_.push_back({waiting_elements_.size(), false, true});
                continue;
            case '"':
                if constexpr (keep) {
                    value = JsonValue::string(read_string());
                } else {
                    bool escaped = false;
                    skip_string(escaped);
                }
                break;
            case 't':
                expect_word("true");
                value = JsonValue::boolean(true);
                break;
            case 'f':
                expect_word("false");
                value = JsonValue::boolean(false);
                break;
            case 'n':
                expect_word("null");
                break;
            default:
                if (c != '-' && (c < '0' || c > '9')) fail("expected value, got ", told(c));
                if constexpr (keep) {
                    value = number_value(read_number(), minus_zero_);
                } else {
                    read_number();
                }
        }
        // A whole value was read: it belongs to the innermost open one, which may end with it, and so on outwards.
        for (;;) {
            if (open_.empty()) return value;
            if (open_.back().is_object) {
                if constexpr (keep) waiting_members_.back().value = value;
                const char next = after_member();
                if (next != '}') {
                    read_or_skip_key(next);
                    break;
                }
                value = close_object();
            } else {
                if constexpr (keep) waiting_elements_.push_back(value);
                const char next = next_token();
                if (next == ',') {
                    next_token();
                    put_back();
                    break;
                }
                if (next != ']') fail("expected ',' in list, got ", told(next));
                value = close_array();
            }
        }
    }
}

JsonValue JsonScanner::read_value(std::size_t depth, std::size_t deepest) { return walk<true>(depth, deepest); }

std::string_view JsonScanner::skip_value(std::size_t depth, std::size_t deepest) {
    if (depth > deepest) fail("exceeded maximum nesting depth");
    next_token();
    put_back();
    const std::size_t begin = position_;
    walk<false>(depth, deepest);
    return text_.substr(begin, position_ - begin);
}

void JsonScanner::expect_end() {
    skip_space();
    if (position_ != text_.size()) fail("unexpected trailing ", told(text_[position_]));
}

}  // namespace libzentadbpp
