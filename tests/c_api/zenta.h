#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "zentadbpp.h"

namespace c_api {

// The C interface with its results owned. Taking a result checks what holds for all of them: either a value or an
// error, nothing reserved, and no harm in freeing twice.

using Handle = std::shared_ptr<zentadbpp_document_storage>;

// An error record; the line, which nobody may rely on, is written as N.
inline std::string record(std::string_view function, std::string_view key,
                          std::optional<std::string_view> args = std::nullopt,
                          std::string_view file = "src/libzentadbpp") {
    std::string text = R"({ "filename" : ")" + std::string(file) + R"(", "line": N, "function" : ")" +
                       std::string(function) + R"(", "error" : ")" + std::string(key);
    if (args) text += R"(", "args" : ")" + std::string(*args);
    return text + R"(" })";
}

inline std::string without_line(std::string error) {
    constexpr std::string_view before = R"(", "line": )";
    if (!error.starts_with(R"({ "filename" : ")")) return error;
    const std::size_t begin = error.find(before) + before.size();
    const std::size_t end = error.find_first_not_of("0123456789", begin);
    if (end != begin && error[begin] != '0') error.replace(begin, end - begin, "N");
    return error;
}

struct Answer {
    std::optional<std::string> value;  // of a handle, what it dumps
    std::string error;
    Handle handle;

    [[nodiscard]] const std::string& text() const {
        EXPECT_TRUE(value) << error;
        static const std::string none;
        return value ? *value : none;
    }
    bool operator==(const Answer& other) const { return value == other.value && error == other.error; }
    friend void PrintTo(const Answer& answer, std::ostream* out) {
        *out << (answer.value ? "value " + *answer.value : "error " + answer.error);
    }
};

inline std::optional<std::string> dump(const Handle& handle) {
    const std::unique_ptr<char, void (*)(void*)> text(dump_sync_json_ptr(handle.get()), std::free);
    return text ? std::optional<std::string>(text.get()) : std::nullopt;
}

// Only an import may give a result and an error at once.
enum class Both : bool { refused, allowed };

template <class Record>
Answer taken(Record made, void (*release)(Record*), Both both) {
    Answer answer;
    if constexpr (requires { made.reserved; }) {
        EXPECT_EQ(made.reserved, nullptr);
    }
    const bool in_part = both == Both::allowed && made.error != nullptr;
    if constexpr (requires { made.ptr; }) {
        EXPECT_TRUE(in_part || (made.ptr == nullptr) != (made.error == nullptr));
        answer.handle = Handle(made.ptr, free_sync_json_ptr);
        answer.value = dump(answer.handle);
    } else {
        EXPECT_TRUE(in_part || (made.value == nullptr) != (made.error == nullptr));
        if (made.value != nullptr) answer.value = made.value;
    }
    if (made.error != nullptr) answer.error = without_line(made.error);
    for (int i = 0; i < 2; ++i) {
        release(&made);
        EXPECT_EQ(made.error, nullptr);
    }
    return answer;
}

inline Answer taken(sync_json_result made, Both both = Both::refused) {
    return taken(made, free_sync_json_result, both);
}
inline Answer taken(flatten_result made, Both both = Both::refused) { return taken(made, free_flatten_result, both); }
inline Answer taken(sync_json_ptr_result made, Both both = Both::refused) {
    return taken(made, free_sync_json_ptr_result, both);
}

inline Answer taken(char* text) {
    Answer answer;
    if (text != nullptr) answer.value = text;
    std::free(text);
    return answer;
}

inline Answer open(const std::string& sync_json) { return taken(new_sync_json_ptr(sync_json.c_str())); }

inline std::string compressed(const std::string& object) { return taken(sync_json_compress(object.c_str())).text(); }
inline std::string uncompressed(const std::string& object) {
    return taken(sync_json_uncompress(object.c_str())).text();
}
inline bool is_compressed(const std::string& result) { return result.starts_with(R"({"compressed": true, "data": ")"); }

inline std::vector<std::string> split_list(const std::string& list) {
    std::vector<std::string> elements;
    for (std::size_t begin = 0; begin < list.size();) {
        const std::size_t end = std::min(list.find(',', begin), list.size());
        elements.push_back(list.substr(begin, end - begin));
        begin = end + 1;
    }
    return elements;
}

// The elements of a JSON array, or the "key": value pairs of an object, as the library writes them.
inline std::vector<std::string> entries(std::string_view written) {
    std::vector<std::string> found;
    int depth = 0;
    bool in_string = false;
    std::size_t begin = 1;
    for (std::size_t i = 0; i < written.size(); ++i) {
        const char c = written[i];
        if (in_string) {
            if (c == '\\') ++i;
            in_string = c != '"';
            continue;
        }
        in_string = c == '"';
        if (c == '[' || c == '{') ++depth;
        if (c == ']' || c == '}') --depth;
        const bool ends = depth == 0 && i + 1 == written.size();
        if (!ends && !(depth == 1 && c == ',')) continue;
        if (i > begin) found.emplace_back(written.substr(begin, i - begin));
        begin = i + 2;
    }
    return found;
}

// A member of a written object; the empty text for none.
inline std::string member(std::string_view written, std::string_view key) {
    const std::string start = '"' + std::string(key) + "\": ";
    for (const std::string& entry : entries(written)) {
        if (entry.starts_with(start)) return entry.substr(start.size());
    }
    return {};
}

// The body of a _bulk_docs request as the answer to a _bulk_get request for the same documents.
inline std::string as_bulk_get_answer(std::string_view bulk_docs) {
    std::string results;
    for (const std::string& document : entries(member(bulk_docs, "docs"))) {
        results += (results.empty() ? "" : ", ") + std::string(R"({"docs": [{"ok": )") + document + "}]}";
    }
    return R"({"results": [)" + results + "]}";
}

// A written string without its quotes; other elements stay unchanged.
inline std::string unquoted(const std::string& text) {
    return text.starts_with('"') ? text.substr(1, text.size() - 2) : text;
}

}  // namespace c_api
