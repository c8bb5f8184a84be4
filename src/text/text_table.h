#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "memory/large_vector.h"
#include "memory/prefetch.h"

namespace libzentadbpp {

// Numbers different texts, counted from zero in the order of adding, and finds the number of a text. The texts must
// outlive it. Hashing has a random seed, so that nobody can choose texts that collide.
class TextTable {
   public:
    TextTable() : TextTable(0) {}
    explicit TextTable(std::size_t expected);  // how many texts there will be, as far as that is known
    // Of texts that all differ.
    explicit TextTable(LargeVector<std::string_view> texts);
    struct Added {
        std::uint32_t number;
        bool is_new;
    };
    Added add(std::string_view text);
    [[nodiscard]] bool empty() const { return texts_.empty(); }
    [[nodiscard]] std::size_t size() const { return texts_.size(); }
    [[nodiscard]] std::string_view text(std::uint32_t number) const { return texts_[number]; }
    void prefetch_entry(std::uint32_t number) const { prefetch_at(&texts_[number]); }
    [[nodiscard]] std::optional<std::uint32_t> find(std::string_view text) const;

   private:
    static constexpr std::uint32_t free_slot = 0xffffffff;
    struct Slot {
        std::uint32_t tag;
        std::uint32_t number;
    };

    [[nodiscard]] std::uint64_t hash(std::string_view text) const;
    // The slot of the text, or the free slot for it.
    [[nodiscard]] std::size_t slot_of(std::string_view text, std::uint64_t code) const;
    void grow();

    std::uint64_t seed_;
    LargeVector<std::string_view> texts_;
    LargeVector<Slot> slots_;
    std::size_t mask_;
};

}  // namespace libzentadbpp
