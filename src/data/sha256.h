#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace libzentadbpp {

inline constexpr std::size_t sha256_bytes = 32;
using Sha256Bytes = std::array<unsigned char, sha256_bytes>;

// SHA-256 (FIPS 180-4) in plain C++, for builds without libcrypto, which is several times faster on processors with
// SHA instructions. A copy continues from the state of the original.
class PortableSha256 {
   public:
    void add(std::string_view bytes);
    // The digest of all that was added. The object is as new afterwards.
    [[nodiscard]] Sha256Bytes finish();

   private:
    static constexpr std::size_t block_bytes = 64;
    static constexpr std::array<std::uint32_t, 8> initial = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                                             0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

    void take_block(const unsigned char* block);

    std::array<std::uint32_t, 8> state_ = initial;
    std::array<unsigned char, block_bytes> pending_{};  // the bytes since the last whole block
    std::uint64_t size_ = 0;
};

}  // namespace libzentadbpp
