#include "data/data_hash.h"

#include <xxhash.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <new>
#include <optional>

#if defined(ZENTADBPP_CRYPTO_NONE)
#include "data/sha256.h"
#else
#include "data/libcrypto_sha256.h"
#endif

namespace libzentadbpp {

namespace {

#if defined(ZENTADBPP_CRYPTO_NONE)
using Sha256 = PortableSha256;
#else
using Sha256 = LibcryptoSha256;
#endif

constexpr std::size_t sha256_digits = 2 * sha256_bytes;
constexpr std::size_t most_fast_digits = 10;
constexpr XXH64_hash_t fast_seed = 123456;

// Computed, not looked up: the compiler then makes all digits at once.
void write_hex(const Sha256Bytes& bytes, std::array<char, sha256_digits>& out) {
    const auto digit = [](int value) { return static_cast<char>(value + (value < 10 ? '0' : 'a' - 10)); };
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        out[2 * i] = digit(bytes[i] >> 4);
        out[2 * i + 1] = digit(bytes[i] & 15);
    }
}

bool is_decimal_digit(char c) { return c >= '0' && c <= '9'; }

struct FreeFastState {
    void operator()(XXH64_state_t* state) const noexcept { XXH64_freeState(state); }
};
using FastState = std::unique_ptr<XXH64_state_t, FreeFastState>;

FastState new_fast_state() {
    FastState state(XXH64_createState());
    if (!state) throw std::bad_alloc();
    return state;
}

using HashText = std::array<char, sha256_digits>;

std::string_view write_sha256(Sha256& sha256, HashText& text) {
    write_hex(sha256.finish(), text);
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
    std::optional<Sha256> sha256;
    HashText text;
};

DataHasher::DataHasher(HashKind kind) : kind_(kind), context_(std::make_unique<Context>()) {
    if (kind == HashKind::sha256) context_->sha256.emplace();
}

DataHasher::~DataHasher() = default;

std::string_view DataHasher::operator()(std::string_view bytes) {
    if (kind_ == HashKind::fast) return write_fast(XXH64(bytes.data(), bytes.size(), fast_seed), context_->text);
    context_->sha256->add(bytes);
    return write_sha256(*context_->sha256, context_->text);
}

struct RunningHash::State {
    // One of the two.
    std::optional<Sha256> sha256;
    FastState fast;
};

RunningHash::RunningHash(HashKind kind) : state_(std::make_unique<State>()) {
    if (kind == HashKind::fast) {
        state_->fast = new_fast_state();
        XXH64_reset(state_->fast.get(), fast_seed);
    } else {
        state_->sha256.emplace();
    }
}

RunningHash::~RunningHash() = default;

RunningHash::RunningHash(const RunningHash& other) : state_(std::make_unique<State>()) {
    if (other.state_->sha256) {
        state_->sha256.emplace(*other.state_->sha256);
    } else {
        state_->fast = new_fast_state();
        XXH64_copyState(state_->fast.get(), other.state_->fast.get());
    }
}

void RunningHash::add(std::string_view bytes) {
    if (state_->sha256) {
        state_->sha256->add(bytes);
    } else {
        XXH64_update(state_->fast.get(), bytes.data(), bytes.size());
    }
}

std::string RunningHash::finish() {
    HashText text;
    return std::string(state_->sha256 ? write_sha256(*state_->sha256, text)
                                      : write_fast(XXH64_digest(state_->fast.get()), text));
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
