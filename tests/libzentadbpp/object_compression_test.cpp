#include "libzentadbpp/object_compression.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace libzentadbpp {
namespace {

constexpr std::string_view damaged = "failed_to_uncompress_data";
constexpr std::string_view too_large = "failed_to_allocate_memory_for_uncompressed_data";

std::string encode(std::string_view bytes) {
    TextBuffer out;
    base64_encode(bytes, out);
    return std::string(out.view());
}

std::string deflate_text(std::string_view text) {
    uLongf size = compressBound(text.size());
    std::string stream(size, '\0');
    EXPECT_EQ(compress(reinterpret_cast<Bytef*>(stream.data()), &size, reinterpret_cast<const Bytef*>(text.data()),
                       text.size()),
              Z_OK);
    stream.resize(size);
    return stream;
}

// By zlib, whatever made the stream.
std::string inflate_text(std::string_view stream, std::size_t size) {
    std::string text(size + 1, '\0');
    uLongf made = text.size();
    EXPECT_EQ(uncompress(reinterpret_cast<Bytef*>(text.data()), &made, reinterpret_cast<const Bytef*>(stream.data()),
                         stream.size()),
              Z_OK);
    text.resize(made);
    return text;
}

void expect_failure(const Inflated& result, std::string_view error, const std::string& what) {
    EXPECT_TRUE(result.text.empty()) << what;
    const std::string begin = R"({ "filename" : "src/libzentadbpp", "line": )";
    const std::string end = R"(, "function" : "uncompress_object", "error" : ")" + std::string(error) + R"(" })";
    EXPECT_TRUE(result.error.starts_with(begin) && result.error.ends_with(end)) << what << ": " << result.error;
}

TEST(ObjectCompression, Base64OfShortTexts) {
    for (const auto& [bytes, text] : std::vector<std::pair<std::string, std::string>>{{"", ""},
                                                                                      {"M", "TQ=="},
                                                                                      {"Ma", "TWE="},
                                                                                      {"Man", "TWFu"},
                                                                                      {std::string(2, '\0'), "AAA="},
                                                                                      {"\xfb\xff\xbf", "+/+/"}}) {
        EXPECT_EQ(encode(bytes), text);
        TextBuffer decoded;
        decoded.append("before ");
        EXPECT_TRUE(base64_decode(text, decoded)) << text;
        EXPECT_EQ(decoded.view(), "before " + bytes);
    }
}

TEST(ObjectCompression, Base64RefusesWhatIsNone) {
    for (const std::string_view text : {"T", "TQ", "TWE", "TQ=", "TQ===", "====", "T===", "=TWE", "TQ==TWFu", "TW=u",
                                        "TW-u", "TW_u", "TWFu\n", "TW u", "\x80WFu", "TWF\xff"}) {
        TextBuffer decoded;
        EXPECT_FALSE(base64_decode(text, decoded)) << text;
    }
    TextBuffer decoded;
    EXPECT_FALSE(base64_decode(std::string_view("TW\0u", 4), decoded));
}

TEST(ObjectCompression, RoundTrips) {
    constexpr std::uint32_t seed = 1;
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    std::vector<std::string> texts{"{}", "", "{\"a\": 1}", std::string(3'000'000, ' ')};
    std::string numbers;  // which deflate neither to nothing nor not at all
    while (numbers.size() < 2'000'000) numbers += std::to_string(random() % 1000) + ", ";
    for (std::size_t length = 3; length < numbers.size(); length = length * 3 + random() % 5) {
        texts.push_back(numbers.substr(0, length));
    }
    for (const std::string& text : texts) {
        TextBuffer object;
        ASSERT_EQ(compress_text(text, object), "");
        const std::string_view begin = "{\"compressed\": true, \"data\": \"";
        const std::string end = "\", \"uncompressed_size\": " + std::to_string(text.size()) + "}";
        ASSERT_TRUE(object.view().starts_with(begin) && object.view().ends_with(end)) << object.view();
        const std::string_view data = object.view().substr(begin.size(), object.size() - begin.size() - end.size());
        TextBuffer stream;
        ASSERT_TRUE(base64_decode(data, stream));
        EXPECT_TRUE(inflate_text(stream.view(), text.size()) == text) << text.size();
        EXPECT_LE(stream.size(), deflate_text(text).size() * 11 / 10 + 8);
        const Inflated result = uncompress_text(data, static_cast<double>(text.size()));
        EXPECT_EQ(result.error, "");
        EXPECT_TRUE(result.text.view() == text) << text.size();
    }
}

// With 286 length symbols the stream is sound. With 287 zlib refuses it, and other libraries do not.
TEST(ObjectCompression, AStreamWithTooManySymbolsIsRefused) {
    const std::string_view sound = "eJztwIEIAAAAACDW/SUmGQAAAk+mB5U=";
    const std::string_view invalid = "eJz1wIEIAAAAACDW/SU2GQAAAk+mB5U=";
    EXPECT_EQ(uncompress_text(sound, 20).text.view(), std::string(20, 'a'));
    expect_failure(uncompress_text(invalid, 20), damaged, "287 symbols");
}

TEST(ObjectCompression, AFalseSizeIsFoundOut) {
    const std::string text = "{\"a\": 1}";
    const std::string data = encode(deflate_text(text));
    const std::string zeros = encode(deflate_text(std::string(5'000'000, '0')));
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double size : {7.0, 9.0, 0.0, -0.0, 0x1p28}) {
        expect_failure(uncompress_text(data, size), damaged, std::to_string(size));
    }
    for (const double size : {4'999'999.0, 5'000'001.0}) {
        expect_failure(uncompress_text(zeros, size), damaged, std::to_string(size));
    }
    for (const char* none : {"", "????"}) expect_failure(uncompress_text(none, 8), damaged, none);
    for (const double size : {-1.0, 7.5, 1e-300, 0x1p47 + 1, 0x1p53, 0x1p63, 0x1p64, 1e300, infinity, -infinity,
                              std::numeric_limits<double>::quiet_NaN()}) {
        expect_failure(uncompress_text(data, size), too_large, std::to_string(size));
        expect_failure(uncompress_text("????", size), too_large, std::to_string(size));
    }
}

// A small text does not take gigabytes; but what was compressed is opened again, however well it compresses.
TEST(ObjectCompression, MoreThanSixtyFourTimesIsRefusedBeyondALimit) {
    constexpr std::size_t limit = std::size_t{1} << 28;
    const std::string text(limit + 1, ' ');
    for (const auto& [size, error] : {std::pair(limit, damaged), std::pair(limit + 1, too_large)}) {
        expect_failure(uncompress_text("????", static_cast<double>(size)), error, std::to_string(size));
    }
    const std::string long_enough((limit + 64) / 64, '?');
    expect_failure(uncompress_text(long_enough, static_cast<double>(limit + 64)), damaged, "64 times");

    TextBuffer object;
    ASSERT_EQ(compress_text(text, object), "");
    const std::string_view written = object.view();
    const std::size_t begin = written.find("\"data\": \"") + 9;
    const std::string_view written_data = written.substr(begin, written.find('"', begin) - begin);
    const Inflated result = uncompress_text(written_data, static_cast<double>(text.size()));
    EXPECT_EQ(result.error, "");
    EXPECT_TRUE(result.text.view() == text);
}

TEST(ObjectCompression, ReadsToTheEndOfTheStreamAndToTheFirstNul) {
    const std::string text("{}\0{\"a\": 1}", 11);
    const std::string stream = deflate_text(text);
    for (const std::string& more : {std::string(), std::string(1, '\0'), std::string("more"), stream}) {
        const Inflated result = uncompress_text(encode(stream + more), static_cast<double>(text.size()));
        EXPECT_EQ(result.error, "");
        EXPECT_EQ(result.text.view(), "{}");
    }
    const Inflated nothing = uncompress_text(encode(deflate_text("")), 0);
    EXPECT_EQ(nothing.error, "");
    EXPECT_TRUE(nothing.text.empty());
}

}  // namespace
}  // namespace libzentadbpp
