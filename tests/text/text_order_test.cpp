#include "text/text_order.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <set>
#include <string>

namespace libzentadbpp {
namespace {

TEST(TextOrder, IsAStableSortOfAnyBytes) {
    // Few different bytes and lengths about those of the chunks make long common beginnings, repetitions, and texts
    // that differ only by zero bytes at their ends.
    const struct {
        std::size_t count;
        std::size_t longest;
        std::string bytes;
    } cases[] = {{0, 1, "a"},
                 {1, 20, "ab"},
                 {60, 20, "ab"},
                 {5000, 3, std::string("\0a\xff", 3)},
                 {5000, 40, std::string("\0a", 2)},
                 {5000, 40, "a"},
                 {20000, 17, "0123456789abcdef"},
                 {50, 90, "0123456789abcdef"},
                 {2000, 90, "0123456789abcdef"}};
    for (const auto& [count, longest, bytes] : cases) {
        const auto seed = static_cast<std::uint32_t>(count * 31 + longest);
        std::mt19937 random(seed);
        std::vector<std::string> texts(count);
        for (std::string& text : texts) {
            text.resize(random() % (longest + 1));
            for (char& c : text) c = bytes[random() % bytes.size()];
        }
        std::vector<std::uint32_t> expected(count);
        std::iota(expected.begin(), expected.end(), 0U);
        std::ranges::stable_sort(expected, {}, [&](std::uint32_t at) -> std::string_view { return texts[at]; });
        const auto [positions, any_equal] =
            text_order_and_equals(std::vector<std::string_view>(texts.begin(), texts.end()));
        EXPECT_EQ(positions, expected) << "seed " << seed;
        EXPECT_EQ(any_equal, std::set(texts.begin(), texts.end()).size() < count) << "seed " << seed;
    }
}

}  // namespace
}  // namespace libzentadbpp
