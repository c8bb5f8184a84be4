// The part of OpenSSL that zentadbpp_verify.hpp uses, for builds without it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "data/sha256.h"

inline constexpr unsigned EVP_MAX_MD_SIZE = libzentadbpp::sha256_bytes;

inline const void* EVP_sha256() { return nullptr; }

inline int EVP_Digest(const char* text, std::size_t size, unsigned char* digest, unsigned* digest_size, const void*,
                      const void*) {
    libzentadbpp::PortableSha256 hash;
    hash.add(std::string_view(text, size));
    const libzentadbpp::Sha256Bytes made = hash.finish();
    std::copy(made.begin(), made.end(), digest);
    *digest_size = EVP_MAX_MD_SIZE;
    return 1;
}
