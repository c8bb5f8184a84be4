#include "common/arena.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace libzentadbpp {

void* Arena::allocate(std::size_t bytes, std::size_t alignment) {
    const std::size_t misaligned = reinterpret_cast<std::uintptr_t>(free_) & (alignment - 1);
    const std::size_t padding = misaligned == 0 ? 0 : alignment - misaligned;
    if (padding <= left_ && bytes <= left_ - padding) {
        std::byte* place = free_ + padding;
        free_ = place + bytes;
        left_ -= padding + bytes;
        return place;
    }
    // A large request gets memory of its own, so that it does not waste what is left of this block.
    if (bytes > largest_block / 4) {
        return blocks_.emplace_back(std::make_unique_for_overwrite<std::byte[]>(bytes)).get();
    }
    while (next_block_ < bytes * 2) next_block_ *= 2;
    std::byte* block = blocks_.emplace_back(std::make_unique_for_overwrite<std::byte[]>(next_block_)).get();
    free_ = block + bytes;
    left_ = next_block_ - bytes;
    next_block_ = std::min(next_block_ * 2, largest_block);
    return block;
}

std::string_view Arena::copy(std::string_view text) {
    if (text.empty()) return {};
    char* place = static_cast<char*>(allocate(text.size(), 1));
    std::memcpy(place, text.data(), text.size());
    return {place, text.size()};
}

}  // namespace libzentadbpp
