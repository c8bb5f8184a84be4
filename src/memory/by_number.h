#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "memory/large_vector.h"

namespace libzentadbpp {

// A value for each of many small numbers; it takes no memory until one is asked for.
template <class Value>
class ByNumber {
   public:
    [[nodiscard]] Value& operator[](std::size_t number) {
        if (number >= values_.size()) values_.resize(std::max(number + 1, 2 * values_.size()));
        return values_[number];
    }

    // Null if neither this one nor any higher one was asked for.
    [[nodiscard]] const Value* find(std::size_t number) const {
        return number < values_.size() ? &values_[number] : nullptr;
    }

   private:
    LargeVector<Value> values_;
};

// A set of small numbers.
class NumberSet {
   public:
    // Whether it was not in the set before.
    bool insert(std::size_t number) {
        if (number >= has_.size()) has_.resize(std::max(number + 1, 2 * has_.size()));
        if (has_[number]) return false;
        has_[number] = true;
        return true;
    }
    [[nodiscard]] bool contains(std::size_t number) const { return number < has_.size() && has_[number]; }

   private:
    std::vector<bool> has_;
};

}  // namespace libzentadbpp
