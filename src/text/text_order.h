#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "memory/large_vector.h"

namespace libzentadbpp {

// The positions of texts in ascending byte order of the texts; equal ones stay in the order given. Sorts eight bytes at
// a time as numbers, which takes a quarter of the time of comparing texts. O(all bytes) for many, O(n log n) compares
// among few; at most 2^32 texts.
[[nodiscard]] std::vector<std::uint32_t> text_order(std::span<const std::string_view> texts);

// The same, and whether any texts are equal: sorting finds them on its way.
struct TextOrder {
    std::vector<std::uint32_t> positions;
    bool any_equal = false;
};
[[nodiscard]] TextOrder text_order_and_equals(std::span<const std::string_view> texts);

// Brings items into ascending order of their texts; stable. Returns whether any texts are equal.
template <class Items, class TextOf>
bool sort_by_text(Items& items, const TextOf& text_of) {
    LargeVector<std::string_view> texts;
    texts.reserve(items.size());
    bool is_sorted = true;
    bool any_equal = false;
    for (const auto& item : items) {
        const std::string_view text = text_of(item);
        const int order = is_sorted && !texts.empty() ? texts.back().compare(text) : -1;
        is_sorted = is_sorted && order <= 0;
        any_equal = any_equal || order == 0;
        texts.push_back(text);
    }
    if (is_sorted) return any_equal;
    const TextOrder order = text_order_and_equals(texts);
    Items sorted;
    sorted.reserve(items.size());
    for (const std::uint32_t at : order.positions) sorted.push_back(std::move(items[at]));
    items = std::move(sorted);
    return order.any_equal;
}

}  // namespace libzentadbpp
