#pragma once

#include <cstddef>

namespace libzentadbpp {

// Bounds work that is not linear in every set. Each copy writes its own contents for what it does, so the work for a
// set that copies wrote is less than the bytes of all contents. In a set that somebody made up, thousands of documents
// or revisions may share what they refer to; without a bound the work would take any time.
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
