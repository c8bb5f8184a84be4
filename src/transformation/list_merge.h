#pragma once

#include <cstdint>
#include <span>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace libzentadbpp {

// A list of document numbers that other lists change. Number and occurrence identify an entry: the second 7 of a list
// is another entry than the first.
//
// Lists merge three ways. The changes of a branch since its start are applied to this list, unless this list undid
// them:
//
//   start   a b c d     the list that both started from
//   this    a b x c d   added x
//   branch  d a b       moved d to the front, removed c
//   merged  d a b x c   c stays, unless the branch moved it to another list
//
// The entries outside of the longest part that kept its order were moved.
class MergedList {
   public:
    explicit MergedList(std::span<const std::uint32_t> base);

    // Applies the changes of a branch between its start and its list. `moved_elsewhere(number)` decides whether an
    // entry that the branch removed leaves this list as well. A list that comes again must be at the same address. O(n
    // log n) in the lengths of the three lists; if this one keeps its order, in those of the two.
    template <class MovedElsewhere>
    void merge(std::span<const std::uint32_t> start, std::span<const std::uint32_t> branch,
               const MovedElsewhere& moved_elsewhere) {
        const Entries began = entries_of(start);
        const Entries ended = entries_of(branch);
        const Positions in_branch = positions_of(ended);
        for (const Entry entry : began) {
            if (!in_branch.contains(entry) && moved_elsewhere(number_of(entry))) take_out(entry);
        }
        move_and_add(start, began, ended);
    }

    // Adds those entries of a list that are not here and that `may_add(number)` accepts, next to their neighbours in
    // that list, and reports each to `added(number)`. O(list).
    template <class MayAdd, class Added>
    void add_from(std::span<const std::uint32_t> list, const MayAdd& may_add, const Added& added) {
        const Entries entries = entries_of(list);
        Node* before = nullptr;
        for (std::size_t at = 0; at < entries.size(); ++at) {
            if (Node* const here = find(entries[at])) {
                before = here;
            } else if (may_add(number_of(entries[at]))) {
                before = put_in(entries, at, before, [](Entry) { return true; });
                added(number_of(entries[at]));
            }
        }
    }

    [[nodiscard]] std::vector<std::uint32_t> numbers() const;

    // How many entries merging has looked at so far.
    [[nodiscard]] std::size_t work() const { return work_; }

   private:
    using Entry = std::uint64_t;  // occurrence, number
    using Entries = std::vector<Entry>;
    using Positions = std::unordered_map<Entry, std::uint32_t>;
    struct Node {
        Entry entry = 0;
        Node* previous = nullptr;
        Node* next = nullptr;
    };

    [[nodiscard]] static std::uint32_t number_of(Entry entry) { return static_cast<std::uint32_t>(entry); }
    [[nodiscard]] static Entries entries_of(std::span<const std::uint32_t> list);
    [[nodiscard]] static Positions positions_of(const Entries& entries);

    [[nodiscard]] Node* find(Entry entry) {
        const auto found = nodes_.find(entry);
        return found == nodes_.end() ? nullptr : &found->second;
    }
    void take_out(Entry entry);
    Node* insert_after(Node* node, Entry entry);  // null: in front

    // Puts an entry of a list in: after `before`, its nearest neighbour before it; else before its nearest neighbour
    // after it; else at the end.
    template <class IsNeighbour>
    Node* put_in(const Entries& list, std::size_t at, Node* before, const IsNeighbour& is_neighbour) {
        if (before != nullptr) return insert_after(before, list[at]);
        for (std::size_t later = at + 1; later < list.size(); ++later) {
            if (Node* const here = find(list[later]); here != nullptr && is_neighbour(list[later])) {
                return insert_after(here->previous, list[at]);
            }
        }
        return insert_after(tail_, list[at]);
    }

    void move_and_add(std::span<const std::uint32_t> start, const Entries& began, const Entries& ended);
    // The entries that were moved between the start and this list.
    [[nodiscard]] const std::unordered_set<Entry>& moved_since(std::span<const std::uint32_t> start,
                                                               const Entries& began);

    std::unordered_map<Entry, Node> nodes_;
    Node* head_ = nullptr;
    Node* tail_ = nullptr;
    std::size_t work_ = 0;

    // The start for which moved_since found something last, null once it no longer holds. Entries that a branch of that
    // start adds change nothing about it.
    const std::uint32_t* moved_start_ = nullptr;
    std::size_t moved_start_size_ = 0;
    std::unordered_set<Entry> moved_;
};

}  // namespace libzentadbpp
