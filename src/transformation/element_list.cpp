#include "transformation/element_list.h"

#include <stdexcept>

namespace libzentadbpp {

void ElementList::insert_after(std::uint32_t node, std::uint32_t number) {
    if (nodes_.size() >= none) throw std::length_error("too many elements");
    const auto inserted = static_cast<std::uint32_t>(nodes_.size());
    const std::uint32_t next = node == none ? head_ : nodes_[node].next;
    nodes_.push_back({number, node, next});
    (node == none ? head_ : nodes_[node].next) = inserted;
    (next == none ? tail_ : nodes_[next].previous) = inserted;
    const auto [entry, is_new] = occurrences_.try_emplace(number, Occurrences{inserted, inserted});
    if (!is_new) entry->second.last = inserted;
}

void ElementList::insert_before_nearest(std::span<const std::uint32_t> following, std::uint32_t number) {
    for (const std::uint32_t candidate : following) {
        if (const auto found = occurrences_.find(candidate); found != occurrences_.end()) {
            insert_after(nodes_[found->second.first].previous, number);
            return;
        }
    }
    insert_after(tail_, number);
}

std::span<const std::uint32_t> ElementList::finish(Arena& arena) const {
    std::vector<std::uint32_t> numbers;
    numbers.reserve(nodes_.size());
    for (std::uint32_t node = head_; node != none; node = nodes_[node].next) numbers.push_back(nodes_[node].number);
    return arena.copy(std::span<const std::uint32_t>(numbers));
}

}  // namespace libzentadbpp
