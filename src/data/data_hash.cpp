#include "data/data_hash.h"

#include <openssl/crypto.h>
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

// Computed, not looked up: the compiler then makes all digits at once.
void write_hex(const std::array<unsigned char, sha256_bytes>& bytes, std::array<char, sha256_digits>& out) {
    const auto digit = [](int value) { return static_cast<char>(value + (value < 10 ? '0' : 'a' - 10)); };
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        out[2 * i] = digit(bytes[i] >> 4);
        out[2 * i + 1] = digit(bytes[i] & 15);
    }
}

bool is_decimal_digit(char c) { return c >= '0' && c <= '9'; }
struct FreeDigest {
    void operator()(EVP_MD_CTX* digest) const noexcept { EVP_MD_CTX_free(digest); }
};
using Digest = std::unique_ptr<EVP_MD_CTX, FreeDigest>;

struct FreeFastState {
    void operator()(XXH64_state_t* state) const noexcept { XXH64_freeState(state); }
};
using FastState = std::unique_ptr<XXH64_state_t, FreeFastState>;

FastState new_fast_state() {
    FastState state(XXH64_createState());
    if (!state) throw std::bad_alloc();
    return state;
}

Digest new_digest() {
    Digest digest(EVP_MD_CTX_new());
    if (!digest) throw std::bad_alloc();
    return digest;
}

void require(int done) {
    if (done != 1) throw std::runtime_error("SHA-256 failed");
}

using HashText = std::array<char, sha256_digits>;

std::string_view write_sha256(EVP_MD_CTX* digest, HashText& text) {
    std::array<unsigned char, sha256_bytes> result;
    require(EVP_DigestFinal_ex(digest, result.data(), nullptr));
    write_hex(result, text);
    return {text.data(), sha256_digits};
}

std::string_view write_fast(XXH64_hash_t hash, HashText& text) {
    text[0] = 'x';
    const auto low_half = static_cast<std::uint32_t>(hash);
    const char* end = std::to_chars(text.data() + 1, text.data() + 1 + most_fast_digits, low_half).ptr;
    return {text.data(), static_cast<std::size_t>(end - text.data())};
}

}  // namespace

struct DataHasher::Context {
    Digest digest;  // only for SHA-256
    HashText text;
};

DataHasher::DataHasher(HashKind kind) : kind_(kind), context_(std::make_unique<Context>()) {
    if (kind == HashKind::sha256) context_->digest = new_digest();
}

DataHasher::~DataHasher() = default;

std::string_view DataHasher::operator()(std::string_view bytes) {
    if (kind_ == HashKind::fast) return write_fast(XXH64(bytes.data(), bytes.size(), fast_seed), context_->text);
    EVP_MD_CTX* const digest = context_->digest.get();
    require(EVP_DigestInit_ex2(digest, &sha256_algorithm(), nullptr));
    require(EVP_DigestUpdate(digest, bytes.data(), bytes.size()));
    return write_sha256(digest, context_->text);
}

struct RunningHash::State {
    // One of the two.
    Digest sha256;
    FastState fast;
};

RunningHash::RunningHash(HashKind kind) : state_(std::make_unique<State>()) {
    if (kind == HashKind::fast) {
        state_->fast = new_fast_state();
        XXH64_reset(state_->fast.get(), fast_seed);
    } else {
        state_->sha256 = new_digest();
        require(EVP_DigestInit_ex2(state_->sha256.get(), &sha256_algorithm(), nullptr));
    }
}

RunningHash::~RunningHash() = default;

RunningHash::RunningHash(const RunningHash& other) : state_(std::make_unique<State>()) {
    if (other.state_->sha256 == nullptr) {
        state_->fast = new_fast_state();
        XXH64_copyState(state_->fast.get(), other.state_->fast.get());
    } else {
        state_->sha256 = new_digest();
        require(EVP_MD_CTX_copy_ex(state_->sha256.get(), other.state_->sha256.get()));
    }
}

void RunningHash::add(std::string_view bytes) {
    if (state_->sha256 == nullptr) {
        XXH64_update(state_->fast.get(), bytes.data(), bytes.size());
    } else {
        require(EVP_DigestUpdate(state_->sha256.get(), bytes.data(), bytes.size()));
    }
}

std::string RunningHash::finish() {
    HashText text;
    return std::string(state_->sha256 == nullptr ? write_fast(XXH64_digest(state_->fast.get()), text)
                                                 : write_sha256(state_->sha256.get(), text));
}

bool is_hash_of_kind(std::string_view hash, HashKind kind) {
    if (kind == HashKind::sha256) {
        if (hash.size() != sha256_digits) return false;
        // Every digit is looked at, so that the compiler looks at many at a time.
        unsigned char others = 0;
        for (std::size_t at = 0; at < sha256_digits; ++at) {
            const auto digit = static_cast<unsigned char>(hash[at] - '0');
            const auto letter = static_cast<unsigned char>(hash[at] - 'a');
            others |= static_cast<unsigned char>(digit > 9 && letter > 5 ? 1 : 0);
        }
        return others == 0;
    }
    return hash.size() >= 2 && hash.size() <= 1 + most_fast_digits && hash.front() == 'x' &&
           std::all_of(hash.begin() + 1, hash.end(), is_decimal_digit);
}

}  // namespace libzentadbpp
