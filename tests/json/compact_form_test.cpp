#include "json/compact_form.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "json/environment.h"
#include "json/error.h"
#include "json/parser.h"
#include "random_json.h"

namespace libzentadbpp {
namespace {

std::string converted(void (*convert)(std::string_view, TextBuffer&), std::string_view text) {
    const auto exact = testing_json::exact_copy(text);
    TextBuffer out;
    convert(testing_json::view(exact), out);
    return std::string(out.view());
}
std::string standard(std::string_view text) { return converted(compact_to_standard, text); }
std::string compact(std::string_view text) { return converted(standard_to_compact, text); }

std::string message(std::string_view text) {
    try {
        (void)standard(text);
    } catch (const ParseError& failure) {
        return failure.what();
    }
    return "";
}

TEST(CompactForm, BothWays) {
    const struct {
        std::string_view standard, compact;
    } cases[] = {
        {R"({"a": [1, "b", null, true]})", "@d1:a@l@i1x@1:b@N@Txx"},
        {"[false, -123, 999999999]", "@l@F@i-123x@i999999999xx"},
        {R"({"": "", "x": {"y": []}})", "@d0:@0:1:x@d1:y@lxxx"},
        {R"("a\"\\\n\u0001\u2028x:")", "@10:a\"\\\n\x01\xe2\x80\xa8x:"},
        {R"(["a", [[]], {}])", "@l@1:a@l@lxx@dxx"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(standard(c.compact), c.standard);
        EXPECT_EQ(compact(c.standard), c.compact);
    }
    EXPECT_EQ(compact("[0.5, -2147483648, 2147483648, 1e+30, -0]"),
              "@l@f0.5x@i-2147483648x@f2147483648x@f1e+30x@f-0xx");
}

TEST(CompactForm, ReadsNumbersAsTheyAreWritten) {
    const bool shortest = fast_float_enabled();
    EXPECT_EQ(standard("@f0.1x"), shortest ? "0.1" : "0.10000000000000001");
    EXPECT_EQ(standard("@f1.0x"), shortest ? "1.0" : "1");
    EXPECT_EQ(standard("@l@f1e999x@f-1E+999xx"), "[null, null]");
    EXPECT_EQ(standard("@l@i-2147483648x@i2147483647x@i007x@i-0xx"), "[-2147483648, 2147483647, 7, 0]");
    // Members keep their order, and equal keys stay; the reader sorts them.
    EXPECT_EQ(standard("@d1:b@N1:a@T1:b@Fx"), R"({"b": null, "a": true, "b": false})");
    // Minus zero stays a real number.
    EXPECT_EQ(standard("@f-0x"), shortest ? "0.0" : "-0");
    Arena arena;
    EXPECT_EQ(parse_json("@f-0x", arena).kind(), JsonValue::Kind::real);
    // Integers stay integers, however many digits they have.
    for (const char* integer : {"@i-2147483648x", "@i1234567890x"}) {
        EXPECT_EQ(parse_json(integer, arena).kind(), JsonValue::Kind::integer) << integer;
    }
    EXPECT_EQ(parse_json("1234567890", arena).kind(), JsonValue::Kind::real);
}

TEST(CompactForm, Messages) {
    const struct {
        std::string_view message;
        std::vector<std::string_view> texts;
    } cases[] = {
        {"compact form: unexpected end", {"@", "@l", "@d1:a", "@i", "@i1"}},
        {"compact form: unknown type 'q' (113)", {"@q"}},
        {"compact form: expected '@'", {"@lNx", "@d1:aNx"}},
        {"compact form: expected the length of a key", {"@d@N", "@d-1:a@Nx"}},
        {"compact form: expected ':' after the length of a string", {"@1a"}},
        {"compact form: string longer than the text",
         {"@2:a", "@18446744073709551615:a", "@99999999999999999999999:a"}},
        {"compact form: key longer than the text", {"@d9:a@Nx"}},
        {"compact form: expected 'x' after a number", {"@i1y", "@finfx"}},
        {"compact form: malformed integer", {"@ix", "@i1.5x", "@i+1x"}},
        {"compact form: integer out of range", {"@i2147483648x"}},
        {"compact form: malformed number", {"@fx", "@f1.x", "@f01x", "@f1-2x"}},
        {"unexpected trailing 'x' (120)", {"@Nx"}},
        {"unexpected trailing (-61)", {"@lx\xc3"}},
    };
    for (const auto& c : cases) {
        for (const std::string_view text : c.texts) EXPECT_EQ(message(text), c.message) << text;
    }
}

TEST(CompactForm, RefusesNulInStrings) {
    EXPECT_THROW((void)compact(R"(["a\u0000"])"), TextContainsNul);
    EXPECT_THROW((void)compact(R"({"\u0000": 1})"), TextContainsNul);
    EXPECT_EQ(standard(std::string_view("@3:a\0b", 6)), R"("a\u0000b")");
}

TEST(CompactForm, NestsWithoutALimitOfItsOwn) {
    constexpr std::size_t levels = 500000;
    std::string open, close, open_standard;
    for (std::size_t i = 0; i < levels; ++i) open += "@l", close += "x", open_standard += "[";
    const std::string text = open_standard + std::string(levels, ']');
    EXPECT_TRUE(standard(open + close) == text);
    EXPECT_TRUE(compact(text) == open + close);
    Arena arena;
    EXPECT_THROW((void)parse_json(open + close, arena), ParseError);
}

}  // namespace
}  // namespace libzentadbpp
