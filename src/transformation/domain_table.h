#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <unordered_map>

#include "text/text_table.h"

namespace libzentadbpp {

// Numbers the domains of arrays. Contents may share one long domain; it is hashed once for each place in memory.
class DomainTable {
   public:
    explicit DomainTable(std::size_t expected) : numbers_(expected) {}

    // The domain must live as long as this.
    std::uint32_t add(std::string_view domain) {
        if (domain.size() <= cheap_to_repeat) return numbers_.add(domain).number;
        const auto [known, is_new] = long_domains_.try_emplace(domain.data());
        if (is_new) known->second = numbers_.add(domain).number;
        return known->second;
    }
    [[nodiscard]] std::optional<std::uint32_t> find(std::string_view domain) const { return numbers_.find(domain); }
    [[nodiscard]] std::string_view text(std::uint32_t number) const { return numbers_.text(number); }
    [[nodiscard]] std::size_t size() const { return numbers_.size(); }

   private:
    static constexpr std::size_t cheap_to_repeat = 256;

    TextTable numbers_;
    std::unordered_map<const char*, std::uint32_t> long_domains_;
};

}  // namespace libzentadbpp
