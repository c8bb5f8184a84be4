#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <span>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "contents/document_index.h"
#include "contents/ordering_lists.h"
#include "memory/arena.h"
#include "memory/by_number.h"
#include "transformation/domain_table.h"
#include "transformation/work_limit.h"

namespace libzentadbpp {

// The lists of one instance, as all its copies together left them: for every array the list of its own document, in
// which the branches that copies made are merged (list_branches, MergedList). An entry that one branch took out and
// another kept stays, unless a list of another own document has it: then it was moved there.
//
// The own document of an array is the one with the lowest id that has an open leaf with this instance and the array's
// domain. Open leaves are those that are not deleted and whose content is there.
class OwnLists {
   public:
    static constexpr std::uint32_t none = 0xffffffff;

    // Adds the domains of all arrays that have a list. O(lists), n log n in those that have branches.
    OwnLists(const DocumentIndex& index, std::string_view instance, OrderingLists& reader, DomainTable& domains,
             Arena& arena);

    struct List {
        std::uint32_t document = none;            // the own document; none: no list
        std::span<const std::uint32_t> elements;  // live ones only
        bool is_stored = false;                   // the winning list of the document is just this
        bool has_other_leaves = false;            // the document
    };
    // The list of an array. O(1).
    [[nodiscard]] const List& of(std::uint32_t domain) const {
        return domain < lists_.size() ? lists_[domain] : empty_;
    }
    void set(std::uint32_t domain, std::span<const std::uint32_t> elements);

    // All open leaves of own documents, ascending.
    struct Leaf {
        OrderingList list;
        std::uint32_t domain;
        bool is_winning;
    };
    [[nodiscard]] std::span<const Leaf> leaves() const { return leaves_; }
    // Whether a leaf is part of the list of its array: not so one of a second own document, or one whose start was
    // pruned.
    [[nodiscard]] bool is_part(const Leaf& leaf) const {
        return lists_[leaf.domain].document == leaf.list.document &&
               !unmerged_.contains({leaf.list.document, leaf.list.revision});
    }
    // Whether some live document is listed by open leaves of several own documents.
    [[nodiscard]] bool any_in_several() const { return any_in_several_; }
    // Whether there are ordering documents of other instances.
    [[nodiscard]] bool any_foreign() const { return any_foreign_; }
    // Whether an open leaf of an own document lists a document, those of up to two documents left aside.
    [[nodiscard]] bool is_listed_beside(std::uint32_t number, std::uint32_t document, std::uint32_t other = none);
    // Own documents whose open leaves list a document, ascending. Of many that share one list, the first three.
    [[nodiscard]] std::span<const std::uint32_t> listing(std::uint32_t number);
    // The merged list of any own document, also of one that is not the first of its domain.
    // `is_elsewhere(number)`: whether another own document lists it.
    [[nodiscard]] std::vector<std::uint32_t> merged(std::uint32_t document, std::uint32_t domain,
                                                    const std::function<bool(std::uint32_t)>& is_elsewhere);
    // The documents that any list of an own document ever had, and of these those that some open leaf has no longer.
    // None if that would take too much.
    [[nodiscard]] std::unordered_set<std::uint32_t> ever_listed(std::uint32_t document);
    [[nodiscard]] std::unordered_set<std::uint32_t> dropped(std::uint32_t document);
    // The open leaves of one document.
    [[nodiscard]] std::span<const Leaf> leaves_of(std::uint32_t document) const;
    // Whether so much more work may be done with these lists.
    [[nodiscard]] bool may_take(std::size_t work) { return work_.take(work); }

   private:
    void collect();
    [[nodiscard]] bool is_own(std::uint32_t document, const OrderingContent& winning);
    void add(const OrderingList& list, bool is_winning, bool has_other_leaves);
    void merge_branches();
    void merge_branches_of(std::uint32_t document);
    [[nodiscard]] std::vector<std::uint32_t> merged(std::uint32_t document, std::span<const std::uint32_t> leaves,
                                                    const std::function<bool(std::uint32_t)>& is_elsewhere);
    void collect_listing();
    template <class Visit>
    void visit_listing(const Visit& visit);
    [[nodiscard]] bool is_new_use(const OrderingList& list, std::uint32_t most);

    const DocumentIndex* index_;
    std::string_view instance_;
    OrderingLists* reader_;
    std::uint32_t instance_number_;
    DomainTable* domains_;
    Arena* arena_;
    List empty_;
    std::vector<List> lists_;  // by domain
    std::vector<Leaf> leaves_;
    std::vector<std::uint32_t> branched_;                         // own documents with several open leaves
    std::set<std::pair<std::uint32_t, std::uint32_t>> unmerged_;  // leaves whose start was pruned
    LargeVector<std::uint32_t> listed_by_;                        // by document: an own document that lists it
    bool any_in_several_ = false;
    bool any_foreign_ = false;
    WorkLimit work_;
    struct Uses {
        std::uint32_t last = 0;
        std::uint32_t count = 0;
    };
    ByNumber<Uses> uses_;  // of lists
    // Once they were asked for: by document, where those that list it end, and these one document after the other.
    std::vector<std::size_t> listing_ends_;
    std::vector<std::uint32_t> listing_;
};

}  // namespace libzentadbpp
