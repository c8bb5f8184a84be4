#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "json/environment.h"
#include "json/error.h"
#include "json/parser.h"
#include "json/writer.h"
#include "random_json.h"

namespace libzentadbpp {
namespace {

using testing_json::exact_copy;
using testing_json::RandomJson;

std::string written(const JsonValue& value) {
    TextBuffer out;
    write_json(value, out);
    return std::string(out.view());
}

std::string rewritten(std::string_view text, Comments comments = Comments::refused) {
    Arena arena;
    const JsonValue value = parse_json(text, arena, comments);
    const std::string result = written(value);
    // A text that is kept unchanged has to be decoded when someone looks at it.
    if (value.is_string()) {
        EXPECT_EQ(written(JsonValue::string(value.as_string())), result);
    }
    return result;
}

template <class Action>
std::string message_of(Action action) {
    try {
        action();
    } catch (const ParseError& failure) {
        return failure.what();
    }
    return "";
}

// What reading says, and that skipping says the same.
std::string message(std::string_view text, Comments comments = Comments::refused) {
    const auto exact = exact_copy(text);
    const std::string read = message_of([&] {
        Arena arena;
        (void)parse_json(testing_json::view(exact), arena, comments);
    });
    const std::string skipped = message_of([&] {
        Arena arena;
        JsonScanner scanner(testing_json::view(exact), arena, comments);
        scanner.skip_value(0, deepest_text);
        scanner.expect_end();
    });
    EXPECT_EQ(read, skipped) << text;
    return read;
}

std::string nested(std::size_t levels, std::string_view inner, std::string_view open = "[",
                   std::string_view close = "]") {
    std::string before, after;
    for (std::size_t i = 0; i < levels; ++i) before += open, after += close;
    return before.append(inner).append(after);
}

TEST(JsonText, ReadsAndWrites) {
    const struct {
        std::string_view text, result;
    } cases[] = {
        {" null\t\r\n", "null"},
        {"[true,false , [],{}]", "[true, false, [], {}]"},
        {R"({"b":1,"a":[2,{"x":null}]})", R"({"a": [2, {"x": null}], "b": 1})"},
        {R"({"a":1,"b":2,"a":3})", R"({"a": 3, "b": 2})"},
        {R"({"ab":1,"a":2,"":3,"a\u0000":4,"B":5})", R"({"": 3, "B": 5, "a": 2, "a\u0000": 4, "ab": 1})"},
        {"{\"\xff\":1,\"z\":2}", "{\"z\": 2, \"\xff\": 1}"},
        {R"("\"\\\/\b\f\n\r\t\u0001\u001f\u0041\u007f")", "\"\\\"\\\\/\\b\\f\\n\\r\\t\\u0001\\u001fA\x7f\""},
        {R"("\u00e9\u20ac\ud83d\ude00")", "\"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\""},
        {R"("\ud83d")", "\"\xed\xa0\xbd\""},
        {R"("\ud83dx\ude00")", "\"\xed\xa0\xbdx\xed\xb8\x80\""},
        {R"("\ud83d\ud83d\ude00")", "\"\xed\xa0\xbd\xf0\x9f\x98\x80\""},
        {R"("\ud83d\u0041")", "\"\xed\xa0\xbd\x41\""},
        {"\"\xe2\x80\xa8\xe2\x80\xa9\xe2\x80\xaa\xe2\x80\"", "\"\\u2028\\u2029\xe2\x80\xaa\xe2\x80\""},
        {"\"\xe2\xe2\x80\xa8\x80\xff\"", "\"\xe2\\u2028\x80\xff\""},
        {"[-0,1e999,-1e999]", "[0, null, null]"},
    };
    for (const auto& c : cases) EXPECT_EQ(rewritten(c.text), c.result) << c.text;
    EXPECT_EQ(rewritten("[0.1, 1.0, 1e3, 1234567890, -0.0]"), fast_float_enabled()
                                                                  ? "[0.1, 1.0, 1000.0, 1234567890.0, 0.0]"
                                                                  : "[0.10000000000000001, 1, 1000, 1234567890, -0]");
}

TEST(JsonText, NumbersAreIntegersUpToNineCharacters) {
    Arena arena;
    EXPECT_EQ(parse_json("-99999999", arena).as_int32(), -99999999);
    EXPECT_EQ(parse_json("999999999", arena).as_int32(), 999999999);
    EXPECT_EQ(parse_json("-0", arena).kind(), JsonValue::Kind::integer);
    EXPECT_EQ(parse_json("-12.5E-1", arena).as_real(), -1.25);
    for (const char* text : {"1234567890", "-999999999", "0.0", "1e1", "0e0"}) {
        EXPECT_EQ(parse_json(text, arena).kind(), JsonValue::Kind::real) << text;
    }
}

TEST(JsonText, Messages) {
    const std::vector<std::pair<std::string_view, std::vector<std::string_view>>> cases = {
        {"unexpected end of input", {" ", "{", "[1", "[1,", R"({"a")", R"({"a":)", R"({"a":1)", R"({"a":1,)"}},
        {"unexpected trailing 'x' (120)", {"1 x", "12x", "{}x"}},
        {"unexpected trailing (-61)", {"1\xc3"}},
        {"unexpected trailing '\x7f' (127)", {"null\x7f"}},
        {"unexpected trailing (0)", {std::string_view("1\0", 2)}},
        {"expected value, got '+' (43)", {"+1"}},
        {"expected value, got ']' (93)", {"[1,]"}},
        {"expected value, got (31)", {"\x1f"}},
        {"expected value, got '/' (47)", {"// x"}},
        {"parse error: expected true, got tru", {"tru"}},
        {"unexpected trailing 'i' (105)", {"trueish"}},
        {"parse error: expected true, got tRue", {"[tRue]"}},
        {"parse error: expected false, got falsy", {"falsy!"}},
        {"parse error: expected null, got n", {"n"}},
        {"expected '\"' in object, got 'a' (97)", {"{a"}},
        {"expected '\"' in object, got '}' (125)", {R"({"a":1,})"}},
        {"expected '\"' in object, got ',' (44)", {"{,"}},
        {"expected ':' in object, got '1' (49)", {R"({"a" 1})"}},
        {"expected ',' in object, got ']' (93)", {R"({"a":1])"}},
        {"expected ',' in list, got '2' (50)", {"[1 2]"}},
        {"expected ',' in list, got '}' (125)", {"[1}"}},
        {"unexpected end of input in string", {"\"abc", "\"abc\\", "{\"abc"}},
        {"unescaped (10) in string", {"\"a\nb\""}},
        {"unescaped (0) in string", {std::string_view("\"a\0b\"", 5)}},
        {"bad \\u escape: 12", {"\"\\u12"}},
        {"bad \\u escape: ", {"\"\\u"}},
        {"bad \\u escape: 12\"", {"\"\\u12\""}},
        {"bad \\u escape: 12g4", {"\"\\u12g4\""}},
        {"bad \\u escape: +123", {"\"\\ud83d\\u+123\""}},
        {"invalid escape character 'x' (120)", {"\"\\x\""}},
        {"invalid escape character (-61)", {"\"\\\xc3\""}},
        {"leading 0s not permitted in numbers", {"01", "-00"}},
        {"invalid (0) in number", {"-"}},
        {"invalid ']' (93) in number", {"[-]"}},
        {"at least one digit required in fractional part", {"1.", "1.e5"}},
        {"at least one digit required in exponent", {"1e", "1.5E+", "1e-x"}},
    };
    for (const auto& [expected, texts] : cases) {
        for (const std::string_view text : texts) EXPECT_EQ(message(text), expected) << text;
    }
}

TEST(JsonText, Comments) {
    EXPECT_EQ(rewritten("/* a *//**/ { // b\n \"a\" /***/ : [ // c\n1//\n,/*,*/2] } // d", Comments::allowed),
              R"({"a": [1, 2]})");
    const std::vector<std::pair<std::string_view, std::vector<std::string_view>>> cases = {
        {"unexpected end of input after start of comment", {"1 /", "/"}},
        {"unexpected end of input inside multi-line comment", {"1 /*", "/* *", "/*/"}},
        {"malformed comment", {"[1 /x"}},
        {"unexpected end of input", {"// only"}},
    };
    for (const auto& [expected, texts] : cases) {
        for (const std::string_view text : texts) EXPECT_EQ(message(text, Comments::allowed), expected) << text;
    }
}

TEST(JsonText, NestsToADepthOf200) {
    constexpr std::string_view too_deep = "exceeded maximum nesting depth";
    EXPECT_EQ(message(nested(201, "")), "");
    EXPECT_EQ(message(nested(202, "")), too_deep);
    EXPECT_EQ(message(nested(200, "1")), "");
    EXPECT_EQ(message(nested(201, "1")), too_deep);
    EXPECT_EQ(message(nested(200, "{}", "{\"a\":", "}")), "");
    EXPECT_EQ(message(nested(201, "{}", "{\"a\":", "}")), too_deep);
    // Whether the element is there is seen before its depth, the value of a member is not.
    EXPECT_EQ(message(nested(201, "", "[", "")), "unexpected end of input");
    EXPECT_EQ(message(nested(202, "", "[", "")), too_deep);
    EXPECT_EQ(message(nested(201, "", "{\"a\":", "")), too_deep);
    EXPECT_EQ(message(nested(1000000, "", "[", "")), too_deep);
}

TEST(JsonText, SyncJsonNestsDeeperWhereItMust) {
    const auto sync_message = [](const std::string& text) {
        return message_of([&] {
            Arena arena;
            const JsonValue value = parse_sync_json_value(text, arena);
            EXPECT_TRUE(value.is_object());
        });
    };
    constexpr std::string_view too_deep = "exceeded maximum nesting depth";
    EXPECT_EQ(sync_message(R"({"d": )" + nested(300000, "1") + "}"), "");
    EXPECT_EQ(sync_message(R"({"o": {"k": )" + nested(256, "1") + R"(}, "r": 1})"), "");
    EXPECT_EQ(sync_message(R"({"o": {"k": )" + nested(257, "1") + "}}"), too_deep);
    EXPECT_EQ(sync_message(R"({"o": )" + nested(199, "1") + "}"), "");
    EXPECT_EQ(sync_message(R"({"o": )" + nested(260, "1") + "}"), too_deep);
    EXPECT_EQ(sync_message(R"({"x": )" + nested(200, "1") + "}"), too_deep);
    EXPECT_EQ(sync_message(R"({"x": {"d": )" + nested(199, "1") + "}}"), too_deep);
    EXPECT_EQ(sync_message(nested(201, "1")), too_deep);
    EXPECT_EQ(sync_message("@d1:d" + nested(300, "@N", "@l", "x") + "x"), "");
    EXPECT_EQ(sync_message("@d1:a" + nested(200, "@N", "@l", "x") + "x"), too_deep);
    EXPECT_EQ(sync_message("@d1:o@d1:k" + nested(256, "@N", "@l", "x") + "xx"), "");
    EXPECT_EQ(sync_message("@d1:o@d1:k" + nested(257, "@N", "@l", "x") + "xx"), too_deep);
    EXPECT_EQ(sync_message(R"({"o": {"a": 1},})"), "expected '\"' in object, got '}' (125)");
    EXPECT_EQ(sync_message(R"({"o": {"a" 1}})"), "expected ':' in object, got '1' (49)");
    EXPECT_EQ(sync_message("{} {"), "unexpected trailing '{' (123)");
    Arena arena;
    EXPECT_EQ(
        written(parse_sync_json_value(R"({"o":{"b":1,"a":2,"b":3},"d":[],"o":{"z":1,"c":{}},"a":{"o":{}}})", arena)),
        R"({"a": {"o": {}}, "d": [], "o": {"c": {}, "z": 1}})");
}

TEST(JsonText, MembersAreSortedLikeAMap) {
    constexpr std::uint64_t seed = 3;
    SCOPED_TRACE(seed);
    Arena arena;
    RandomJson random(seed, arena);
    for (int round = 0; round < 2000; ++round) {
        std::map<std::string, std::string> model;
        std::string text, expected;
        for (std::size_t i = random.below(40); i > 0; --i) {
            const std::string member = "\"k" + std::to_string(random.below(30)) + "\": ";
            text += ", " + member + (model[member] = std::to_string(i));
        }
        for (const auto& [member, number] : model) expected.append(", ").append(member).append(number);
        if (!text.empty()) text.erase(0, 2), expected.erase(0, 2);
        ASSERT_EQ(rewritten("{" + text + "}"), "{" + expected + "}");
    }
}

// Sorting members takes a few times as long as reading sorted ones, not in proportion to their number.
TEST(JsonText, HugeUnorderedObjects) {
    constexpr int count = 300000;
    constexpr int different = 200000;
    std::string descending = "{";
    std::string ascending = "{";
    for (int i = count; i > 0; --i) {
        descending += "\"" + std::to_string(i % different) + "\":1,";
        ascending += "\"" + std::to_string(2 * count - i) + "\":1,";
    }
    const auto seconds_for = [](std::string& text, std::size_t members) {
        text.back() = '}';
        Arena arena;
        const std::clock_t begin = std::clock();
        EXPECT_EQ(parse_json(text, arena).members().size(), members);
        return static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
    };
    const double sorted = seconds_for(ascending, count);
    EXPECT_LT(seconds_for(descending, different), 50 * sorted);
}

std::string escaped_byte_by_byte(std::string_view text) {
    constexpr std::string_view named = "\"\\\b\f\n\r\t";
    std::string out;
    for (; !text.empty(); text.remove_prefix(1)) {
        const std::size_t name = named.find(text[0]);
        if (text.starts_with("\xe2\x80\xa8") || text.starts_with("\xe2\x80\xa9")) {
            out += text[2] == '\xa8' ? "\\u2028" : "\\u2029";
            text.remove_prefix(2);
        } else if (name != std::string_view::npos) {
            out.append("\\").push_back("\"\\bfnrt"[name]);
        } else if (static_cast<unsigned char>(text[0]) < 0x20) {
            char code[8];
            std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(text[0]));
            out += code;
        } else {
            out += text[0];
        }
    }
    return out;
}

TEST(JsonText, WritesStringsAsAByteWiseWriterWould) {
    constexpr std::uint64_t seed = 9;
    SCOPED_TRACE(seed);
    Arena arena;
    RandomJson random(seed, arena);
    for (int round = 0; round < 20000; ++round) {
        std::string text(random.string());
        if (round < 256) text = std::string(1, static_cast<char>(round));
        const auto exact = exact_copy(text);
        TextBuffer out;
        write_json_escaped(testing_json::view(exact), out);
        ASSERT_EQ(out.view(), escaped_byte_by_byte(text));
    }
}

}  // namespace
}  // namespace libzentadbpp
