#pragma once

#include <cstddef>

namespace libzentadbpp {

// Advises the system to use large pages for memory that is about to be filled: pages of 4 KiB cost about as much to get
// as to fill. A system without large pages, or memory without room for one, stays as it is.
void prefer_large_pages(void* memory, std::size_t bytes) noexcept;

}  // namespace libzentadbpp
