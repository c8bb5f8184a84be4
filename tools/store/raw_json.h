#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <zentadbpp_json.hpp>

namespace zentadb {

// Parts of a well-formed JSON text, byte for byte, as hashes need them. Nothing recurses.
namespace raw_json {

inline std::size_t skip_space(std::string_view text, std::size_t at) {
    while (at < text.size() && std::string_view(" \t\r\n").find(text[at]) != std::string_view::npos) ++at;
    return at;
}

// The position after the string whose opening quote is at `at`.
inline std::size_t string_end(std::string_view text, std::size_t at) {
    for (++at; at < text.size() && text[at] != '"'; ++at) {
        if (text[at] == '\\') ++at;
    }
    return at + 1;
}

// The position after the value that begins at `at`.
inline std::size_t value_end(std::string_view text, std::size_t at) {
    std::size_t depth = 0;
    while (at < text.size()) {
        const char c = text[at];
        if (c == '"') {
            at = string_end(text, at);
        } else if (c == '[' || c == '{') {
            ++depth;
            ++at;
        } else if (c == ']' || c == '}') {
            --depth;
            ++at;
        } else if (depth == 0) {
            return text.find_first_of(",]} \t\r\n", at);
        } else {
            ++at;
        }
        if (depth == 0) return at;
    }
    return at;
}

// Calls `member(key, value)` for each member of an object, the key without its quotes. If the text breaks off within a
// value, that member goes to `last` instead.
template <class Member, class Last>
void for_each_member(std::string_view object, const Member& member, const Last& last) {
    std::size_t at = skip_space(object, 0) + 1;
    for (;;) {
        at = skip_space(object, at);
        if (at >= object.size() || object[at] != '"') return;
        const std::size_t key_end = string_end(object, at);
        if (key_end >= object.size()) return;
        const std::string_view key = object.substr(at + 1, key_end - at - 2);
        const std::size_t begin = skip_space(object, skip_space(object, key_end) + 1);
        if (begin >= object.size()) return;
        const std::size_t end = value_end(object, begin);
        if (end >= object.size()) return last(key, object.substr(begin));
        member(key, object.substr(begin, end - begin));
        at = skip_space(object, end) + 1;
    }
}

template <class Member>
void for_each_member(std::string_view object, const Member& member) {
    for_each_member(object, member, [](std::string_view, std::string_view) {});
}

// What a string means that is written between its quotes as `raw`.
inline std::string decoded(std::string_view raw) {
    if (raw.find('\\') == std::string_view::npos) return std::string(raw);
    return zentadbpp::Json::parse("\"" + std::string(raw) + "\"").text;
}

}  // namespace raw_json

}  // namespace zentadb
