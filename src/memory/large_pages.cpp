#include "memory/large_pages.h"

#include <cstdint>
#include <limits>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace libzentadbpp {

#if defined(__linux__)

namespace {

// How far it is from a place to the next one where a large page may begin.
std::size_t to_large_page(const void* place) { return -reinterpret_cast<std::uintptr_t>(place) & (large_page - 1); }

}  // namespace

void UnmapPages::operator()(std::byte* pages) const noexcept { munmap(pages, bytes); }

MappedPages map_large_pages(std::size_t bytes) {
    if (bytes > std::numeric_limits<std::size_t>::max() / 2) return {};
    bytes = (bytes + large_page - 1) & ~(large_page - 1);
    void* const mapping = mmap(nullptr, bytes + large_page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED) return {};
    const std::size_t before = to_large_page(mapping);
    auto* const pages = static_cast<std::byte*>(mapping) + before;
    if (before != 0) munmap(mapping, before);
    munmap(pages + bytes, large_page - before);
    madvise(pages, bytes, MADV_HUGEPAGE);
    return {pages, UnmapPages{bytes}};
}

void prefer_large_pages(void* memory, std::size_t bytes) noexcept {
    if (bytes < 2 * large_page) return;
    const std::size_t before = to_large_page(memory);
    madvise(static_cast<std::byte*>(memory) + before, (bytes - before) & ~(large_page - 1), MADV_HUGEPAGE);
}

#else

void UnmapPages::operator()(std::byte*) const noexcept {}
MappedPages map_large_pages(std::size_t) { return {}; }
void prefer_large_pages(void*, std::size_t) noexcept {}

#endif

}  // namespace libzentadbpp
