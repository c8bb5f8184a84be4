#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace fuzzing {

// Decisions drawn from a fuzzer's bytes. Once these are used up every decision is 0, so what is built from them must
// come to an end on zeros.
class Choices {
   public:
    Choices(const std::uint8_t* data, std::size_t size) : left_(data, size) {}

    [[nodiscard]] bool empty() const { return left_.empty(); }

    std::size_t below(std::size_t limit) {
        std::size_t value = 0;
        for (std::size_t covered = 1; covered < limit && !left_.empty(); covered *= 256) {
            value = value * 256 + left_.front();
            left_ = left_.subspan(1);
        }
        return value % limit;
    }
    bool one_in(std::size_t times) { return below(times) + 1 == times; }

    template <std::size_t size>
    std::string pick(const std::string_view (&options)[size]) {
        return std::string(options[below(size)]);
    }

    std::string bytes(std::size_t count) {
        const auto taken = left_.first(std::min(count, left_.size()));
        left_ = left_.subspan(taken.size());
        return {taken.begin(), taken.end()};
    }
    std::string rest() { return bytes(left_.size()); }

   private:
    std::span<const std::uint8_t> left_;
};

}  // namespace fuzzing
