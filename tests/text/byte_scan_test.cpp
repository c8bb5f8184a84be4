#include "text/byte_scan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "text/short_text.h"

namespace libzentadbpp {
namespace {

template <StopAt stop>
void expect_agree(const std::vector<char>& text) {
    const char* const begin = text.data();
    const char* const end = begin + text.size();
    const char* expected = std::find_if(begin, end, [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        if (stop == StopAt::name) return byte < 48 || byte > 127 || (byte >= 92 && byte <= 95);
        return byte < 32 || byte == 34 || byte == 92 || (stop == StopAt::escape && byte == 226);
    });
    ASSERT_EQ(find_stop<stop>(begin, end), expected);
    ASSERT_EQ(find_stop_portable<stop>(begin, end), expected);
    if constexpr (stop != StopAt::name) {
        ASSERT_EQ(has_stop<stop>({begin, end}), expected != end);
        if (text.size() != mask_bytes) return;
        std::uint64_t stops = 0;
        for (std::size_t at = 0; at < mask_bytes; ++at) stops |= std::uint64_t{stops_at<stop>(begin[at])} << at;
        ASSERT_EQ(stop_mask<stop>(begin), stops);
        ASSERT_EQ(stop_mask_portable<stop>(begin), stops);
    }
}

TEST(ByteScan, FindsTheFirst) {
    const auto expect_all_agree = [](const std::vector<char>& text) {
        expect_agree<StopAt::string_end>(text);
        expect_agree<StopAt::escape>(text);
        expect_agree<StopAt::name>(text);
    };
    for (std::size_t at = 0; at < mask_bytes; ++at) {
        for (int byte = 0; byte < 256; ++byte) {
            std::vector<char> text(mask_bytes, 'a');
            text[at] = static_cast<char>(byte);
            expect_all_agree(text);
        }
    }
    constexpr unsigned seed = 20;
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (int round = 0; round < 20000; ++round) {
        std::vector<char> text(round % 2 == 0 ? mask_bytes : random() % 64);
        const unsigned lowest = random() % 2 == 0 ? 0 : 0x20;
        for (char& c : text) c = static_cast<char>(lowest + random() % (256 - lowest));
        expect_all_agree(text);
    }
}

TEST(ShortText, IsCopied) {
    const std::string text = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    for (std::size_t size = 0; size <= text.size(); ++size) {
        std::string out(text.size(), '.');
        char* const end = copy_short(std::string_view(text).substr(0, size), out.data());
        EXPECT_EQ(end, out.data() + size);
        EXPECT_EQ(out, text.substr(0, size) + std::string(text.size() - size, '.'));
    }
}

}  // namespace
}  // namespace libzentadbpp
