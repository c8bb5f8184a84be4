#include "memory/arena.h"

#include <algorithm>
#include <cstring>

#include "memory/large_pages.h"

namespace libzentadbpp {

void* Arena::allocate_block(std::size_t bytes) {
    // A large request gets memory of its own, so that it does not waste what is left of this block.
    constexpr std::size_t large_request = std::size_t{1} << 18;
    if (bytes > large_request) return new_block(bytes);
    while (next_block_ < bytes * 2) next_block_ *= 2;
    std::byte* const block = new_block(next_block_);
    free_ = block + bytes;
    left_ = next_block_ - bytes;
    next_block_ = std::min(next_block_ * 2, largest_block);
    return block;
}

std::byte* Arena::new_block(std::size_t bytes) {
    std::byte* const block = blocks_.emplace_back(std::make_unique_for_overwrite<std::byte[]>(bytes)).get();
    prefer_large_pages(block, bytes);
    return block;
}

std::string_view Arena::copy(std::string_view text) {
    if (text.empty()) return {};
    char* place = static_cast<char*>(allocate(text.size(), 1));
    std::memcpy(place, text.data(), text.size());
    return {place, text.size()};
}

}  // namespace libzentadbpp
