#pragma once

#include <memory>
#include <string_view>

#include "data/sha256.h"

struct evp_md_ctx_st;

namespace libzentadbpp {

// SHA-256 by libcrypto, used like PortableSha256. Fails with std::bad_alloc or std::runtime_error.
class LibcryptoSha256 {
   public:
    LibcryptoSha256();
    ~LibcryptoSha256() = default;
    LibcryptoSha256(const LibcryptoSha256& other);
    LibcryptoSha256& operator=(const LibcryptoSha256&) = delete;

    void add(std::string_view bytes);
    [[nodiscard]] Sha256Bytes finish();

   private:
    struct Free {
        void operator()(evp_md_ctx_st* context) const noexcept;
    };

    void begin();

    std::unique_ptr<evp_md_ctx_st, Free> context_;
    bool has_begun_ = false;
};

}  // namespace libzentadbpp
