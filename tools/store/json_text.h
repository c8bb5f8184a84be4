#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace zentadb {

// How a file is called in messages: "-" is standard input.
[[nodiscard]] std::string input_name(const std::string& path);

// How many bytes there are up to where a text stops being JSON, with the one that is wrong. The bytes of a string do
// not matter here.
[[nodiscard]] std::optional<std::size_t> json_break(std::string text);

// What is wrong with a text that is not JSON, and where: "trip.json:3:14: expected ':' in object, got ','". Columns
// count characters, from 1.
[[nodiscard]] std::optional<std::string> json_problem(const std::string& path, const std::string& text);

// The JSON text with its members and elements on lines of their own. All else, such as how numbers are written, stays.
[[nodiscard]] std::string indented(std::string_view given);

// A member of an object that is a string; null if there is none.
template <class Json>
[[nodiscard]] const std::string* string_member(const Json& object, const char* key) {
    const auto member = object.find(key);
    return member == object.end() ? nullptr : member->template get_ptr<const std::string*>();
}

// The same as a text, empty if there is none.
[[nodiscard]] std::string member_text(const nlohmann::json& object, const char* key);

// A value on one line, for people.
[[nodiscard]] std::string one_line(const nlohmann::ordered_json& value);

// A result as JSON, for programs.
[[nodiscard]] std::string pretty(const nlohmann::ordered_json& value);

}  // namespace zentadb
