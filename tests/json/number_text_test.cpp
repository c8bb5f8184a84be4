#include "json/number_text.h"

#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "json/number_token.h"
#include "random_json.h"

namespace libzentadbpp {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

template <class Number>
std::string written(char* (*write)(Number, char*), Number value) {
    char digits[longest_number];
    return {digits, write(value, digits)};
}

TEST(NumberText, Integers) {
    EXPECT_EQ(written(write_integer, std::int64_t{0}), "0");
    EXPECT_EQ(written(write_integer, std::int64_t{-2147483648}), "-2147483648");
    EXPECT_EQ(written(write_integer, std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
}

TEST(NumberText, RealNumbersInBothForms) {
    const struct {
        double value;
        const char *digits_17, *shortest;
    } cases[] = {
        {1.0, "1", "1.0"},
        {0.1, "0.10000000000000001", "0.1"},
        {0.0, "0", "0.0"},
        {-0.0, "-0", "0.0"},
        {-12.34, "-12.34", "-12.34"},
        {0.000001, "9.9999999999999995e-07", "0.000001"},
        {0.0000012, "1.1999999999999999e-06", "0.0000012"},
        {1e-7, "9.9999999999999995e-08", "1e-7"},
        {1e17, "1e+17", "100000000000000000.0"},
        {1e20, "1e+20", "100000000000000000000.0"},
        {1e21, "1e+21", "1e21"},
        {123456789012345680000.0, "1.2345678901234568e+20", "123456789012345680000.0"},
        {-1e100, "-1e+100", "-1e100"},
        {5e-324, "4.9406564584124654e-324", "5e-324"},
        {2.2250738585072014e-308, "2.2250738585072014e-308", "2.2250738585072014e-308"},
        {std::numeric_limits<double>::max(), "1.7976931348623157e+308", "1.7976931348623157e308"},
        {9007199254740993.0, "9007199254740992", "9007199254740992.0"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(written(write_real_17, c.value), c.digits_17);
        EXPECT_EQ(written(write_real_shortest, c.value), c.shortest);
    }
}

std::size_t digits_in(const std::string& number) {
    std::string digits = number.substr(0, number.find('e'));
    std::erase_if(digits, [](char c) { return c < '0' || c > '9'; });
    const std::size_t first = digits.find_first_not_of('0');
    return first == std::string::npos ? 0 : digits.find_last_not_of('0') - first + 1;
}

TEST(NumberText, RandomRealNumbersComeBack) {
    constexpr std::uint64_t seed = 71;
    SCOPED_TRACE(seed);
    Arena arena;
    testing_json::RandomJson random(seed, arena);
    int longer_than_needed = 0;
    constexpr int rounds = 100000;
    for (int round = 0; round < rounds; ++round) {
        const double value = random.real();
        char formatted[40];
        std::snprintf(formatted, sizeof formatted, "%.17g", value);
        ASSERT_EQ(written(write_real_17, value), formatted);
        ASSERT_EQ(read_real(formatted), value) << formatted;

        const std::string shortest = written(write_real_shortest, value);
        ASSERT_EQ(read_real(shortest), value) << shortest;
        ASSERT_NE(shortest.find_first_of(".e"), std::string::npos) << shortest;
        const NumberToken token = scan_number(shortest.data(), shortest.data() + shortest.size());
        ASSERT_TRUE(token.fault == NumberToken::Fault::none && token.text == shortest) << shortest;
        char fewest[40];
        char* const end = std::to_chars(fewest, fewest + sizeof fewest, value, std::chars_format::scientific).ptr;
        const std::size_t needed = digits_in(std::string(fewest, end));
        ASSERT_GE(digits_in(shortest), needed) << shortest;
        if (digits_in(shortest) > needed) ++longer_than_needed;
    }
    EXPECT_LT(longer_than_needed, rounds / 100);
    EXPECT_GT(longer_than_needed, 0);  // no other algorithm stands in its place
}

TEST(NumberText, EveryPowerOfTenAndTwo) {
    for (int exponent = -323; exponent <= 308; ++exponent) {
        const std::string text = "1e" + std::to_string(exponent);
        const double value = read_real(text);
        ASSERT_EQ(value, std::strtod(text.c_str(), nullptr));
        for (const double near : {std::nextafter(value, 0.0), value, std::nextafter(value, 1e308)}) {
            char formatted[40];
            std::snprintf(formatted, sizeof formatted, "%.17g", near);
            ASSERT_EQ(written(write_real_17, near), formatted);
        }
        ASSERT_EQ(read_real(written(write_real_shortest, value)), value) << text;
    }
    for (int exponent = -1074; exponent <= 1023; ++exponent) {
        const double value = std::ldexp(1.0, exponent);
        ASSERT_EQ(read_real(written(write_real_shortest, value)), value);
        ASSERT_EQ(read_real(written(write_real_shortest, std::nextafter(value, 0.0))), std::nextafter(value, 0.0));
    }
}

TEST(NumberText, ReadsWhatNoDoubleCanHold) {
    const std::string many_zeros(400, '0');
    const std::vector<std::pair<double, std::vector<std::string>>> cases = {
        {infinity,
         {"1e999", "1E+400", "1" + many_zeros, "1e99999999999999999999999", "1e9223372036854775807",
          "1.7976931348623159e308"}},
        {-infinity, {"-1e999", "-0." + many_zeros + "1e800"}},
        {1.0, {"1" + many_zeros + "e-400", "0." + many_zeros + "1e401"}},
        {0.0, {"0." + many_zeros + "1", "1e-999", "1e-99999999999999999999999", "1e-9223372036854775808", "0e999"}},
        {5e-324, {"4.9e-324"}},
        {std::numeric_limits<double>::max(), {"1.7976931348623157e308"}},
    };
    for (const auto& [value, texts] : cases) {
        for (const std::string& text : texts) EXPECT_EQ(read_real(text), value) << text;
    }
    EXPECT_TRUE(std::signbit(read_real("-1e-999")));
    EXPECT_TRUE(std::signbit(read_real("-0.0")));
}

}  // namespace
}  // namespace libzentadbpp
