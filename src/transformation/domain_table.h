#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "contents/ordering_lists.h"
#include "memory/by_number.h"
#include "text/text_table.h"

namespace libzentadbpp {

// Numbers the domains of arrays. Contents may share one long domain; that of a list is hashed once.
class DomainTable {
   public:
    explicit DomainTable(std::size_t expected) : numbers_(expected) {}

    // The domain must live as long as this.
    std::uint32_t add(std::string_view domain) { return numbers_.add(domain).number; }
    // That of a list, which all come from one reader.
    std::uint32_t add(const ListContent& list) {
        std::uint32_t& known = of_lists_[list.number];
        if (known == 0) known = add(list.domain) + 1;
        return known - 1;
    }
    [[nodiscard]] std::optional<std::uint32_t> find(std::string_view domain) const { return numbers_.find(domain); }
    [[nodiscard]] std::string_view text(std::uint32_t number) const { return numbers_.text(number); }
    [[nodiscard]] std::size_t size() const { return numbers_.size(); }

   private:
    TextTable numbers_;
    ByNumber<std::uint32_t> of_lists_;  // plus one
};

}  // namespace libzentadbpp
