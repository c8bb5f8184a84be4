// SHA-256 for the package's `verify`.
#include <algorithm>
#include <cstddef>
#include <string_view>

#include "data/sha256.h"

extern "C" [[gnu::visibility("default")]] void zentadbpp_sha256(const char* bytes, std::size_t size,
                                                                unsigned char* digest) {
    libzentadbpp::PortableSha256 hash;
    hash.add(std::string_view(bytes, size));
    const libzentadbpp::Sha256Bytes made = hash.finish();
    std::copy(made.begin(), made.end(), digest);
}
