// What a user would compare with, on the same texts.

#define OPENSSL_SUPPRESS_DEPRECATED
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/sha.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>
#include <zlib.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "data.h"

namespace bench {
namespace {

void rapidjson_parse(benchmark::State& state, const std::string& text) {
    for (auto _ : state) {
        const Counted counted;
        rapidjson::Document document;
        document.Parse(text.c_str());
        benchmark::DoNotOptimize(document);
    }
    count(state, text.size(), 0);
}

void rapidjson_write(benchmark::State& state, const std::string& text, bool parse_too) {
    rapidjson::Document document;
    document.Parse(text.c_str());
    for (auto _ : state) {
        const Counted counted;
        if (parse_too) {
            rapidjson::Document again;
            again.Parse(text.c_str());
            document = std::move(again);
        }
        rapidjson::StringBuffer out;
        rapidjson::Writer<rapidjson::StringBuffer> writer(out);
        document.Accept(writer);
        benchmark::DoNotOptimize(out.GetString());
    }
    count(state, text.size(), 0);
}

void yard_rapidjson_parse_host(benchmark::State& state) { rapidjson_parse(state, data(state).host); }
void yard_rapidjson_parse_sync(benchmark::State& state) { rapidjson_parse(state, data(state).sync); }
void yard_rapidjson_write_host(benchmark::State& state) { rapidjson_write(state, data(state).host, false); }
void yard_rapidjson_parse_write_sync(benchmark::State& state) { rapidjson_write(state, data(state).sync, true); }

void yard_simdjson_parse_sync(benchmark::State& state) {
    const simdjson::padded_string text(data(state).sync);
    simdjson::dom::parser parser;
    for (auto _ : state) benchmark::DoNotOptimize(parser.parse(text).error());
    count(state, text.size(), 0);
}

void yard_sha256(benchmark::State& state, const std::vector<std::string>& texts) {
    std::size_t bytes = 0;
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    EVP_MD* sha256 = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    unsigned char digest[EVP_MAX_MD_SIZE];
    for (auto _ : state) {
        bytes = 0;
        for (const std::string& text : texts) {
            EVP_DigestInit_ex2(context, sha256, nullptr);
            EVP_DigestUpdate(context, text.data(), text.size());
            EVP_DigestFinal_ex(context, digest, nullptr);
            benchmark::DoNotOptimize(digest);
            bytes += text.size();
        }
    }
    EVP_MD_free(sha256);
    EVP_MD_CTX_free(context);
    count(state, bytes, 0);
}

// Hashes them as the library does, which takes less time.
void sha256_directly(benchmark::State& state) {
    const Data& d = data(state);
    for (auto _ : state) {
        for (const auto* texts : {&d.hashed_names, &d.hashed_contents}) {
            for (const std::string& text : *texts) {
                SHA256_CTX context;
                unsigned char digest[SHA256_DIGEST_LENGTH];
                SHA256_Init(&context);
                SHA256_Update(&context, text.data(), text.size());
                SHA256_Final(digest, &context);
                benchmark::DoNotOptimize(digest);
            }
        }
    }
}

void yard_sha256_names(benchmark::State& state) { yard_sha256(state, data(state).hashed_names); }
void yard_sha256_contents(benchmark::State& state) { yard_sha256(state, data(state).hashed_contents); }

void yard_zlib_sync(benchmark::State& state) {
    const std::string& text = data(state).sync;
    std::vector<Bytef> out(compressBound(text.size()));
    for (auto _ : state) {
        const Counted counted;
        uLongf size = out.size();
        require(compress(out.data(), &size, reinterpret_cast<const Bytef*>(text.data()), text.size()) == Z_OK, "zlib");
        state.counters["bytes"] = static_cast<double>(size);
    }
    count(state, text.size(), 0);
}

void yard_memcpy_sync(benchmark::State& state) {
    const std::string& text = data(state).sync;
    std::vector<char> copy(text.size());
    for (auto _ : state) {
        std::memcpy(copy.data(), text.data(), text.size());
        benchmark::ClobberMemory();
    }
    count(state, text.size(), 0);
}

BENCHMARK(yard_rapidjson_parse_host)->Apply(sizes);
BENCHMARK(yard_rapidjson_parse_sync)->Apply(sizes);
BENCHMARK(yard_rapidjson_write_host)->Apply(sizes);
BENCHMARK(yard_rapidjson_parse_write_sync)->Apply(sizes);
BENCHMARK(yard_simdjson_parse_sync)->Apply(sizes);
BENCHMARK(yard_sha256_names)->Apply(sizes);
BENCHMARK(yard_sha256_contents)->Apply(sizes);
BENCHMARK(sha256_directly)->Apply(sizes);
BENCHMARK(yard_zlib_sync)->Apply(sizes);
BENCHMARK(yard_memcpy_sync)->Apply(sizes);

}  // namespace
}  // namespace bench
