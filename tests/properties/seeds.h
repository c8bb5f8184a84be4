#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <random>
#include <string>

namespace libzentadbpp {

// Runs a script for each of some seeds, until one fails. The environment may say how many, and from which on.
template <class Body>
void for_seeds(std::uint64_t first, std::uint64_t count, const Body& body) {
    if (const char* wanted = std::getenv("ZENTADBPP_SCRIPTS")) count = std::strtoull(wanted, nullptr, 10);
    if (const char* wanted = std::getenv("ZENTADBPP_FIRST_SEED")) first = std::strtoull(wanted, nullptr, 10);
    for (std::uint64_t seed = first; seed < first + count && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        try {
            body(seed);
        } catch (const std::exception& error) {
            FAIL() << error.what();
        }
    }
}

class Random {
   public:
    explicit Random(std::uint64_t seed) : engine_(seed) {}
    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(engine_() % limit); }
    bool one_in(std::size_t n) { return below(n) == 0; }

   private:
    std::mt19937_64 engine_;
};

}  // namespace libzentadbpp
