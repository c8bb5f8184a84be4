#pragma once

#include <cstdint>
#include <string_view>

namespace libzentadbpp {

// A data hash for sorting, with its first eight bytes as a number, so that comparing seldom has to look at the text.
class HashKey {
   public:
    explicit HashKey(std::string_view hash) : hash_(hash) {
        for (std::size_t i = 0; i < 8; ++i) {
            prefix_ = prefix_ << 8 | (i < hash.size() ? static_cast<unsigned char>(hash[i]) : 0U);
        }
    }
    [[nodiscard]] std::string_view text() const { return hash_; }

    friend bool operator<(const HashKey& a, const HashKey& b) {
        return a.prefix_ != b.prefix_ ? a.prefix_ < b.prefix_ : a.hash_ < b.hash_;
    }

   private:
    std::uint64_t prefix_ = 0;
    std::string_view hash_;
};

}  // namespace libzentadbpp
