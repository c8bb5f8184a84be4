#include "store/json_text.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <zentadbpp.hpp>

#include "cli/table.h"
#include "store/raw_json.h"

namespace zentadb {

using nlohmann::json;
using nlohmann::ordered_json;

namespace {

// The library's word for what is wrong; it reads any JSON text here.
std::string complaint_about(const std::string& text) {
    try {
        static_cast<void>(zentadbpp::uncompress(text));
    } catch (const zentadbpp::Error& error) {
        if (!error.is_record()) return error.what();
    }
    return "not JSON";
}

}  // namespace

std::string input_name(const std::string& path) { return path == "-" ? "standard input" : path; }

std::optional<std::size_t> json_break(std::string text) {
    std::ranges::replace_if(
        text, [](char byte) { return (static_cast<unsigned char>(byte) & 0x80U) != 0; }, '?');
    try {
        const json nothing = json::parse(text, [](int, json::parse_event_t, const json&) { return false; });
        return std::nullopt;
    } catch (const json::parse_error& error) {
        return std::min(error.byte, text.size());
    } catch (const json::out_of_range&) {  // a number that is too large, which is well-formed
        return std::nullopt;
    }
}

std::optional<std::string> json_problem(const std::string& path, const std::string& text) {
    const std::string name = input_name(path);
    if (text.find_first_not_of(" \t\r\n") == std::string::npos) return name + ": empty input";
    const std::optional<std::size_t> size = json_break(text);
    if (!size) return std::nullopt;
    const std::string_view before = std::string_view(text).substr(0, *size);
    const std::size_t line_begin = before.substr(0, before.size() - 1).rfind('\n') + 1;
    const auto line = 1 + std::ranges::count(before.substr(0, line_begin), '\n');
    const std::size_t column = width_of(before.substr(line_begin));
    return name + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + complaint_about(text);
}

std::string indented(std::string_view given) {
    constexpr std::size_t width = 4;
    std::string text;
    std::size_t depth = 0;
    const auto new_line = [&] { text.append(1, '\n').append(depth * width, ' '); };
    for (std::size_t at = 0; at < given.size(); ++at) {
        const char c = given[at];
        if (c == '"') {
            const std::size_t end = raw_json::string_end(given, at);
            text.append(given.substr(at, end - at));
            at = end - 1;
        } else if (c == '{' || c == '[') {
            text.push_back(c);
            const std::size_t next = raw_json::skip_space(given, at + 1);
            if (next < given.size() && (given[next] == '}' || given[next] == ']')) {
                text.push_back(given[at = next]);
                continue;
            }
            ++depth;
            new_line();
        } else if (c == '}' || c == ']') {
            --depth;
            new_line();
            text.push_back(c);
        } else if (c == ',') {
            text.push_back(c);
            new_line();
        } else if (c == ':') {
            text.append(": ");
        } else if (raw_json::skip_space(given, at) == at) {
            text.push_back(c);
        }
    }
    return text;
}

std::string member_text(const json& object, const char* key) {
    const std::string* text = string_member(object, key);
    return text == nullptr ? "" : *text;
}

std::string one_line(const ordered_json& value) {
    return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

std::string pretty(const ordered_json& value) {
    return value.dump(4, ' ', false, ordered_json::error_handler_t::replace);
}

}  // namespace zentadb
