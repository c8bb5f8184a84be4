#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "text/byte_scan.h"

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
    if (text.size() > 32) {
        std::memcpy(out, text.data(), text.size());
        return out + text.size();
    }
    if (text.size() >= 16) return copy_both_ends(std::array<std::uint64_t, 2>{});
    if (text.size() >= 8) return copy_both_ends(std::uint64_t{});
    if (text.size() >= 4) return copy_both_ends(std::uint32_t{});
    if (text.size() >= 2) return copy_both_ends(std::uint16_t{});
    if (!text.empty()) *out++ = text.front();
    return out;
}

// Whether the scan stops anywhere in a text that is short as a rule.
template <StopAt stop>
[[nodiscard]] inline bool has_stop(std::string_view text) {
    static_assert(stop != StopAt::name);
    const char* const end = text.data() + text.size();
    if (text.size() > 16 || text.size() < 4) return find_stop<stop>(text.data(), end) != end;
    // As above. A borrow may report a byte that is not a stop, but only beside one that is.
    constexpr std::uint64_t ones = 0x0101010101010101;
    constexpr std::uint64_t highs = ones * 0x80;
    const auto is_in = [](std::uint64_t word) {
        const auto has_zero = [](std::uint64_t bytes) { return (bytes - ones) & ~bytes & highs; };
        std::uint64_t hits = (word - ones * 0x20) & ~word & highs;
        hits |= has_zero(word ^ (ones * '"')) | has_zero(word ^ (ones * '\\'));
        if constexpr (stop == StopAt::escape) hits |= has_zero(word ^ (ones * 0xe2));
        return hits != 0;
    };
    const auto load = [](auto word, const char* from) {
        std::memcpy(&word, from, sizeof word);
        return std::uint64_t{word};
    };
    if (text.size() >= 8) {
        return is_in(load(std::uint64_t{}, text.data())) || is_in(load(std::uint64_t{}, end - 8));
    }
    return is_in(load(std::uint32_t{}, text.data()) << 32 | load(std::uint32_t{}, end - 4));
}

}  // namespace libzentadbpp
