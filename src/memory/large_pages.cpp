#include "memory/large_pages.h"

#include <cstdint>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace libzentadbpp {

#if defined(__linux__)

namespace {

constexpr std::size_t large_page = std::size_t{2} << 20;

}  // namespace

void prefer_large_pages(void* memory, std::size_t bytes) noexcept {
    const std::size_t before = -reinterpret_cast<std::uintptr_t>(memory) & (large_page - 1);
    if (bytes < before + large_page) return;
    madvise(static_cast<std::byte*>(memory) + before, (bytes - before) & ~(large_page - 1), MADV_HUGEPAGE);
}

#else

void prefer_large_pages(void*, std::size_t) noexcept {}

#endif

}  // namespace libzentadbpp
