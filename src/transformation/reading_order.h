#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "memory/prefetch.h"
#include "transformation/shown_data.h"

namespace libzentadbpp {

// Where a walk is in the order in which documents are expected. What comes soon is brought near step by step, as each
// address lies in what was brought near before.
class ReadingOrder {
   public:
    explicit ReadingOrder(const ShownData& shown) : shown_(shown), order_(shown.reading_order()) {}

    void reach(std::uint32_t document) {
        constexpr std::size_t most_left_out = 4;
        const std::size_t end = std::min(order_.size(), next_ + 1 + most_left_out);
        for (std::size_t at = next_; at < end; ++at) {
            if (order_[at] != document) continue;
            next_ = at + 1;
            announce();
            return;
        }
    }

   private:
    void announce() const {
        at(steps_ahead::entry, [&](std::uint32_t document) {
            shown_.index().prefetch_entry(document);
            shown_.references().prefetch_range(document);
        });
        at(steps_ahead::content, [&](std::uint32_t document) {
            shown_.index().prefetch_content(document);
            shown_.references().prefetch_references(document);
        });
        at(steps_ahead::arrays, [&](std::uint32_t document) {
            for_first_arrays(document, [&](std::uint32_t domain) { shown_.prefetch_array(domain); });
        });
        at(steps_ahead::elements, [&](std::uint32_t document) {
            for_first_arrays(document, [&](std::uint32_t domain) { shown_.prefetch_elements(domain); });
        });
    }
    template <class Visit>
    void at(std::size_t steps, const Visit& visit) const {
        if (next_ + steps < order_.size()) visit(order_[next_ + steps]);
    }
    template <class Visit>
    void for_first_arrays(std::uint32_t document, const Visit& visit) const {
        constexpr std::size_t few = 4;
        const auto references = shown_.references().of(document);
        for (const Reference& reference : references.first(std::min(references.size(), few))) {
            if (reference.is_array) visit(reference.target);
        }
    }

    const ShownData& shown_;
    std::span<const std::uint32_t> order_;
    std::size_t next_ = 0;
};

}  // namespace libzentadbpp
