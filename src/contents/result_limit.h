#pragma once

#include <algorithm>
#include <cstddef>
#include <stdexcept>

#include "memory/text_buffer.h"

namespace libzentadbpp {

// Keeps a result from growing out of all proportion to the storage that it is made of: documents that share one
// content, or refer to each other many times over, could make a small storage fill any memory. What is read counts like
// what is written, because nearly all of a content or a list may be left out.
class ResultLimit {
   public:
    // From the size of all contents; `out` is what the result is appended to.
    ResultLimit(std::size_t content_bytes, const TextBuffer& out)
        : largest_(out.size() + smallest_limit + growth * content_bytes) {}
    // Before so many more bytes, or elements of a list, are read.
    void check(std::size_t read, const TextBuffer& out) {
        read_ += read;
        if (std::max(read_, out.size()) > largest_) throw std::length_error("exceeded maximum result size");
    }

   private:
    static constexpr std::size_t smallest_limit = std::size_t{1} << 28;
    static constexpr std::size_t growth = 64;

    std::size_t largest_;
    std::size_t read_ = 0;
};

}  // namespace libzentadbpp
