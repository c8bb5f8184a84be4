#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <memory>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "memory/large_vector.h"

namespace libzentadbpp {

// An immutable map from text keys to values, in ascending byte order of the keys: a B+-tree whose nodes are shared
// between a map and the ones made from it. Copying is O(1). A key is a view into memory that its value keeps alive.
// Any number of threads may read and copy one map at once.
//
// Every node but the root is at least half full, and all leaves are equally deep: a node that overflows is split
// evenly, and nothing is ever taken out.
template <class Value>
class OrderedMap {
   public:
    struct Entry {
        std::string_view key;
        Value value;
    };
    using Entries = LargeVector<Entry>;
    class const_iterator;  // forward, over `const Entry`; valid as long as the map or one that shares its nodes

    OrderedMap() = default;

    // From entries in strictly ascending order. O(n).
    [[nodiscard]] static OrderedMap from_sorted(Entries entries) {
        Children nodes;
        append_nodes(std::move(entries), nodes);
        return OrderedMap(std::move(nodes));
    }

    // This map with the given entries (strictly ascending) inserted, or put in the place of those with equal keys; all
    // untouched nodes are shared with this map. O(changes * log n), and never more than O(n + changes).
    [[nodiscard]] OrderedMap with(Entries changes) const {
        if (changes.empty()) return *this;
        if (empty()) return from_sorted(std::move(changes));
        if (changes.size() > size()) return from_sorted(merged(begin(), end(), size(), changes));
        Children nodes;
        append_changed(*root_, changes, nodes);
        return OrderedMap(std::move(nodes));
    }

    [[nodiscard]] const Value* find(std::string_view key) const { return place_of(key).value; }  // null where absent

    // How many entries come before a key, and its value, or null. O(log n).
    struct Place {
        std::size_t number = 0;
        const Value* value = nullptr;
    };
    [[nodiscard]] Place place_of(std::string_view key) const {
        if (root_ == nullptr) return {};
        const Node* node = root_.get();
        std::size_t before = 0;
        while (!node->children.empty()) {
            const auto child = child_for(node->children, key);
            before += child->before;
            node = child->node.get();
        }
        const auto entry = std::lower_bound(node->entries.begin(), node->entries.end(), key,
                                            [](const Entry& e, std::string_view k) { return e.key < k; });
        before += static_cast<std::size_t>(entry - node->entries.begin());
        return {before, entry != node->entries.end() && entry->key == key ? &entry->value : nullptr};
    }

    // Whether both are copies of one map. Others may have the same entries nevertheless.
    [[nodiscard]] bool is_copy_of(const OrderedMap& other) const { return root_ == other.root_; }
    [[nodiscard]] std::size_t size() const { return root_ == nullptr ? 0 : root_->size; }
    [[nodiscard]] bool empty() const { return root_ == nullptr; }
    [[nodiscard]] const_iterator begin() const { return const_iterator(root_.get()); }
    [[nodiscard]] const_iterator end() const { return const_iterator(); }

   private:
    static constexpr std::size_t fan_out = 64;
    // Half full nodes of 32 reach 2^61 entries with so many levels above the leaves.
    static constexpr std::size_t most_levels = 12;

    struct Node;
    struct Child {
        std::string_view first;  // the lowest key below, kept alive by its entry
        std::shared_ptr<const Node> node;
        std::size_t before;  // entries below the children before it
    };
    using Children = std::vector<Child>;
    struct Node {  // a leaf has entries only, a branch children only
        Entries entries;
        Children children;
        std::size_t size;  // entries below
    };

    // From the nodes of one level.
    explicit OrderedMap(Children level) {
        while (level.size() > 1) {
            Children above;
            append_nodes(std::move(level), above);
            level = std::move(above);
        }
        if (!level.empty()) root_ = std::move(level.front().node);
    }

    static Child node_of(Entries entries) {
        const std::string_view first = entries.front().key;
        const std::size_t size = entries.size();
        return {first, std::make_shared<const Node>(Node{std::move(entries), {}, size}), 0};
    }
    static Child node_of(Children children) {
        const std::string_view first = children.front().first;
        std::size_t size = 0;
        for (Child& child : children) {
            child.before = size;
            size += child.node->size;
        }
        return {first, std::make_shared<const Node>(Node{{}, std::move(children), size}), 0};
    }

    // Appends as few nodes as hold the items, evenly filled.
    template <class Items>
    static void append_nodes(Items items, Children& nodes) {
        if (items.empty()) return;
        if (items.size() <= fan_out) {
            nodes.push_back(node_of(std::move(items)));
            return;
        }
        const std::size_t count = (items.size() + fan_out - 1) / fan_out;
        nodes.reserve(nodes.size() + count);
        auto begin = std::make_move_iterator(items.begin());
        for (std::size_t left = count, rest = items.size(); left > 0; --left) {
            const std::size_t take = rest / left;
            const auto end = begin + static_cast<std::ptrdiff_t>(take);
            nodes.push_back(node_of(Items(begin, end)));
            begin = end;
            rest -= take;
        }
    }

    template <class Iterator>
    static Entries merged(Iterator entry, Iterator end, std::size_t count, std::span<Entry> changes) {
        Entries result;
        result.reserve(count + changes.size());
        for (Entry& change : changes) {
            for (; entry != end && entry->key < change.key; ++entry) result.push_back(*entry);
            if (entry != end && entry->key == change.key) ++entry;
            result.push_back(std::move(change));
        }
        for (; entry != end; ++entry) result.push_back(*entry);
        return result;
    }

    // Appends what the node becomes: one node or more, of the same height. Recursive over the height.
    static void append_changed(const Node& node, std::span<Entry> changes, Children& nodes) {
        if (node.children.empty()) {
            append_nodes(merged(node.entries.begin(), node.entries.end(), node.size, changes), nodes);
            return;
        }
        Children children;
        children.reserve(node.children.size() + 1);
        auto unchanged = node.children.begin();
        while (!changes.empty()) {
            const auto child = child_for(node.children, changes.front().key);
            children.insert(children.end(), unchanged, child);
            unchanged = child + 1;
            std::size_t below = changes.size();
            if (unchanged != node.children.end()) {
                const auto next = std::lower_bound(changes.begin(), changes.end(), unchanged->first,
                                                   [](const Entry& e, std::string_view k) { return e.key < k; });
                below = static_cast<std::size_t>(next - changes.begin());
            }
            append_changed(*child->node, changes.first(below), children);
            changes = changes.subspan(below);
        }
        children.insert(children.end(), unchanged, node.children.end());
        append_nodes(std::move(children), nodes);
    }

    // The child whose range holds the key: the last one that does not begin after it, else the first.
    static typename Children::const_iterator child_for(const Children& children, std::string_view key) {
        return std::upper_bound(children.begin() + 1, children.end(), key,
                                [](std::string_view k, const Child& c) { return k < c.first; }) -
               1;
    }

    std::shared_ptr<const Node> root_;
};

template <class Value>
class OrderedMap<Value>::const_iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Entry;
    using difference_type = std::ptrdiff_t;
    using pointer = const Entry*;
    using reference = const Entry&;

    const_iterator() = default;

    reference operator*() const { return *entry_; }
    pointer operator->() const { return entry_; }
    const_iterator& operator++() {
        if (++entry_ == leaf_end_) next_leaf();
        return *this;
    }
    const_iterator operator++(int) {
        const_iterator before = *this;
        ++*this;
        return before;
    }
    friend bool operator==(const const_iterator& a, const const_iterator& b) { return a.entry_ == b.entry_; }

    // If both are at the same entry, their maps share the rest of its node: moves both behind it. Otherwise moves
    // neither.
    friend bool skip_shared(const_iterator& a, const_iterator& b) {
        if (a.entry_ == nullptr || a.entry_ != b.entry_) return false;
        a.next_leaf();
        b.next_leaf();
        return true;
    }

   private:
    friend class OrderedMap;

    explicit const_iterator(const Node* root) {
        if (root != nullptr) descend(root);
    }

    void descend(const Node* node) {
        while (!node->children.empty()) {
            const Child* first = node->children.data();
            levels_[depth_++] = {first + 1, first + node->children.size()};
            node = first->node.get();
        }
        entry_ = node->entries.data();
        leaf_end_ = entry_ + node->entries.size();
    }

    void next_leaf() {
        entry_ = nullptr;
        while (depth_ > 0) {
            Level& level = levels_[depth_ - 1];
            if (level.next != level.end) {
                descend((level.next++)->node.get());
                return;
            }
            --depth_;
        }
    }

    struct Level {  // the children that are still to come
        const Child* next;
        const Child* end;
    };

    const Entry* entry_ = nullptr;  // null at the end
    const Entry* leaf_end_ = nullptr;
    std::size_t depth_ = 0;
    std::array<Level, most_levels> levels_{};
};

// Calls `visit(entry, other)` for the entries of a map in order, `other` being that of the other map under the same
// key, or null. What lies in nodes that both maps share is passed over unless the caller wants that too.
enum class Shared : bool { passed_over, visited };
template <class Value, class Visit>
void visit_beside(const OrderedMap<Value>& map, const OrderedMap<Value>& beside, const Visit& visit,
                  Shared shared = Shared::passed_over) {
    auto other = beside.begin();
    const auto end = beside.end();
    for (auto entry = map.begin(); entry != map.end();) {
        if (shared == Shared::passed_over && skip_shared(entry, other)) continue;
        int order = 1;
        while (other != end && (order = other->key.compare(entry->key)) < 0) {
            ++other;
            order = 1;
        }
        visit(*entry, order == 0 ? &*other : nullptr);
        ++entry;
        if (order == 0) ++other;
    }
}

}  // namespace libzentadbpp
