#include "transformation/list_merge.h"

#include <algorithm>
#include <limits>

namespace libzentadbpp {

namespace {

constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();

// Which of the positions (all different) are not in their longest ascending part. Of several longest it is the one that
// ends lowest, and so on going back.
std::vector<bool> outside_longest_ascending(std::span<const std::uint32_t> positions) {
    std::vector<std::uint32_t> lowest_end;  // by length: where the part that ends lowest so far ends
    std::vector<std::uint32_t> previous(positions.size(), none);
    for (std::uint32_t at = 0; at < positions.size(); ++at) {
        const auto longer =
            std::ranges::lower_bound(lowest_end, positions[at], {}, [&](std::uint32_t end) { return positions[end]; });
        if (longer != lowest_end.begin()) previous[at] = *(longer - 1);
        if (longer == lowest_end.end()) {
            lowest_end.push_back(at);
        } else {
            *longer = at;
        }
    }
    std::vector<bool> outside(positions.size(), true);
    for (std::uint32_t at = lowest_end.empty() ? none : lowest_end.back(); at != none; at = previous[at]) {
        outside[at] = false;
    }
    return outside;
}

}  // namespace

MergedList::MergedList(std::span<const std::uint32_t> base) {
    nodes_.reserve(base.size());
    for (const Entry entry : entries_of(base)) insert_after(tail_, entry);
}

MergedList::Entries MergedList::entries_of(std::span<const std::uint32_t> list) {
    constexpr unsigned number_bits = 32;
    std::unordered_map<std::uint32_t, std::uint32_t> occurrences;
    occurrences.reserve(list.size());
    Entries entries;
    entries.reserve(list.size());
    for (const std::uint32_t number : list) entries.push_back(Entry{occurrences[number]++} << number_bits | number);
    return entries;
}

MergedList::Positions MergedList::positions_of(const Entries& entries) {
    Positions positions;
    positions.reserve(entries.size());
    for (std::uint32_t at = 0; at < entries.size(); ++at) positions.emplace(entries[at], at);
    return positions;
}

std::vector<std::uint32_t> MergedList::numbers() const {
    std::vector<std::uint32_t> numbers;
    numbers.reserve(nodes_.size());
    for (const Node* node = head_; node != nullptr; node = node->next) numbers.push_back(number_of(node->entry));
    return numbers;
}

void MergedList::take_out(Entry entry) {
    const auto found = nodes_.find(entry);
    if (found == nodes_.end()) return;
    const Node& node = found->second;
    (node.previous == nullptr ? head_ : node.previous->next) = node.next;
    (node.next == nullptr ? tail_ : node.next->previous) = node.previous;
    nodes_.erase(found);
    moved_start_ = nullptr;
}

MergedList::Node* MergedList::insert_after(Node* node, Entry entry) {
    Node& inserted = nodes_[entry];
    inserted = {entry, node, node == nullptr ? head_ : node->next};
    (node == nullptr ? head_ : node->next) = &inserted;
    (inserted.next == nullptr ? tail_ : inserted.next->previous) = &inserted;
    return &inserted;
}

const std::unordered_set<MergedList::Entry>& MergedList::moved_since(std::span<const std::uint32_t> start,
                                                                     const Entries& began) {
    if (moved_start_ == start.data() && moved_start_size_ == start.size()) return moved_;
    moved_start_ = start.data();
    moved_start_size_ = start.size();
    moved_.clear();
    const Positions in_start = positions_of(began);
    Entries shared;
    std::vector<std::uint32_t> positions;
    work_ += nodes_.size();
    for (const Node* node = head_; node != nullptr; node = node->next) {
        const auto at = in_start.find(node->entry);
        if (at == in_start.end()) continue;
        shared.push_back(node->entry);
        positions.push_back(at->second);
    }
    const std::vector<bool> moved = outside_longest_ascending(positions);
    for (std::size_t at = 0; at < shared.size(); ++at) {
        if (moved[at]) moved_.insert(shared[at]);
    }
    return moved_;
}

void MergedList::move_and_add(std::span<const std::uint32_t> start, const Entries& began, const Entries& ended) {
    work_ += began.size() + ended.size();
    const Positions in_start = positions_of(began);
    std::vector<std::uint32_t> kept;       // of `ended`: those that the branch began with
    std::vector<std::uint32_t> positions;  // and where they were
    for (std::uint32_t at = 0; at < ended.size(); ++at) {
        if (const auto found = in_start.find(ended[at]); found != in_start.end()) {
            kept.push_back(at);
            positions.push_back(found->second);
        }
    }
    const std::vector<bool> moved_by_branch = outside_longest_ascending(positions);
    const auto& moved_here = moved_since(start, began);

    std::vector<bool> is_due(ended.size());  // to be put in
    bool any_due = false;
    for (std::size_t at = 0; at < ended.size(); ++at) {
        is_due[at] = !in_start.contains(ended[at]) && find(ended[at]) == nullptr;
        any_due = any_due || is_due[at];
    }
    for (std::size_t at = 0; at < kept.size(); ++at) {
        const Entry entry = ended[kept[at]];
        if (!moved_by_branch[at] || find(entry) == nullptr || moved_here.contains(entry)) continue;
        take_out(entry);
        is_due[kept[at]] = true;
        any_due = true;
    }
    if (!any_due) return;

    // An entry that was moved here says nothing about where its neighbours in the branch belong, unless all were.
    const auto is_in_place = [&](Entry entry) { return !moved_here.contains(entry); };
    const auto is_any = [](Entry) { return true; };
    bool any_in_place =
        std::ranges::any_of(ended, [&](Entry entry) { return is_in_place(entry) && find(entry) != nullptr; });
    Node* before = nullptr;      // the nearest neighbour in place
    Node* any_before = nullptr;  // the nearest one
    for (std::size_t at = 0; at < ended.size(); ++at) {
        if (is_due[at]) {
            before = any_in_place ? put_in(ended, at, before, is_in_place) : put_in(ended, at, any_before, is_any);
            any_in_place = true;
        } else if (Node* const here = find(ended[at])) {
            any_before = here;
            if (is_in_place(ended[at])) before = here;
        }
    }
}

}  // namespace libzentadbpp
