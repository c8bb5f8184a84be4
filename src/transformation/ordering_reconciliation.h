#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "common/arena.h"
#include "common/text_table.h"
#include "documents/document_index.h"
#include "documents/document_storage.h"
#include "documents/ordering_lists.h"

namespace libzentadbpp {

// The elements of every array, put together from all ordering documents.
//
// An ordering document records one array's order as one instance wrote it: {"d": domain, "i": instance, "s": [ids]}.
// After a merge there may be several for one array, and several open leaves of one. Reconciling them shows every live
// element as often as its writer put it there, loses none, and does not depend on the order of merges:
// 1. The winning lists of the configured instance stand. Where they place an element in several arrays, it leaves those
//    that another leaf of the same ordering document moved it away from.
// 2. What nothing placed yet is added from this instance's other leaves, then from each other instance in turn.
// 3. What an edit on one copy and a removal on another would have lost comes back from the newest older list.
// An added element goes next to its neighbours in the list it comes from.
class ElementOrder {
   public:
    ElementOrder(const DocumentIndex& index, std::string_view instance_id);

    // Numbers of the elements of a domain, in order; empty for an unknown one.
    [[nodiscard]] std::span<const std::uint32_t> elements(std::string_view domain) const {
        const auto number = domains_.find(domain);
        return number ? elements_[*number] : std::span<const std::uint32_t>{};
    }

    // An ordering document of the configured instance that no longer says what the array holds.
    struct Outdated {
        std::string_view domain;
        const MultiVersionDocument* document;  // null: the instance has none for this domain
    };
    [[nodiscard]] const std::vector<Outdated>& outdated() const { return outdated_; }

   private:
    OrderingLists lists_;
    Arena arena_;
    TextTable domains_;
    std::vector<std::span<const std::uint32_t>> elements_;  // by number of the domain, in the lists or the arena
    std::vector<Outdated> outdated_;
};

}  // namespace libzentadbpp
