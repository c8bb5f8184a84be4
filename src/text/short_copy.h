#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace libzentadbpp {

// Copies a text that is short as a rule, without the call of a function if it is, and returns the end of the copy.
inline char* copy_short(std::string_view text, char* out) {
    // Two loads and stores, which overlap if the text is not twice as long.
    const auto copy_both_ends = [&](auto word) {
        auto last = word;
        std::memcpy(&word, text.data(), sizeof word);
        std::memcpy(&last, text.data() + text.size() - sizeof word, sizeof word);
        std::memcpy(out, &word, sizeof word);
        std::memcpy(out + text.size() - sizeof word, &last, sizeof word);
        return out + text.size();
    };
    if (text.size() > 16) return std::ranges::copy(text, out).out;
    if (text.size() >= 8) return copy_both_ends(std::uint64_t{});
    if (text.size() >= 4) return copy_both_ends(std::uint32_t{});
    if (text.size() >= 2) return copy_both_ends(std::uint16_t{});
    if (!text.empty()) *out++ = text.front();
    return out;
}

}  // namespace libzentadbpp
