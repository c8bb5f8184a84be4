// Runs a fuzz target without a fuzzer: all files of the directories given, then so many generated inputs. The same seed
// makes the same inputs.
//   fuzz_<target> [--runs=N] [--seed=N] [directory or file]...

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

#include "checks.h"

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments);

namespace {

using Bytes = std::vector<std::uint8_t>;

void run(const Bytes& input) {
    try {
        LLVMFuzzerTestOneInput(input.data(), input.size());
    } catch (...) {
        std::printf("fails with these bytes:\n");
        for (const std::uint8_t byte : input) std::printf("%02x", byte);
        std::printf("\n");
        std::fflush(stdout);
        throw;
    }
}

Bytes contents(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Bytes of no kind, or an input from the corpus with some changes.
Bytes generated(std::mt19937_64& random, const std::vector<Bytes>& corpus) {
    const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };
    Bytes input = corpus.empty() || below(2) == 0 ? Bytes(below(400)) : corpus[below(corpus.size())];
    const bool anew = corpus.empty() || below(2) == 0;
    if (anew) {
        for (auto& byte : input) byte = static_cast<std::uint8_t>(below(256));
    }
    for (std::size_t left = below(8); left > 0 && !input.empty(); --left) {
        input[below(input.size())] = static_cast<std::uint8_t>(below(256));
    }
    return input;
}

}  // namespace

int main(int count, char** arguments) {
    LLVMFuzzerInitialize(&count, &arguments);
    std::uint64_t runs = 0;
    std::uint64_t seed = 1;
    std::vector<Bytes> corpus;
    for (int at = 1; at < count; ++at) {
        const std::string_view argument = arguments[at];
        if (argument.starts_with("--runs=")) {
            runs = std::stoull(arguments[at] + std::strlen("--runs="));
        } else if (argument.starts_with("--seed=")) {
            seed = std::stoull(arguments[at] + std::strlen("--seed="));
        } else if (std::filesystem::is_directory(argument)) {
            std::vector<std::filesystem::path> files;
            for (const auto& file : std::filesystem::directory_iterator(argument)) files.push_back(file);
            std::ranges::sort(files);
            for (const auto& file : files) corpus.push_back(contents(file));
        } else {
            corpus.push_back(contents(argument));
        }
    }
    std::printf("%zu inputs given; seed of those generated: %llu\n", corpus.size(),
                static_cast<unsigned long long>(seed));
    std::fflush(stdout);
    for (const Bytes& input : corpus) run(input);

    std::mt19937_64 random(seed);
    for (std::uint64_t left = runs; left > 0; --left) run(generated(random, corpus));
    std::printf("%llu inputs generated\n", static_cast<unsigned long long>(runs));
    return 0;
}
