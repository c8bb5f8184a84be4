#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace libzentadbpp {

// Finds the number of a text among texts that are all known beforehand; of equal texts the first. The texts must
// outlive it. Hashing is seeded anew for every table, so that nobody can choose texts that collide.
class TextTable {
   public:
    explicit TextTable(std::size_t size);  // for at most that many
    // Numbers count from zero, in the order of adding.
    void add(std::string_view text);
    [[nodiscard]] std::optional<std::uint32_t> find(std::string_view text) const;

   private:
    static constexpr std::uint32_t free_slot = 0xffffffff;
    struct Slot {
        std::uint32_t tag;
        std::uint32_t number;
    };

    [[nodiscard]] std::uint64_t hash(std::string_view text) const;

    std::uint64_t seed_;
    std::vector<std::string_view> texts_;
    std::vector<Slot> slots_;
    std::size_t mask_;
};

}  // namespace libzentadbpp
