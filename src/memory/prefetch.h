#pragma once

#include <cstddef>
#include <string_view>

namespace libzentadbpp {

// Has the beginning of a text that will be looked at soon brought near: where many texts lie in any order, waiting for
// each would take longer than reading it.
inline void prefetch(std::string_view text) {
    constexpr std::size_t cache_line = 64;
    for (std::size_t at = 0; at < text.size() && at < 4 * cache_line; at += cache_line) {
        __builtin_prefetch(text.data() + at);
    }
}

}  // namespace libzentadbpp
