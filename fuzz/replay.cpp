// Runs a fuzz target without a fuzzer: all files of the directories given, then generated inputs for a while.
//   fuzz_<target> [--seconds=N] [--seed=N] [directory or file]...

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include "checks.h"

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments);

namespace {

using Bytes = std::vector<std::uint8_t>;

void run(const Bytes& input) { LLVMFuzzerTestOneInput(input.data(), input.size()); }

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
    std::chrono::seconds time{0};
    std::uint64_t seed = std::random_device{}();
    std::vector<Bytes> corpus;
    for (int at = 1; at < count; ++at) {
        const std::string_view argument = arguments[at];
        if (argument.starts_with("--seconds=")) {
            time = std::chrono::seconds(std::stoi(arguments[at] + std::strlen("--seconds=")));
        } else if (argument.starts_with("--seed=")) {
            seed = std::stoull(arguments[at] + std::strlen("--seed="));
        } else if (std::filesystem::is_directory(argument)) {
            for (const auto& file : std::filesystem::directory_iterator(argument)) corpus.push_back(contents(file));
        } else {
            corpus.push_back(contents(argument));
        }
    }
    std::printf("%zu inputs given; seed of those generated: %llu\n", corpus.size(),
                static_cast<unsigned long long>(seed));
    std::fflush(stdout);
    for (const Bytes& input : corpus) run(input);

    std::mt19937_64 random(seed);
    std::size_t made = 0;
    for (const auto end = std::chrono::steady_clock::now() + time; std::chrono::steady_clock::now() < end; ++made) {
        run(generated(random, corpus));
    }
    std::printf("%zu inputs generated\n", made);
    return 0;
}
