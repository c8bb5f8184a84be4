#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace libzentadbpp {

enum class HashKind : bool { sha256, fast };

// Computes data hashes: 64 lower-case hexadecimal digits of SHA-256, or "x" and the decimal value of the low 32 bits of
// XXH64 (seed 123456). One hasher serves one call at a time.
class DataHasher {
   public:
    explicit DataHasher(HashKind kind);
    ~DataHasher();
    DataHasher(const DataHasher&) = delete;
    DataHasher& operator=(const DataHasher&) = delete;

    [[nodiscard]] HashKind kind() const { return kind_; }
    // The hash of exactly these bytes. The result is valid until the next call.
    [[nodiscard]] std::string_view operator()(std::string_view bytes);

   private:
    struct Context;
    HashKind kind_;
    std::unique_ptr<Context> context_;
};

// An incremental hash. A copy continues from its state, so a common beginning is hashed once.
class RunningHash {
   public:
    explicit RunningHash(HashKind kind);
    ~RunningHash();
    RunningHash(const RunningHash& other);
    RunningHash& operator=(const RunningHash&) = delete;

    void add(std::string_view bytes);
    // The data hash of all that was added. Nothing can be added afterwards.
    [[nodiscard]] std::string finish();

   private:
    struct State;
    std::unique_ptr<State> state_;
};

// Whether the text of a data hash has the form of the given kind.
[[nodiscard]] bool is_hash_of_kind(std::string_view hash, HashKind kind);

}  // namespace libzentadbpp
