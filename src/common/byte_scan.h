#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__aarch64__) && defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace libzentadbpp {

// Where a scan over the inside of a string stops.
enum class StopAt : std::uint8_t {
    string_end,  // at '"', '\\' and bytes below 0x20
    escape       // there, and at 0xe2, with which U+2028 and U+2029 begin
};

template <StopAt stop>
[[nodiscard]] constexpr bool stops_at(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte == '"' || byte == '\\' || byte < 0x20 || (stop == StopAt::escape && byte == 0xe2);
}

// The first byte of [begin, end) at which the scan stops, or end. This one runs on every machine.
template <StopAt stop>
[[nodiscard]] const char* find_stop_portable(const char* begin, const char* end) {
    constexpr std::uint64_t ones = 0x0101010101010101;
    constexpr std::uint64_t highs = ones * 0x80;
    const auto has_zero = [](std::uint64_t word) { return (word - ones) & ~word & highs; };
    for (; end - begin >= 8; begin += 8) {
        std::uint64_t word;
        std::memcpy(&word, begin, sizeof word);
        std::uint64_t hits = has_zero(word ^ (ones * '"')) | has_zero(word ^ (ones * '\\'));
        hits |= (word - ones * 0x20) & ~word & highs;
        if constexpr (stop == StopAt::escape) hits |= has_zero(word ^ (ones * 0xe2));
        if (hits != 0) break;
    }
    while (begin != end && !stops_at<stop>(*begin)) ++begin;
    return begin;
}

// The same, as many bytes at a time as the machine takes.
template <StopAt stop>
[[nodiscard]] inline const char* find_stop(const char* begin, const char* end) {
#if defined(__SSE2__)
    const __m128i quote = _mm_set1_epi8('"');
    const __m128i backslash = _mm_set1_epi8('\\');
    const __m128i last_control = _mm_set1_epi8(0x1f);
    for (; end - begin >= 16; begin += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(begin));
        __m128i hits = _mm_or_si128(_mm_cmpeq_epi8(bytes, quote), _mm_cmpeq_epi8(bytes, backslash));
        hits = _mm_or_si128(hits, _mm_cmpeq_epi8(_mm_max_epu8(bytes, last_control), last_control));
        if constexpr (stop == StopAt::escape) {
            hits = _mm_or_si128(hits, _mm_cmpeq_epi8(bytes, _mm_set1_epi8(static_cast<char>(0xe2))));
        }
        const auto mask = static_cast<unsigned>(_mm_movemask_epi8(hits));
        if (mask != 0) return begin + __builtin_ctz(mask);
    }
#elif defined(__aarch64__) && defined(__ARM_NEON)
    for (; end - begin >= 16; begin += 16) {
        const uint8x16_t bytes = vld1q_u8(reinterpret_cast<const std::uint8_t*>(begin));
        uint8x16_t hits = vorrq_u8(vceqq_u8(bytes, vdupq_n_u8('"')), vceqq_u8(bytes, vdupq_n_u8('\\')));
        hits = vorrq_u8(hits, vcltq_u8(bytes, vdupq_n_u8(0x20)));
        if constexpr (stop == StopAt::escape) hits = vorrq_u8(hits, vceqq_u8(bytes, vdupq_n_u8(0xe2)));
        // Narrowing leaves four bits for each byte.
        const uint8x8_t nibbles = vshrn_n_u16(vreinterpretq_u16_u8(hits), 4);
        const std::uint64_t mask = vget_lane_u64(vreinterpret_u64_u8(nibbles), 0);
        if (mask != 0) return begin + (__builtin_ctzll(mask) >> 2);
    }
#endif
    return find_stop_portable<stop>(begin, end);
}

}  // namespace libzentadbpp
