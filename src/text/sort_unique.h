#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace libzentadbpp {

// Brings values into ascending order, each once.
template <class Value>
void sort_unique(std::vector<Value>& values) {
    std::ranges::sort(values);
    values.erase(std::unique(values.begin(), values.end()), values.end());
}

// Brings elements into ascending order; of equal ones the last stays. Returns how many are left: the first so many.
template <class Elements, class Before>
[[nodiscard]] std::size_t sort_keeping_last(Elements& elements, const Before& before) {
    std::ranges::stable_sort(elements, before);
    std::size_t kept = 0;
    for (std::size_t i = 0; i < elements.size(); ++i) {
        if (i + 1 != elements.size() && !before(elements[i], elements[i + 1])) continue;
        if (kept != i) elements[kept] = std::move(elements[i]);
        ++kept;
    }
    return kept;
}

}  // namespace libzentadbpp
