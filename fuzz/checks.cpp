#include "checks.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>

#include "c_api/export_table.h"

// Failed expectations throw, nobody catches, and so the process ends where they failed.
extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    GTEST_FLAG_SET(throw_on_failure, true);
    return 0;
}

namespace fuzzing {

namespace {

// All texts that docs/errors.md sets in code, up to those that no function gives.
struct Described {
    std::set<std::string> texts;

    Described() {
        std::ifstream file(ZENTADBPP_ERRORS_FILE);
        std::stringstream whole;
        whole << file.rdbuf();
        const std::string page = whole.str().substr(0, whole.str().find("## Reserved keys"));
        for (std::size_t at = page.find('`'); at != std::string::npos; at = page.find('`', at)) {
            const std::size_t end = page.find('`', at + 1);
            texts.insert(page.substr(at + 1, end - at - 1));
            at = end + 1;
        }
        EXPECT_TRUE(texts.contains("document_not_found")) << ZENTADBPP_ERRORS_FILE;
        for (const char* word : {"false", "null"})
            texts.insert("parse error: expected " + std::string(word) + ", got ");
        for (const c_api::Export& row : c_api::exports()) texts.emplace(row.name);
    }

    // Whether the text begins with one that is described. Keys have no blanks, and stand alone.
    [[nodiscard]] bool is_message(const std::string& text) const {
        if (texts.contains(text)) return true;
        return std::ranges::any_of(texts, [&](const std::string& described) {
            return described.find(' ') != std::string::npos && text.starts_with(described);
        });
    }
};

}  // namespace

void expect_described(const std::string& error) {
    static const Described described;
    std::string_view left = error;
    const auto pass = [&left](std::string_view piece) {
        const bool passed = left.starts_with(piece);
        if (passed) left.remove_prefix(piece.size());
        return passed;
    };
    const auto up_to_quote = [&left] {
        std::string text(left.substr(0, left.find('"')));
        left.remove_prefix(text.size());
        return text;
    };
    if (!pass(R"({ "filename" : "src/)")) {
        EXPECT_TRUE(described.is_message(error)) << error;
        return;
    }
    (void)up_to_quote();
    EXPECT_TRUE(pass(R"(", "line": N, "function" : ")")) << error;
    EXPECT_TRUE(described.texts.contains(up_to_quote())) << error;
    EXPECT_TRUE(pass(R"(", "error" : ")")) << error;
    EXPECT_TRUE(described.texts.contains(up_to_quote())) << error;
    EXPECT_TRUE(pass(R"(", "args" : ")") || left == R"(" })") << error;
}

void expect_sound(const c_api::Answer& answer, bool is_sync_json) {
    if (!answer.error.empty()) expect_described(answer.error);
    if (!is_sync_json || !answer.value) return;
    const c_api::Answer again = c_api::open(*answer.value);
    EXPECT_EQ(again.error, "");
    if (!c_api::is_compressed(*answer.value)) {
        EXPECT_EQ(again.value, answer.value);
    }
}

}  // namespace fuzzing
