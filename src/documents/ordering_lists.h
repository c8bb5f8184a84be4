#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "common/arena.h"
#include "documents/document_index.h"

namespace libzentadbpp {

// What one revision of an ordering document says: the elements of an array in order.
struct OrderingList {
    std::uint32_t document;  // number of the ordering document
    std::uint32_t revision;  // position in its tree
    std::string_view instance;
    std::string_view domain;
    std::vector<std::uint32_t> elements;  // the live ones, with repetitions
    bool complete;                        // nothing was left out of `elements`
};

// The list of one revision; nothing where its content is missing or that of no ordering document. The texts lie in the arena
// and the storage.
[[nodiscard]] std::optional<OrderingList> read_ordering_list(const DocumentIndex& index, std::uint32_t document,
                                                             std::uint32_t revision, Arena& arena);

// Marks the documents that the winning lists of the ordering documents name.
void mark_listed_elements(const DocumentIndex& index, Arena& arena, std::vector<bool>& listed);

// For each revision of a document the last one that its history shares with the winning revision's. O(revisions).
[[nodiscard]] std::vector<std::uint32_t> last_common_with_winning(const MultiVersionDocument& document);

}  // namespace libzentadbpp
