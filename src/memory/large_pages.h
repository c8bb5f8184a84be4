#pragma once

#include <cstddef>
#include <memory>

namespace libzentadbpp {

// Memory that the system hands out in pages of 4 KiB costs about as much to get as to fill. Where many megabytes are
// due, they are asked for in large pages; a system without them gives small ones.

inline constexpr std::size_t large_page = std::size_t{2} << 20;

struct UnmapPages {
    std::size_t bytes = 0;
    void operator()(std::byte* pages) const noexcept;
};
using MappedPages = std::unique_ptr<std::byte[], UnmapPages>;

// At least that many bytes, aligned for large pages; null if the system has none.
[[nodiscard]] MappedPages map_large_pages(std::size_t bytes);

// Advice for memory that was allocated otherwise and is about to be filled. Little memory stays as it is.
void prefer_large_pages(void* memory, std::size_t bytes) noexcept;

}  // namespace libzentadbpp
