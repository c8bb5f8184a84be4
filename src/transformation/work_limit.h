#pragma once

#include <cstddef>

namespace libzentadbpp {

// Bounds work that is not linear in every set. Each copy writes contents of its own for what it does, so for what
// copies did it takes less than all contents are long in bytes. Sets that let thousands of documents or revisions share
// what they refer to, and are no copies' work, could make it take any time.
class WorkLimit {
   public:
    explicit WorkLimit(std::size_t content_bytes) : left_(work_on_small + content_bytes) {}

    // Whether that much more may be done. Once it may not, nothing more may.
    bool take(std::size_t work) {
        left_ = work <= left_ ? left_ - work : 0;
        return left_ != 0;
    }

   private:
    static constexpr std::size_t work_on_small = std::size_t{1} << 22;

    std::size_t left_;
};

}  // namespace libzentadbpp
