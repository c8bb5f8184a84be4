#include "common/arena.h"

#include <algorithm>
#include <cstring>

namespace libzentadbpp {

void* Arena::allocate_block(std::size_t bytes) {
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
