#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "documents/history.h"
#include "documents/revision.h"
#include "documents/tree_revision.h"
#include "memory/arena.h"
#include "memory/shared_memory.h"

namespace libzentadbpp {

class MultiVersionDocument;
using DocumentRef = std::shared_ptr<const MultiVersionDocument>;

// One document: its id and the tree of all its known revisions. Immutable, and so shared between storages and threads.
//
// A history is linear until two copies edit the document independently: then a revision has several children, and each
// branch ends in a leaf. A closed branch ends in a resolved revision and has no leaf. A deleted branch ends in a
// deleted revision, which is a leaf like any other. The winning revision is the leaf with the longest history; of
// equally long ones, the lowest in revision order. Copies that know the same revisions have the same winner.
//
// Generations are positions in the history, so the length of a revision's history is its generation.
class MultiVersionDocument {
   public:
    // A document from its revisions in any order, `parent` being a position in `revisions`. An empty tree is allowed.
    // Empty id: InvalidDocumentException. The texts are copied into the memory (without one, into a separate block).
    // Exactly one revision has no parent, unless there are no revisions. Of equal revisions the first stays.
    static DocumentRef make(std::string_view id, std::span<const TreeRevision> revisions, SharedMemory& memory);
    static DocumentRef make(std::string_view id, std::span<const TreeRevision> revisions);
    // The same in memory of the arena (texts are not copied and must live as long as it does); `owner` keeps that
    // memory alive. `history` is the folded tree if the caller has it already (a text that lives as long), else
    // empty.
    static DocumentRef make_in(Arena& arena, const std::shared_ptr<const void>& owner, std::string_view id,
                               std::span<const TreeRevision> revisions, std::string_view history);
    // A document with the single revision 1-<datahash>_first.
    static DocumentRef first(std::string_view id, std::string_view datahash, SharedMemory& memory);
    static DocumentRef first(std::string_view id, std::string_view datahash);

    // This document with one more revision, a child of the one at `parent`, which carries the data hash. Where that
    // child is known already, an equal document. Where its name is taken by a revision under another parent, which has
    // the same content as this one, the child hangs under an empty revision in between, or under others that give it
    // a name. O(revisions log revisions).
    [[nodiscard]] DocumentRef with_child(std::uint32_t parent, std::string_view datahash) const;
    // The same for several, each the child of the one before.
    [[nodiscard]] DocumentRef with_chain(std::uint32_t parent, std::span<const std::string_view> datahashes,
                                         SharedMemory& memory) const;

    // This document with a resolved revision under each of the leaves (positions, ascending). A leaf for whose closing
    // no name is left stays open. O(revisions log revisions).
    [[nodiscard]] DocumentRef with_resolved(std::span<const std::uint32_t> leaves, SharedMemory& memory) const;

    [[nodiscard]] std::string_view id() const { return id_; }
    // All revisions in ascending revision order; parents come before their children.
    [[nodiscard]] std::span<const TreeRevision> revisions() const { return {revisions_, count_}; }
    // The history array, as it is written.
    [[nodiscard]] std::string_view history() const { return history_; }

    // Position of a revision, by generation and revision string, or nothing. O(log revisions).
    [[nodiscard]] std::optional<std::uint32_t> find(const Revision& revision) const;
    [[nodiscard]] std::optional<std::uint32_t> find(std::uint32_t index, std::string_view text) const;

    [[nodiscard]] bool has_winning() const { return winning_ != no_entry; }
    // Position of the winning revision. Empty tree: RevisionNotFoundException "no_revisions_in_winning", function
    // "get_winning", args the id. No leaf: InvalidStorageTypeException "no_revision_in_document", function "leafs".
    [[nodiscard]] std::uint32_t winning_position() const;
    [[nodiscard]] const TreeRevision& winning() const { return revisions_[winning_position()]; }

    // Positions of the leaves, ascending. Fails as winning does without a leaf ("no_revision_in_document", also for an
    // empty tree). O(revisions).
    [[nodiscard]] std::vector<std::uint32_t> leaves() const;
    // The same, empty if there is none.
    [[nodiscard]] std::vector<std::uint32_t> leaves_or_none() const;

    [[nodiscard]] std::string revision_string(std::uint32_t position) const {
        return revisions_[position].revision_string();
    }

   private:
    MultiVersionDocument() = default;
    static DocumentRef plain_first(std::string_view id, std::string_view datahash, SharedMemory& memory);
    void set_revisions(std::span<const TreeRevision> revisions);

    std::string_view id_;
    std::string_view history_;
    const TreeRevision* revisions_ = nullptr;
    std::uint32_t count_ = 0;
    std::uint32_t winning_ = no_entry;
};

// Reads a history array into revisions in revision order; a revision that is met twice keeps its first parent. An array
// of one entry is read as the revision string "1-<entry>" with that parser's failures.
std::vector<TreeRevision> read_history(std::string_view history_array, Arena& arena);

}  // namespace libzentadbpp
