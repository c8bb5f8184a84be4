#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

namespace libzentadbpp {

// Has the line of an address brought near.
inline void prefetch_at(const void* address) {
    __builtin_prefetch(address);
    // GCC takes a function that does nothing but prefetch for one without effect, and leaves out its calls.
    __asm__ volatile("" : : "r"(address));
}

// Has the beginning of a text that will be looked at soon brought near: where many texts lie in any order, waiting for
// each would take longer than reading it.
inline void prefetch(std::string_view text) {
    constexpr std::size_t cache_line = 64;
    const std::size_t size = std::min(text.size(), 8 * cache_line);
    for (std::size_t at = 0; at < size; at += cache_line) prefetch_at(text.data() + at);
    if (size != 0) prefetch_at(text.data() + size - 1);  // texts begin anywhere in a line
}

// How many steps ahead a walk announces what it will touch: the less a step does, the more.
namespace steps_ahead {
inline constexpr std::size_t lookup = 16;   // of one key
inline constexpr std::size_t document = 8;  // a look at a content
// A content is written: where it is and what is known of it, the content, its arrays, and their elements.
inline constexpr std::size_t entry = 16;
inline constexpr std::size_t content = 12;
inline constexpr std::size_t arrays = 8;
inline constexpr std::size_t elements = 4;
}  // namespace steps_ahead

// Calls `announce(at)` for each place from 0 to `count`, so many steps before a walk reaches it. The walk reports every
// step.
template <class Announce>
class LookAhead {
   public:
    LookAhead(std::size_t steps, std::size_t count, Announce announce)
        : steps_(steps), count_(count), announce_(std::move(announce)) {
        for (std::size_t at = 0; at < std::min(steps, count); ++at) announce_(at);
    }
    void reach(std::size_t at) const {
        if (count_ - at > steps_) announce_(at + steps_);
    }

   private:
    std::size_t steps_;
    std::size_t count_;
    Announce announce_;
};

}  // namespace libzentadbpp
