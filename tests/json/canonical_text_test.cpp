#include "json/canonical_text.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

#include "json/error.h"
#include "json/parser.h"
#include "json/writer.h"
#include "random_json.h"

namespace libzentadbpp {
namespace {

bool is_canonical(std::string_view text, std::size_t deepest = deepest_text) {
    const auto exact = testing_json::exact_copy(text);
    const char* const end = exact.data() + exact.size();
    return canonical_value_end(exact.data(), end, deepest) == end && !exact.empty();
}

std::string rewritten(std::string_view text) {
    Arena arena;
    TextBuffer out;
    try {
        JsonScanner scanner(to_standard_text(text, arena), arena);
        scanner.read_numbers_as(Numbers::written);  // as contents are
        const JsonValue value = scanner.read_value(0, deepest_text);
        scanner.expect_end();
        write_json(value, out);
    } catch (const ParseError&) {
        out.clear();
    }
    return std::string(out.view());
}

// A text is canonical just where reading and writing it gives the same text.
TEST(CanonicalText, IsWhatTheWriterWrites) {
    const auto check = [](std::initializer_list<std::string_view> texts) {
        for (const std::string_view text : texts) EXPECT_EQ(is_canonical(text), rewritten(text) == text) << text;
    };
    check({"[]", "{}", R"({"": 1, "a": {"b": [1, {}, []]}, "ab": "x", "b": null})",
           R"("\"\\\b\f\n\r\t\u0000\u001f\u2028\u2029/")", "\"\x7f\xc3\xa9\xe2\x80\x99\xe2\x80\xe2\xff\"",
           // in the order of the bytes, not of their escapes
           R"({"\n": 1, "\u000b": 2, " ": 3, "\"": 4, "A": 5, "\\": 6, "a": 7})",
           "{\"\xe2\x80\": 1, \"\\u2028\": 2, \"\\u2028a\": 3, \"\\u2029\": 4, \"\xe2\x80\xaa\": 5, \"\xff\": 6}"});
    check({" 1", "[1] ", "[1,2]", "[1 , 2]", "[ ]", "[1, ]", "[1}", "[1", "[1, ", "@N", "True", "nul"});
    check({"\"", "\"\\", "\"\\u", "\"\\u00\"", "\"a\nb\"", R"("\/")", R"("\u0041")", R"("\u00e9")", R"("\u000A")"});
    check({R"("\u000a")", R"("\u0008")", R"("\u001F")", R"("\u007f")", R"("\u0020")", R"("\u202a")", R"("\U2028")",
           "\"\xe2\x80\xa8\""});
    check({R"({"a":1})", R"({"a" : 1})", R"({"a": 1])", R"({"a)", R"({"a": )", "{1: 2}", R"({"b": 1, "a": 2})",
           R"({"a": 1, "a": 2})", R"({"ab": 1, "a": 2})", R"({"\u000b": 1, "\n": 2})", R"({"\n": 1, "\n": 2})",
           R"({"\\": 1, "A": 2})", R"({"\u2029": 1, "\u2028": 2})", "{\"\xff\": 1, \"\\u2028\": 2}"});
    check({"0", "-0", "-1", "2147483647", "-2147483648", "-2147483649", "999999999", "-99999999", "01", "-01", "-",
           "+1", "1.", "1e", "1E5", "1.50", "1e999"});
    check({"0.10000000000000001", "1234567890", "-999999999", "-123456789012345", "9007199254740992", "0.0", "1.0"});
    check({"12345678901234568", "1e+20", "9.9999999999999995e-08", "0.1", "1234567890.0", "123456789012345680000.0"});
    check({"1e21", "1e-7", "-0.0", "9007199254740993", "12345678901234567", "0.5", "123456789012345680000", "1e+021"});
    check({"0.5000000000000000000000000000000000000000000000000000000000"});
    EXPECT_FALSE(is_canonical(""));
}

TEST(CanonicalText, Depth) {
    const auto nested = [](std::size_t levels) { return std::string(levels, '[') + "1" + std::string(levels, ']'); };
    for (const std::size_t deepest :
         {std::size_t{0}, std::size_t{15}, std::size_t{16}, std::size_t{17}, deepest_content}) {
        EXPECT_TRUE(is_canonical(nested(deepest), deepest)) << deepest;
        EXPECT_FALSE(is_canonical(nested(deepest + 1), deepest)) << deepest;
    }
    EXPECT_TRUE(is_canonical(nested(1000000), no_depth_limit));
}

}  // namespace
}  // namespace libzentadbpp
