#include "data/data_hash.h"

#include <openssl/evp.h>
#include <xxhash.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <new>
#include <stdexcept>

namespace libzentadbpp {

namespace {

constexpr std::size_t sha256_bytes = 32;
constexpr std::size_t sha256_digits = 2 * sha256_bytes;
constexpr std::size_t most_fast_digits = 10;
constexpr XXH64_hash_t fast_seed = 123456;

// Looking the algorithm up costs more than hashing a small document, so it is done once. Never freed: it is one
// reference into libcrypto's own store, and a thread may still hash while the process ends.
const EVP_MD& sha256_algorithm() {
    static const EVP_MD* const algorithm = [] {
        const EVP_MD* found = EVP_MD_fetch(nullptr, "SHA256", nullptr);
        if (found == nullptr) throw std::runtime_error("SHA-256 is not available");
        return found;
    }();
    return *algorithm;
}

// Computed, not looked up: the compiler then makes all digits at once.
void write_hex(const std::array<unsigned char, sha256_bytes>& bytes, std::array<char, sha256_digits>& out) {
    const auto digit = [](int value) { return static_cast<char>(value + (value < 10 ? '0' : 'a' - 10)); };
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        out[2 * i] = digit(bytes[i] >> 4);
        out[2 * i + 1] = digit(bytes[i] & 15);
    }
}

bool is_decimal_digit(char c) { return c >= '0' && c <= '9'; }
bool is_hex_digit(char c) { return is_decimal_digit(c) || (c >= 'a' && c <= 'f'); }

struct FreeDigest {
    void operator()(EVP_MD_CTX* digest) const noexcept { EVP_MD_CTX_free(digest); }
};

}  // namespace

struct DataHasher::Context {
    std::unique_ptr<EVP_MD_CTX, FreeDigest> digest;  // only for SHA-256
    std::array<char, sha256_digits> text;

    std::string_view sha256(std::string_view bytes) {
        std::array<unsigned char, sha256_bytes> result;
        if (EVP_DigestInit_ex2(digest.get(), &sha256_algorithm(), nullptr) != 1 ||
            EVP_DigestUpdate(digest.get(), bytes.data(), bytes.size()) != 1 ||
            EVP_DigestFinal_ex(digest.get(), result.data(), nullptr) != 1) {
            throw std::runtime_error("SHA-256 failed");
        }
        write_hex(result, text);
        return {text.data(), sha256_digits};
    }

    std::string_view fast(std::string_view bytes) {
        const auto low_half = static_cast<std::uint32_t>(XXH64(bytes.data(), bytes.size(), fast_seed));
        text[0] = 'x';
        const char* end = std::to_chars(text.data() + 1, text.data() + 1 + most_fast_digits, low_half).ptr;
        return {text.data(), static_cast<std::size_t>(end - text.data())};
    }
};

DataHasher::DataHasher(HashKind kind) : kind_(kind), context_(std::make_unique<Context>()) {
    if (kind == HashKind::fast) return;
    context_->digest.reset(EVP_MD_CTX_new());
    if (!context_->digest) throw std::bad_alloc();
}

DataHasher::~DataHasher() = default;

std::string_view DataHasher::operator()(std::string_view bytes) {
    return kind_ == HashKind::fast ? context_->fast(bytes) : context_->sha256(bytes);
}

bool is_hash_of_kind(std::string_view hash, HashKind kind) {
    if (kind == HashKind::sha256) {
        return hash.size() == sha256_digits && std::all_of(hash.begin(), hash.end(), is_hex_digit);
    }
    return hash.size() >= 2 && hash.size() <= 1 + most_fast_digits && hash.front() == 'x' &&
           std::all_of(hash.begin() + 1, hash.end(), is_decimal_digit);
}

}  // namespace libzentadbpp
