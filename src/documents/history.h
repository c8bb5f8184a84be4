#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "memory/arena.h"
#include "memory/text_buffer.h"

namespace libzentadbpp {

// The history array: how a revision tree is written.
//
//   ["A_first", "B_A", ["C_B", ["D_B", "E_D"]]]      1-A_first -- 2-B_A -+- 3-C_B
//                                                                        +- 3-D_B -- 4-E_D
//
// Entries follow one another for as long as each has one child; more than one child are an array of branches, the last
// entry: a branch of one entry is a plain string, a longer one an array written the same way. What the entries mean is
// their reader's business.

inline constexpr std::uint32_t no_entry = static_cast<std::uint32_t>(-1);

class HistoryVisitor {
   public:
    // An entry of the given generation (counted from 1) under `parent`: the value that the visitor returned for the
    // entry above, or no_entry for the first one.
    virtual std::uint32_t visit(std::string_view entry, std::uint32_t generation, std::uint32_t parent) = 0;

   protected:
    ~HistoryVisitor() = default;
};

// Reads a history array (a well-formed JSON array, of any depth) and visits its entries, parents first. An entry of
// another kind ends its chain. Throws InvalidRevisionException, function "unfold": "revision_not_a_string" or
// "empty_revstring" for the first entry. Decoded strings lie in the arena. Never recurses; linear.
void unfold(std::string_view history_array, Arena& arena, HistoryVisitor& visitor);

struct HistoryEntry {
    std::string_view text;
    std::uint32_t parent;  // position of the parent, which comes before; no_entry for the first
};

// Appends the history array of a tree. Among the entries parents come first, and the children of one parent are in the
// order of the branches. Exactly one entry has no parent, unless there are no entries. Never recurses; linear.
void fold(std::span<const HistoryEntry> entries, TextBuffer& out);

}  // namespace libzentadbpp
