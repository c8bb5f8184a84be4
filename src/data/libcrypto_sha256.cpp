#include "data/libcrypto_sha256.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <new>
#include <stdexcept>

namespace libzentadbpp {

namespace {

// Looking the algorithm up costs more than hashing a small document, so it is done once. In a context of its own, as
// that of the process stays broken for good, and is used all the same, where there is no memory to set it up. Never
// freed: a thread may still hash while the process ends.
const EVP_MD& sha256_algorithm() {
    static const EVP_MD* const algorithm = [] {
        std::unique_ptr<OSSL_LIB_CTX, decltype(&OSSL_LIB_CTX_free)> context(OSSL_LIB_CTX_new(), OSSL_LIB_CTX_free);
        if (!context) throw std::bad_alloc();
        const EVP_MD* found = EVP_MD_fetch(context.get(), "SHA256", nullptr);
        if (found == nullptr) throw std::runtime_error("SHA-256 is not available");
        (void)context.release();
        return found;
    }();
    return *algorithm;
}

void require(int done) {
    if (done != 1) throw std::runtime_error("SHA-256 failed");
}

}  // namespace

void LibcryptoSha256::Free::operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }

LibcryptoSha256::LibcryptoSha256() : context_(EVP_MD_CTX_new()) {
    if (!context_) throw std::bad_alloc();
}

LibcryptoSha256::LibcryptoSha256(const LibcryptoSha256& other) : LibcryptoSha256() {
    if (!other.has_begun_) return;
    require(EVP_MD_CTX_copy_ex(context_.get(), other.context_.get()));
    has_begun_ = true;
}

void LibcryptoSha256::begin() {
    if (has_begun_) return;
    require(EVP_DigestInit_ex2(context_.get(), &sha256_algorithm(), nullptr));
    has_begun_ = true;
}

void LibcryptoSha256::add(std::string_view bytes) {
    begin();
    require(EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()));
}

Sha256Bytes LibcryptoSha256::finish() {
    begin();
    Sha256Bytes digest;
    has_begun_ = false;
    require(EVP_DigestFinal_ex(context_.get(), digest.data(), nullptr));
    return digest;
}

}  // namespace libzentadbpp
