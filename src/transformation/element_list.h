#pragma once

#include <cstdint>
#include <limits>
#include <span>
#include <unordered_map>
#include <vector>

#include "common/arena.h"

namespace libzentadbpp {

// The elements of one array while other lists add to them: document numbers, repetitions allowed.
class ElementList {
   public:
    explicit ElementList(std::span<const std::uint32_t> start) {
        occurrences_.reserve(start.size());
        for (const std::uint32_t number : start) insert_after(tail_, number);
    }

    // Adds those numbers of a list that `may_add` accepts, and tells each to `added`. A number goes right after the
    // nearest one before it in the list that is here (its last occurrence), else right before the nearest one after it
    // (its first occurrence), else to the end. O(list).
    template <class MayAdd, class Added>
    void add_from(std::span<const std::uint32_t> list, const MayAdd& may_add, const Added& added) {
        std::uint32_t before = none;  // the nearest number before the current one that is here
        for (std::size_t at = 0; at < list.size(); ++at) {
            const std::uint32_t number = list[at];
            if (may_add(number)) {
                if (before != none) {
                    insert_after(occurrences_.at(before).last, number);
                } else {
                    insert_before_nearest(list.subspan(at + 1), number);
                }
                added(number);
                before = number;
            } else if (occurrences_.contains(number)) {
                before = number;
            }
        }
    }

    // In order, in memory of the arena.
    [[nodiscard]] std::span<const std::uint32_t> finish(Arena& arena) const;

   private:
    static constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();
    struct Node {
        std::uint32_t number;
        std::uint32_t previous;
        std::uint32_t next;
    };
    struct Occurrences {
        std::uint32_t first;
        std::uint32_t last;
    };

    void insert_after(std::uint32_t node, std::uint32_t number);  // none: in front
    void insert_before_nearest(std::span<const std::uint32_t> following, std::uint32_t number);

    std::vector<Node> nodes_;
    std::uint32_t head_ = none;
    std::uint32_t tail_ = none;
    std::unordered_map<std::uint32_t, Occurrences> occurrences_;
};

}  // namespace libzentadbpp
