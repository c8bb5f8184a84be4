#pragma once

#include <bit>
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
    escape,      // there, and at 0xe2, with which U+2028 and U+2029 begin
    name         // at all but digits, letters and a few characters more; at '"', '_', '-' and whatever ends a string
};

template <StopAt stop>
[[nodiscard]] constexpr bool stops_at(char c) {
    const auto byte = static_cast<unsigned char>(c);
    if (stop == StopAt::name) return byte < '0' || byte >= 0x80 || (byte | 3) == '_';
    return byte == '"' || byte == '\\' || byte < 0x20 || (stop == StopAt::escape && byte == 0xe2);
}

// The first byte of [begin, end) at which the scan stops, or end. This one runs on every machine.
template <StopAt stop>
[[nodiscard]] const char* find_stop_portable(const char* begin, const char* end) {
    constexpr std::uint64_t ones = 0x0101010101010101;
    constexpr std::uint64_t highs = ones * 0x80;
    const auto has_zero = [](std::uint64_t word) { return (word - ones) & ~word & highs; };
    const auto hits_in = [has_zero](std::uint64_t word) {
        const auto has_less = [word](std::uint64_t than) { return (word - ones * than) & ~word & highs; };
        if constexpr (stop == StopAt::name) {
            return has_less('0') | has_zero((word | (ones * 3)) ^ (ones * '_')) | (word & highs);
        }
        std::uint64_t hits = has_less(0x20) | has_zero(word ^ (ones * '"')) | has_zero(word ^ (ones * '\\'));
        if constexpr (stop == StopAt::escape) hits |= has_zero(word ^ (ones * 0xe2));
        return hits;
    };
    const auto load = [](auto word, const char* from) {
        std::memcpy(&word, from, sizeof word);
        return word;
    };
    // The lowest hit of a word is exact. The last word may overlap the one before it, in which there was none.
    if (std::endian::native == std::endian::little && end - begin >= 8) {
        for (; end - begin > 8; begin += 8) {
            if (const std::uint64_t hits = hits_in(load(std::uint64_t{}, begin))) {
                return begin + __builtin_ctzll(hits) / 8;
            }
        }
        const std::uint64_t hits = hits_in(load(std::uint64_t{}, end - 8));
        return hits == 0 ? end : end - 8 + __builtin_ctzll(hits) / 8;
    }
    if (std::endian::native == std::endian::little && end - begin >= 4) {
        const std::uint64_t first = load(std::uint32_t{}, begin);
        const std::uint64_t last = load(std::uint32_t{}, end - 4);
        const std::uint64_t hits = hits_in(last << 32 | first);
        if (hits == 0) return end;
        const int at = __builtin_ctzll(hits) / 8;
        return at < 4 ? begin + at : end - (8 - at);
    }
    while (begin != end && !stops_at<stop>(*begin)) ++begin;
    return begin;
}

#if defined(__SSE2__)
// A bit for each of sixteen bytes.
template <StopAt stop>
[[nodiscard]] inline unsigned stops_in_sixteen(const char* begin) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(begin));
    if constexpr (stop == StopAt::name) {
        const __m128i low = _mm_cmplt_epi8(bytes, _mm_set1_epi8('0'));  // signed, so this is from 0x80 too
        const __m128i mark = _mm_cmpeq_epi8(_mm_or_si128(bytes, _mm_set1_epi8(3)), _mm_set1_epi8('_'));
        return static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(low, mark)));
    }
    const __m128i last_control = _mm_set1_epi8(0x1f);
    __m128i hits = _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\')));
    hits = _mm_or_si128(hits, _mm_cmpeq_epi8(_mm_max_epu8(bytes, last_control), last_control));
    if constexpr (stop == StopAt::escape) {
        hits = _mm_or_si128(hits, _mm_cmpeq_epi8(bytes, _mm_set1_epi8(static_cast<char>(0xe2))));
    }
    return static_cast<unsigned>(_mm_movemask_epi8(hits));
}
#elif defined(__aarch64__) && defined(__ARM_NEON)
// A byte of ones for each of sixteen bytes.
template <StopAt stop>
[[nodiscard]] inline uint8x16_t stops_in_sixteen(const char* begin) {
    const uint8x16_t bytes = vld1q_u8(reinterpret_cast<const std::uint8_t*>(begin));
    if constexpr (stop == StopAt::name) {
        const uint8x16_t low = vcltq_s8(vreinterpretq_s8_u8(bytes), vdupq_n_s8('0'));  // signed, so from 0x80 too
        return vorrq_u8(low, vceqq_u8(vorrq_u8(bytes, vdupq_n_u8(3)), vdupq_n_u8('_')));
    }
    uint8x16_t hits = vorrq_u8(vceqq_u8(bytes, vdupq_n_u8('"')), vceqq_u8(bytes, vdupq_n_u8('\\')));
    hits = vorrq_u8(hits, vcltq_u8(bytes, vdupq_n_u8(0x20)));
    if constexpr (stop == StopAt::escape) hits = vorrq_u8(hits, vceqq_u8(bytes, vdupq_n_u8(0xe2)));
    return hits;
}
#endif

// The same, as many bytes at a time as the machine takes.
template <StopAt stop>
[[nodiscard]] inline const char* find_stop(const char* begin, const char* end) {
#if defined(__SSE2__)
    for (; end - begin >= 16; begin += 16) {
        const unsigned hits = stops_in_sixteen<stop>(begin);
        if (hits != 0) return begin + __builtin_ctz(hits);
    }
#elif defined(__aarch64__) && defined(__ARM_NEON)
    for (; end - begin >= 16; begin += 16) {
        // Narrowing leaves four bits for each byte.
        const uint8x8_t nibbles = vshrn_n_u16(vreinterpretq_u16_u8(stops_in_sixteen<stop>(begin)), 4);
        const std::uint64_t hits = vget_lane_u64(vreinterpret_u64_u8(nibbles), 0);
        if (hits != 0) return begin + (__builtin_ctzll(hits) >> 2);
    }
#endif
    return find_stop_portable<stop>(begin, end);
}

// How many bytes stop_mask looks at.
inline constexpr std::size_t mask_bytes = 64;

// Of the next mask_bytes bytes a bit for each at which the scan stops, the first one lowest.
template <StopAt stop>
[[nodiscard]] std::uint64_t stop_mask_portable(const char* begin) {
    static_assert(stop != StopAt::name);
    constexpr std::uint64_t ones = 0x0101010101010101;
    constexpr std::uint64_t lows = ones * 0x7f;
    const auto is_zero = [](std::uint64_t word) { return ~(((word & lows) + lows) | word | lows); };
    std::uint64_t mask = 0;
    for (std::size_t at = 0; at < mask_bytes; at += 8) {
        std::uint64_t word = 0;
        for (std::size_t byte = 0; byte < 8; ++byte) {
            word |= std::uint64_t{static_cast<unsigned char>(begin[at + byte])} << 8 * byte;
        }
        std::uint64_t hits =
            is_zero(word ^ (ones * '"')) | is_zero(word ^ (ones * '\\')) | is_zero(word & (ones * 0xe0));
        if constexpr (stop == StopAt::escape) hits |= is_zero(word ^ (ones * 0xe2));
        mask |= ((hits >> 7) * 0x0102040810204080 >> 56) << at;
    }
    return mask;
}

template <StopAt stop>
[[nodiscard]] inline std::uint64_t stop_mask(const char* begin) {
    static_assert(stop != StopAt::name);
#if defined(__SSE2__)
    std::uint64_t mask = 0;
    for (std::size_t at = 0; at < mask_bytes; at += 16) {
        mask |= std::uint64_t{stops_in_sixteen<stop>(begin + at)} << at;
    }
    return mask;
#elif defined(__aarch64__) && defined(__ARM_NEON)
    constexpr std::uint8_t weights[16] = {1, 2, 4, 8, 16, 32, 64, 128, 1, 2, 4, 8, 16, 32, 64, 128};
    const uint8x16_t weight = vld1q_u8(weights);
    uint8x16_t bits[4];
    for (std::size_t part = 0; part < 4; ++part)
        bits[part] = vandq_u8(stops_in_sixteen<stop>(begin + 16 * part), weight);
    const uint8x16_t eighths = vpaddq_u8(vpaddq_u8(bits[0], bits[1]), vpaddq_u8(bits[2], bits[3]));
    return vgetq_lane_u64(vreinterpretq_u64_u8(vpaddq_u8(eighths, eighths)), 0);
#else
    return stop_mask_portable<stop>(begin);
#endif
}

}  // namespace libzentadbpp
