#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace libzentadbpp {

// The first eight bytes of a text as a number that orders like them; a shorter text is filled up with zeros.
[[nodiscard]] inline std::uint64_t first_bytes(std::string_view text) {
    const auto load = [&text](std::size_t at, auto number) -> std::uint64_t {
        std::memcpy(&number, text.data() + at, sizeof number);
        if constexpr (std::endian::native == std::endian::big) {
            return number;
        } else if constexpr (sizeof number == 8) {
            return __builtin_bswap64(number);
        } else if constexpr (sizeof number == 4) {
            return __builtin_bswap32(number);
        } else {
            return __builtin_bswap16(number);
        }
    };
    const std::size_t size = text.size();
    if (size >= 8) return load(0, std::uint64_t{});
    // Two overlapping loads.
    if (size >= 4) return load(0, std::uint32_t{}) << 32 | load(size - 4, std::uint32_t{}) << (64 - 8 * size);
    if (size >= 2) return load(0, std::uint16_t{}) << 48 | load(size - 2, std::uint16_t{}) << (64 - 8 * size);
    return size == 0 ? 0 : std::uint64_t{static_cast<unsigned char>(text[0])} << 56;
}

// a < b; most texts differ in their first bytes.
[[nodiscard]] inline bool is_before(std::string_view a, std::string_view b) {
    const std::uint64_t a_bytes = first_bytes(a);
    const std::uint64_t b_bytes = first_bytes(b);
    return a_bytes != b_bytes ? a_bytes < b_bytes : a < b;
}

}  // namespace libzentadbpp
