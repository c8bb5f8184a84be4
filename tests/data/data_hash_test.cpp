#include "data/data_hash.h"

#include <gtest/gtest.h>
#include <openssl/sha.h>
#include <xxhash.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace libzentadbpp {
namespace {

struct Published {
    std::string_view bytes;
    std::string_view sha256;
    std::string_view fast;
};
constexpr std::array published{
    Published{"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855", "x1816613706"},
    Published{"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad", "x3394007895"},
    Published{"null", "74234e98afe7498fb5daf1f36ac2d78acc339464f950703b8c019892f982b90b", "x367688839"},
    Published{"{\"a\": 1}", "f9d86028c6e0d64e225186f96acb69338b2c59764df79162107f5c4bb34d1310", "x3022294939"},
};

std::string sha256_of(const std::string& bytes) {
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest;
    SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest.data());
    std::string text;
    for (const unsigned char byte : digest) {
        std::array<char, 3> digits;
        std::snprintf(digits.data(), digits.size(), "%02x", byte);
        text += digits.data();
    }
    return text;
}

std::string bytes_of_length(std::size_t length) {
    std::string bytes;
    for (std::size_t i = 0; i < length; ++i) bytes.push_back(static_cast<char>(i * 131 + length));
    return bytes;
}

TEST(DataHash, GivesThePublishedHashes) {
    DataHasher sha256(HashKind::sha256);
    DataHasher fast(HashKind::fast);
    for (const Published& expected : published) {
        EXPECT_EQ(sha256(expected.bytes), expected.sha256) << expected.bytes;
        EXPECT_EQ(fast(expected.bytes), expected.fast) << expected.bytes;
    }
    EXPECT_EQ(sha256(std::string_view{}), published[0].sha256);
    EXPECT_EQ(fast(std::string_view{}), published[0].fast);
}

TEST(DataHash, AgreesWithTheReferencesOnEveryLength) {
    DataHasher sha256(HashKind::sha256);
    DataHasher fast(HashKind::fast);
    for (std::size_t length = 0; length <= 300; ++length) {
        const std::string bytes = bytes_of_length(length);
        ASSERT_EQ(sha256(bytes), sha256_of(bytes)) << length;
        const std::uint64_t digest = XXH64(bytes.data(), bytes.size(), 123456);
        ASSERT_EQ(fast(bytes), "x" + std::to_string(digest % (std::uint64_t{1} << 32))) << length;
    }
}

TEST(DataHash, ThreadsHashSideBySide) {
    std::array<std::string, 4> results;
    std::vector<std::thread> threads;
    threads.reserve(results.size());
    for (std::string& result : results) {
        threads.emplace_back([&result] {
            DataHasher hasher(HashKind::sha256);
            for (std::size_t length = 0; length < 100; ++length) result += hasher(bytes_of_length(length));
        });
    }
    for (std::thread& thread : threads) thread.join();
    std::string expected;
    for (std::size_t length = 0; length < 100; ++length) expected += sha256_of(bytes_of_length(length));
    for (const std::string& result : results) EXPECT_EQ(result, expected);
}

TEST(DataHash, TellsTheKindFromTheTextAlone) {
    const std::string digits64(64, '7');
    struct Case {
        std::string text;
        bool sha256;
        bool fast;
    };
    const std::vector<Case> cases{
        {std::string(published[1].sha256), true, false},
        {digits64, true, false},
        {digits64.substr(1), false, false},
        {digits64 + "7", false, false},
        {digits64.substr(1) + "A", false, false},
        {digits64.substr(1) + "g", false, false},
        {"x" + digits64.substr(1), false, false},
        {"x0", false, true},
        {"x4294967295", false, true},
        {"x42949672950", false, false},
        {"x", false, false},
        {"", false, false},
        {"X1", false, false},
        {"x-1", false, false},
        {"x1f", false, false},
        {"1816613706", false, false},
        {std::string("x1\0", 3), false, false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(is_hash_of_kind(c.text, HashKind::sha256), c.sha256) << c.text;
        EXPECT_EQ(is_hash_of_kind(c.text, HashKind::fast), c.fast) << c.text;
    }
}

}  // namespace
}  // namespace libzentadbpp
