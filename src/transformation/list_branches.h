#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "contents/document_index.h"
#include "contents/ordering_lists.h"
#include "documents/multiversion_document.h"

namespace libzentadbpp {

// How the leaves of an ordering document merge: the list of one is changed by what each other one did since its start.
struct ListBranches {
    struct Branch {
        std::uint32_t leaf;
        std::uint32_t start;  // no_entry: it began with the empty list
    };
    std::uint32_t base;
    std::vector<Branch> others;  // ascending
};

// For leaves in ascending order. The base is the leaf with the fewest closed revisions above it; of several, the first
// in winning order. Whoever closed a revision had read it. A branch starts at the nearest revision above it that is
// closed or is also above the base; if that one only avoids a name clash, at the next one above. If two copies made the
// first list of an array, one tree hangs under the other's first revision, and the branches of both start with the
// empty list. O(revisions).
[[nodiscard]] ListBranches list_branches(const MultiVersionDocument& document, std::span<const std::uint32_t> leaves);

// Whether the first revision is the only one of its tree that others were grafted under: nothing follows it there, so
// it counts as a leaf.
[[nodiscard]] bool first_is_leaf(const MultiVersionDocument& document);

// Whether the document has other leaves than the winning one, the first revision included.
[[nodiscard]] bool has_other_leaves(const MultiVersionDocument& document);

// The other leaves, ascending.
[[nodiscard]] std::vector<std::uint32_t> other_leaves(const MultiVersionDocument& document);

// Calls `visit(list, is_winning)` for the list of every leaf of the ordering documents, the winning one of each
// document first.
template <class Visit>
void visit_open_lists(const DocumentIndex& index, OrderingLists& reader, const Visit& visit) {
    const auto [first, end] = index.ordering_ids();
    for (std::uint32_t number = first; number < end; ++number) {
        const MultiVersionDocument& document = index.document(number);
        if (!index.is_ordering(number) || !document.has_winning()) continue;
        const auto read = [&](std::uint32_t leaf) {
            const auto list = reader.read(number, leaf);
            if (list) visit(*list, leaf == document.winning_position());
        };
        read(document.winning_position());
        if (!has_other_leaves(document)) continue;
        for (const std::uint32_t leaf : other_leaves(document)) read(leaf);
    }
}

}  // namespace libzentadbpp
