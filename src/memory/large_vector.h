#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "memory/large_pages.h"

namespace libzentadbpp {

// Allocates like std::allocator, and uses large pages for large blocks.
template <class T>
struct LargePageAllocator {
    using value_type = T;

    LargePageAllocator() = default;
    template <class Other>
    LargePageAllocator(const LargePageAllocator<Other>& /*other*/) noexcept {}

    [[nodiscard]] T* allocate(std::size_t count) {
        T* const memory = std::allocator<T>().allocate(count);
        prefer_large_pages(memory, std::span(memory, count).size_bytes());
        return memory;
    }
    void deallocate(T* memory, std::size_t count) noexcept { std::allocator<T>().deallocate(memory, count); }

    friend bool operator==(const LargePageAllocator& /*a*/, const LargePageAllocator& /*b*/) { return true; }
};

// For what is as long as a storage has documents, or longer.
template <class T>
using LargeVector = std::vector<T, LargePageAllocator<T>>;

}  // namespace libzentadbpp
