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

// Brings items into ascending order of their texts; stable.
template <class Items, class TextOf>
void sort_by_text(Items& items, const TextOf& text_of) {
    LargeVector<std::string_view> texts;
    texts.reserve(items.size());
    bool is_sorted = true;
    for (const auto& item : items) {
        const std::string_view text = text_of(item);
        is_sorted = is_sorted && (texts.empty() || texts.back() <= text);
        texts.push_back(text);
    }
    if (is_sorted) return;
    Items sorted;
    sorted.reserve(items.size());
    for (const std::uint32_t at : text_order(texts)) sorted.push_back(std::move(items[at]));
    items = std::move(sorted);
}

}  // namespace libzentadbpp
