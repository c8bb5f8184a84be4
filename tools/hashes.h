#pragma once

#include <openssl/evp.h>
#include <xxhash.h>

#include <array>
#include <new>
#include <string>
#include <string_view>

namespace zentadb {

// The two hashes that the library names contents and places by, as docs/format.md tells.

[[nodiscard]] inline std::string sha256(std::string_view text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    if (EVP_Digest(text.data(), text.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1) throw std::bad_alloc();
    std::string hex;
    for (unsigned int at = 0; at < size; ++at) {
        hex.push_back("0123456789abcdef"[digest[at] >> 4]);
        hex.push_back("0123456789abcdef"[digest[at] & 15]);
    }
    return hex;
}

[[nodiscard]] inline std::string fast_hash(std::string_view text) {
    constexpr XXH64_hash_t seed = 123456;
    return "x" + std::to_string(XXH64(text.data(), text.size(), seed) & 0xffffffffU);
}

}  // namespace zentadb
