#pragma once

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string_view>

#include "memory/text_buffer.h"

namespace libzentadbpp {

// Keeps a result from growing out of all proportion to the storage that it is made of: documents that share one
// content, or refer to each other many times over, could make a small storage fill any memory. What is read counts like
// what is written, as of a content nearly all may be left out.
class ResultLimit {
   public:
    // From the size of all contents; `out` is what the result is appended to.
    ResultLimit(std::size_t content_bytes, const TextBuffer& out)
        : largest_(out.size() + smallest_limit + growth * content_bytes) {}
    // Before a content is gone through.
    void check(std::string_view content, const TextBuffer& out) {
        read_ += content.size();
        if (std::max(read_, out.size()) > largest_) throw std::length_error("exceeded maximum result size");
    }

   private:
    static constexpr std::size_t smallest_limit = std::size_t{1} << 28;
    static constexpr std::size_t growth = 64;

    std::size_t largest_;
    std::size_t read_ = 0;
};

}  // namespace libzentadbpp
