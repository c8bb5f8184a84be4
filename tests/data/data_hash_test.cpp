#include "data/data_hash.h"

#include <gtest/gtest.h>
#include <openssl/sha.h>
#include <xxhash.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "data/sha256.h"

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

std::string hexadecimal(const Sha256Bytes& digest) {
    std::string text;
    for (const unsigned char byte : digest) {
        std::array<char, 3> digits;
        std::snprintf(digits.data(), digits.size(), "%02x", byte);
        text += digits.data();
    }
    return text;
}

std::string sha256_of(const std::string& bytes) {
    Sha256Bytes digest;
    SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest.data());
    return hexadecimal(digest);
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

// The examples of FIPS 180-4 for SHA-256, and a million times "a".
TEST(PortableSha256, GivesTheDigestsOfTheStandard) {
    const std::vector<std::pair<std::string, std::string_view>> examples = {
        {"", published[0].sha256},
        {"abc", published[1].sha256},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {"abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqr"
         "s"
         "tu",
         "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1"},
        {std::string(1'000'000, 'a'), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    PortableSha256 sha256;
    for (const auto& [bytes, digest] : examples) {
        sha256.add(bytes);
        EXPECT_EQ(hexadecimal(sha256.finish()), digest) << bytes.substr(0, 100);
    }
}

TEST(PortableSha256, AgreesOnEveryLengthInPieces) {
    for (std::size_t length = 0; length <= 300; ++length) {
        const std::string bytes = bytes_of_length(length);
        PortableSha256 whole;
        whole.add(std::string_view(bytes).substr(0, length / 3));
        PortableSha256 copy = whole;
        for (PortableSha256* sha256 : {&whole, &copy}) sha256->add(std::string_view(bytes).substr(length / 3));
        ASSERT_EQ(hexadecimal(whole.finish()), sha256_of(bytes)) << length;
        ASSERT_EQ(hexadecimal(copy.finish()), sha256_of(bytes)) << length;
    }
}

TEST(DataHash, TellsTheKindFromTheTextAlone) {
    const std::string digits63(63, '7');
    const auto kinds = [](std::string_view text) {
        return std::string(is_hash_of_kind(text, HashKind::sha256) ? "sha256" : "") +
               (is_hash_of_kind(text, HashKind::fast) ? "fast" : "");
    };
    for (const std::string& text : {std::string(published[1].sha256), digits63 + "7"}) EXPECT_EQ(kinds(text), "sha256");
    for (const char* text : {"x0", "x4294967295"}) EXPECT_EQ(kinds(text), "fast") << text;
    for (const std::string& text : {digits63, digits63 + "77", digits63 + "A", digits63 + "g", "x" + digits63}) {
        EXPECT_EQ(kinds(text), "") << text;
    }
    for (const char* text : {"x42949672950", "x", "", "X1", "x-1", "x1f", "1816613706"}) EXPECT_EQ(kinds(text), "");
    EXPECT_EQ(kinds(std::string_view("x1\0", 3)), "");
}

}  // namespace
}  // namespace libzentadbpp
