#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "documents/history.h"
#include "documents/revision.h"

namespace libzentadbpp {

// A revision inside its document's tree. Its text, the data hash, "_" and the suffix, is a view into memory that the
// document keeps alive; generation and text together are the revision string.
struct TreeRevision {
    std::string_view text;
    std::size_t datahash_length;
    std::uint32_t index;   // generation, from 1; always the parent's plus one
    std::uint32_t parent;  // position of the parent in the tree; no_entry for the first revision

    // `text` must consist of exactly two pieces: InvalidRevisionException otherwise ("invalid_revision_string_format").
    static TreeRevision make(std::string_view text, std::uint32_t index, std::uint32_t parent);

    [[nodiscard]] std::string_view datahash() const { return text.substr(0, datahash_length); }
    [[nodiscard]] std::string_view suffix() const { return text.substr(datahash_length + 1); }
    [[nodiscard]] bool is_deleted() const { return datahash() == deleted_hash; }
    [[nodiscard]] bool is_resolved() const { return datahash() == resolved_hash; }
    // Whether a tree that began here was grafted under the first revision of its ordering document.
    [[nodiscard]] bool is_graft() const { return index == 2 && suffix() == first_suffix; }
    [[nodiscard]] std::string revision_string() const;
};

// Revision order: ascending generations, then the bytes of the texts.
[[nodiscard]] inline bool precedes(const TreeRevision& a, const TreeRevision& b) {
    return a.index != b.index ? a.index < b.index : a.text < b.text;
}

// The revisions in revision order, each once, their parents being positions in the result. Of equal ones the first
// stays, and with it its parent or the lowest parent of all of them. O(n log n), whatever the texts are.
enum class ParentOfEqual : bool { first, lowest };
[[nodiscard]] std::vector<TreeRevision> in_order(std::span<const TreeRevision> revisions,
                                                 ParentOfEqual parent = ParentOfEqual::first);

// For each revision of a tree, whether it has children.
[[nodiscard]] std::vector<bool> which_have_children(std::span<const TreeRevision> tree);

}  // namespace libzentadbpp
