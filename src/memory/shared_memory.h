#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "memory/arena.h"

namespace libzentadbpp {

// Memory for things that are shared and outlive a call, or end with it, as it was made: many small things share a
// block, which lives as long as any of them. Blocks are small, so that little is kept alive by what happens to stay.
class SharedMemory {
   public:
    SharedMemory() = default;
    // Takes it all from an arena that outlives whatever is placed: then nothing is counted.
    explicit SharedMemory(Arena& arena) : arena_(&arena) {}
    // A block for everything, for what comes alone.
    [[nodiscard]] static SharedMemory unshared() {
        SharedMemory memory;
        memory.largest_shared_ = 0;
        return memory;
    }

    struct Place {
        char* bytes;  // aligned for numbers and pointers
        std::shared_ptr<const void> owner;
    };
    // Whether texts that lie in that arena may be kept as they are.
    [[nodiscard]] bool is_arena() const { return arena_ != nullptr; }

    [[nodiscard]] Place allocate(std::size_t bytes) {
        constexpr std::size_t word = sizeof(std::uint64_t);
        if (arena_ != nullptr) return {static_cast<char*>(arena_->allocate(bytes, word)), nullptr};
        const std::size_t words = bytes / word + (bytes % word == 0 ? 0 : 1);
        if (words > largest_shared_) return place_of(std::make_shared_for_overwrite<std::uint64_t[]>(words), 0);
        if (words > block_words - used_) {
            block_ = std::make_shared_for_overwrite<std::uint64_t[]>(block_words);
            used_ = 0;
        }
        const std::size_t at = used_;
        used_ += words;
        return place_of(block_, at);
    }

   private:
    static constexpr std::size_t block_words = 1024;

    static Place place_of(const std::shared_ptr<std::uint64_t[]>& block, std::size_t word) {
        return {reinterpret_cast<char*>(block.get() + word), block};
    }

    Arena* arena_ = nullptr;
    std::size_t largest_shared_ = block_words / 4;
    std::shared_ptr<std::uint64_t[]> block_;
    std::size_t used_ = block_words;
};

}  // namespace libzentadbpp
