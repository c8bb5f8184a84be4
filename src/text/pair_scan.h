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

// Two bytes that follow one another: the first, and one of two.
struct BytePair {
    char first;
    char second;
    char or_second;
};

// The first place in [begin, end) where such a pair is, or end. This one runs on every machine.
[[nodiscard]] inline const char* find_pair_portable(const char* begin, const char* end, BytePair pair) {
    while (end - begin >= 2) {
        const void* found = std::memchr(begin, pair.first, static_cast<std::size_t>(end - begin - 1));
        if (found == nullptr) break;
        begin = static_cast<const char*>(found);
        if (begin[1] == pair.second || begin[1] == pair.or_second) return begin;
        ++begin;
    }
    return end;
}

// The same, many bytes at a time: if the first byte is frequent, a search for it alone would stop again and again.
[[nodiscard]] inline const char* find_pair(const char* begin, const char* end, BytePair pair) {
#if defined(__SSE2__)
    const __m128i firsts = _mm_set1_epi8(pair.first);
    const __m128i seconds = _mm_set1_epi8(pair.second);
    const __m128i or_seconds = _mm_set1_epi8(pair.or_second);
    for (; end - begin >= 17; begin += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(begin));
        const __m128i following = _mm_loadu_si128(reinterpret_cast<const __m128i*>(begin + 1));
        const __m128i follows = _mm_or_si128(_mm_cmpeq_epi8(following, seconds), _mm_cmpeq_epi8(following, or_seconds));
        const __m128i hits = _mm_and_si128(_mm_cmpeq_epi8(bytes, firsts), follows);
        const auto mask = static_cast<unsigned>(_mm_movemask_epi8(hits));
        if (mask != 0) return begin + __builtin_ctz(mask);
    }
#elif defined(__aarch64__) && defined(__ARM_NEON)
    for (; end - begin >= 17; begin += 16) {
        const auto* at = reinterpret_cast<const unsigned char*>(begin);
        const auto equal = [](uint8x16_t bytes, char byte) {
            return vceqq_u8(bytes, vdupq_n_u8(static_cast<unsigned char>(byte)));
        };
        const uint8x16_t following = vld1q_u8(at + 1);
        const uint8x16_t hits = vandq_u8(equal(vld1q_u8(at), pair.first),
                                         vorrq_u8(equal(following, pair.second), equal(following, pair.or_second)));
        const uint8x8_t nibbles = vshrn_n_u16(vreinterpretq_u16_u8(hits), 4);  // four bits for each byte
        const std::uint64_t mask = vget_lane_u64(vreinterpret_u64_u8(nibbles), 0);
        if (mask != 0) return begin + (__builtin_ctzll(mask) >> 2);
    }
#endif
    return find_pair_portable(begin, end, pair);
}

}  // namespace libzentadbpp
