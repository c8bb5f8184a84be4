#pragma once

#include <cstddef>
#include <stdexcept>

#include "common/text_buffer.h"

namespace libzentadbpp {

// Keeps a result from growing out of all proportion to the storage that it is made of: documents that share one
// content, or refer to each other many times over, could make a small storage fill any memory.
class ResultLimit {
   public:
    // From the size of all contents; `out` is what the result is appended to.
    ResultLimit(std::size_t content_bytes, const TextBuffer& out)
        : largest_(out.size() + smallest_limit + growth * content_bytes) {}
    void check(const TextBuffer& out) const {
        if (out.size() > largest_) throw std::length_error("exceeded maximum result size");
    }

   private:
    static constexpr std::size_t smallest_limit = std::size_t{1} << 28;
    static constexpr std::size_t growth = 64;

    std::size_t largest_;
};

}  // namespace libzentadbpp
