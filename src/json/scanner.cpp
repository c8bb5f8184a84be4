#include "json/scanner.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <new>
#include <numeric>

#include "json/error.h"
#include "json/number_text.h"
#include "json/number_token.h"
#include "json/string.h"
#include "text/byte_scan.h"
#include "text/first_bytes.h"

namespace libzentadbpp {
namespace {

constexpr bool is_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

[[noreturn]] void fail(const char* message) { throw ParseError(message); }
[[noreturn]] void fail(std::string message, std::string_view rest) { throw ParseError(message.append(rest)); }

[[noreturn]] void fail_key(char met) { fail("expected '\"' in object, got ", described(met)); }

// Where a key must be.
void expect_quote(char c) {
    if (c != '"') fail_key(c);
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
            fail("invalid " + described(met), " in number");
    }
}

JsonValue number_value(const NumberToken& token, Numbers numbers) {
    const bool is_integer = numbers == Numbers::given ? token.is_integer() : token.is_written_integer();
    if (!is_integer) return JsonValue::real(read_real(token.text));
    std::int32_t value = 0;
    std::from_chars(token.text.data(), token.text.data() + token.text.size(), value);
    return JsonValue::integer(value);
}

bool is_hex_digit(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

}  // namespace

std::string described(char c) {
    const auto byte = static_cast<unsigned char>(c);
    const std::string code = "(" + std::to_string(static_cast<signed char>(c)) + ")";
    return byte >= 0x20 && byte <= 0x7f ? std::string("'") + c + "' " + code : code;
}

const char* JsonScanner::skip_space(const char* at) const {
    for (;;) {
        while (at != end_ && is_space(*at)) ++at;
        if (comments_ == Comments::refused || at == end_ || *at != '/') return at;
        at = skip_comment(at + 1);
    }
}

const char* JsonScanner::skip_comment(const char* at) const {
    if (at == end_) fail("unexpected end of input after start of comment");
    const std::string_view rest(at, static_cast<std::size_t>(end_ - at));
    if (*at == '/') return at + std::min(rest.find('\n'), rest.size());
    if (*at != '*') fail("malformed comment");
    const std::size_t close = rest.find("*/", 1);
    if (close == std::string_view::npos) fail("unexpected end of input inside multi-line comment");
    return at + close + 2;
}

const char* JsonScanner::token_after_space(const char* at) {
    at = skip_space(at);
    if (at == end_) fail("unexpected end of input");
    return at;
}

void JsonScanner::check_unicode_escape(const char* digits) const {
    const std::string_view four = std::string_view(digits, static_cast<std::size_t>(end_ - digits)).substr(0, 4);
    if (four.size() < 4 || !std::all_of(four.begin(), four.end(), is_hex_digit)) fail("bad \\u escape: ", four);
}

// Checks a string and returns what follows its closing quote.
const char* JsonScanner::skip_string(const char* inside, bool& escaped) const {
    escaped = false;
    for (const char* p = inside;;) {
        p = find_stop<StopAt::string_end>(p, end_);
        if (p == end_) fail("unexpected end of input in string");
        if (*p == '"') return p + 1;
        if (*p != '\\') fail("unescaped " + described(*p), " in string");
        escaped = true;
        if (++p == end_) fail("unexpected end of input in string");
        if (*p == 'u') {
            check_unicode_escape(p + 1);
            p += 5;
        } else if (std::string_view("bfnrt\"\\/").find(*p) != std::string_view::npos) {
            ++p;
        } else {
            fail("invalid escape character ", described(*p));
        }
    }
}

const char* JsonScanner::read_string(const char* inside, std::string_view& text) {
    bool escaped = false;
    const char* const stop = find_stop<StopAt::string_end>(inside, end_);
    const char* const past = stop != end_ && *stop == '"' ? stop + 1 : skip_string(inside, escaped);
    text = {inside, static_cast<std::size_t>(past - 1 - inside)};
    if (escaped) text = decode_string(text, *arena_);
    return past;
}

const char* JsonScanner::read_string_value(const char* inside, JsonValue& value) {
    bool escaped = false;
    const char* const quote = canonical_string_end(inside, end_, escaped);
    if (quote == nullptr) {
        std::string_view text;
        const char* const past = read_string(inside, text);
        value = JsonValue::string(text);
        return past;
    }
    const std::string_view text(inside, static_cast<std::size_t>(quote - inside));
    value = escaped ? JsonValue::escaped_string(new (arena_->allocate(sizeof(EscapedString), alignof(EscapedString)))
                                                    EscapedString(text, *arena_))
                    : JsonValue::plain_string(text);
    return quote + 1;
}

std::string_view JsonScanner::read_string() {
    std::string_view text;
    at_ = read_string(at_, text);
    return text;
}

const char* JsonScanner::expect_colon_after_space(const char* at) {
    at = token(at);
    if (*at != ':') fail("expected ':' in object, got ", described(*at));
    return at + 1;
}

const char* JsonScanner::read_key(const char* at, std::string_view& key) {
    expect_quote(*at);
    return expect_colon(read_string(at + 1, key));
}

std::string_view JsonScanner::read_key(char first) {
    expect_quote(first);
    std::string_view key;
    at_ = expect_colon(read_string(at_, key));
    return key;
}

const char* JsonScanner::skip_key(const char* at) {
    expect_quote(*at);
    bool escaped = false;
    return expect_colon(skip_string(at + 1, escaped));
}

char JsonScanner::after_member() {
    char c = next_token();
    if (c == '}') return c;
    if (c != ',') fail("expected ',' in object, got ", described(c));
    c = next_token();
    expect_quote(c);
    return c;
}

template <std::size_t size>
const char* JsonScanner::expect_word(const char* at, const char (&word)[size]) const {
    const auto left = static_cast<std::size_t>(end_ - at);
    if (left < size - 1 || std::memcmp(at, word, size - 1) != 0) {
        fail(std::string("parse error: expected ") + word + ", got ", std::string_view(at, std::min(left, size - 1)));
    }
    return at + size - 1;
}

const char* JsonScanner::read_number(const char* at, JsonValue* value) {
    const NumberToken token = scan_number(at, end_);
    at += token.text.size();
    if (token.fault != NumberToken::Fault::none) fail_number(token.fault, at == end_ ? '\0' : *at);
    if (value != nullptr) *value = number_value(token, numbers_);
    return at;
}

template <bool keep>
const char* JsonScanner::read_scalar(const char* at, JsonValue& value) {
    switch (*at) {
        case '"': {
            if constexpr (keep) return read_string_value(at + 1, value);
            bool escaped = false;
            return skip_string(at + 1, escaped);
        }
        case 't':
            value = JsonValue::boolean(true);
            return expect_word(at, "true");
        case 'f':
            value = JsonValue::boolean(false);
            return expect_word(at, "false");
        case 'n':
            value = JsonValue();
            return expect_word(at, "null");
        default:
            if (*at != '-' && (*at < '0' || *at > '9')) fail("expected value, got ", described(*at));
            return read_number(at, keep ? &value : nullptr);
    }
}

void JsonScanner::add_key(std::string_view key) {
    const std::uint64_t begin = first_bytes(key);
    Open& object = open_.back();
    if (object.ascending && waiting_members_.size() > object.first) {
        const WaitingMember& last = waiting_members_.last();
        object.ascending = last.begin != begin ? last.begin < begin : last.member.key < key;
    }
    WaitingMember& waiting = waiting_members_.add();
    waiting.begin = begin;
    waiting.member.key = key;
}

JsonValue JsonScanner::close_object() {
    const Open object = open_.back();
    open_.pop_back();
    const std::span<const WaitingMember> members = waiting_members_.from(object.first);
    waiting_members_.shrink(object.first);
    const std::span<JsonMember> settled = arena_->make<JsonMember>(members.size());
    if (object.ascending) {
        std::ranges::transform(members, settled.begin(), [](const WaitingMember& waiting) { return waiting.member; });
        return JsonValue::object(settled);
    }
    return JsonValue::object(settled.first(settle(members, settled.data())));
}

// Sorts the members by key, keeps the last of equal keys, and returns how many remain. Objects of one size are alike as
// a rule, so the order of the last one is tried first.
std::size_t JsonScanner::settle(std::span<const WaitingMember> members, JsonMember* settled) {
    const auto before = [&members](std::uint32_t a, std::uint32_t b) {
        return members[a].begin != members[b].begin ? members[a].begin < members[b].begin
                                                    : members[a].member.key < members[b].member.key;
    };
    const auto take_from = [&](std::span<const std::uint32_t> order) {
        std::size_t left = 0;
        for (std::size_t at = 0; at < order.size(); ++at) {
            if (at + 1 == order.size() || before(order[at], order[at + 1])) settled[left++] = members[order[at]].member;
        }
        return left;
    };
    if (members.size() > few_members) {
        many_order_.resize(members.size());
        std::iota(many_order_.begin(), many_order_.end(), 0U);
        std::ranges::stable_sort(many_order_, before);
        return take_from(many_order_);
    }
    const std::span order = std::span(orders_[members.size()]).first(members.size());
    if (take_from(order) == order.size()) return order.size();
    std::iota(order.begin(), order.end(), 0U);
    for (std::size_t next = 1; next < order.size(); ++next) {
        const std::uint32_t member = order[next];
        std::size_t at = next;
        for (; at > 0 && before(member, order[at - 1]); --at) order[at] = order[at - 1];
        order[at] = member;
    }
    return take_from(order);
}

JsonValue JsonScanner::close_array() {
    const Open array = open_.back();
    open_.pop_back();
    const std::span<const JsonValue> elements = waiting_elements_.from(array.first);
    const JsonValue value = JsonValue::array(arena_->copy(elements));
    waiting_elements_.shrink(array.first);
    return value;
}

template <bool keep>
const char* JsonScanner::walk(const char* at, std::size_t depth, std::size_t deepest, JsonValue& outermost) {
    open_.clear();
    open_objects_.clear();
    waiting_elements_.shrink(0);
    waiting_members_.shrink(0);
    const auto open_count = [this] { return keep ? open_.size() : open_objects_.size(); };
    const auto open = [this](bool is_object) {
        if constexpr (keep) {
            open_.push_back({is_object ? waiting_members_.size() : waiting_elements_.size(), is_object, true});
        } else {
            open_objects_.push(is_object);
        }
    };
    const auto innermost_is_object = [this] { return keep ? open_.back().is_object : open_objects_.top(); };
    const auto close = [&](bool is_object) {
        if constexpr (keep) {
            const JsonValue value = is_object ? close_object() : close_array();
            place(outermost) = value;
        } else {
            open_objects_.pop();
        }
    };
    const auto take_key = [this](const char* key_at) {
        if constexpr (!keep) return skip_key(key_at);
        std::string_view key;
        key_at = read_key(key_at, key);
        add_key(key);
        return key_at;
    };
    const auto keep_value = [&](JsonValue value) {
        if constexpr (keep) place(outermost) = value;
    };
    for (;;) {
        if (depth + open_count() > deepest) fail("exceeded maximum nesting depth");
        at = token(at);
        if (*at == '{') {
            at = token(at + 1);
            if (*at != '}') {
                open(true);
                at = take_key(at);
                continue;
            }
            ++at;
            keep_value(JsonValue::object({}));
        } else if (*at == '[') {
            at = token(at + 1);
            if (*at != ']') {
                open(false);
                continue;
            }
            ++at;
            keep_value(JsonValue::array({}));
        } else if constexpr (keep) {
            at = read_scalar<keep>(at, place(outermost));
        } else {
            at = read_scalar<keep>(at, outermost);
        }
        // A whole value was read, with which the innermost open one may end, and so on outwards.
        for (;;) {
            if (open_count() == 0) return at;
            at = token(at);
            if (innermost_is_object()) {
                if (*at == ',') {
                    at = take_key(token(at + 1));
                    break;
                }
                if (*at != '}') fail("expected ',' in object, got ", described(*at));
                close(true);
            } else {
                if (*at == ',') {
                    at = token(at + 1);
                    break;
                }
                if (*at != ']') fail("expected ',' in list, got ", described(*at));
                close(false);
            }
            ++at;
        }
    }
}

JsonValue JsonScanner::read_value(std::size_t depth, std::size_t deepest) {
    JsonValue value;
    at_ = walk<true>(at_, depth, deepest, value);
    return value;
}

std::string_view JsonScanner::skip_value(std::size_t depth, std::size_t deepest) {
    if (depth > deepest) fail("exceeded maximum nesting depth");
    const char* const begin = token(at_);
    JsonValue value;
    at_ = walk<false>(begin, depth, deepest, value);
    return {begin, static_cast<std::size_t>(at_ - begin)};
}

void JsonScanner::expect_end() {
    at_ = skip_space(at_);
    if (at_ != end_) fail("unexpected trailing ", described(*at_));
}

}  // namespace libzentadbpp
