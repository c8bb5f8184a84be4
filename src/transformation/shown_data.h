#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "contents/document_index.h"
#include "contents/ordering_lists.h"
#include "contents/renumbering.h"
#include "memory/arena.h"
#include "memory/by_number.h"
#include "memory/prefetch.h"
#include "transformation/domain_table.h"
#include "transformation/list_keeper.h"
#include "transformation/list_merge.h"
#include "transformation/own_lists.h"
#include "transformation/reference_graph.h"

namespace libzentadbpp {

// The data of a storage as one instance sees it: the documents and arrays that it reaches from the root, and the
// elements of every array.
//
// The root is reached. So is everything that the winning contents of reached documents refer to, and everything in the
// lists of reached arrays. An array has the list that OwnLists merged. If a live document remains unreached, other
// lists add it, or it returns to its former place (recover_lost).
class ShownData {
   public:
    // The index must outlive it. What was learned from contents that did not change is taken over from a former one,
    // which is not needed any longer afterwards. O(documents + contents not taken over), n log n where something was
    // lost.
    ShownData(const DocumentIndex& index, std::string_view instance, const ShownData* former = nullptr);
    ShownData(const ShownData&) = delete;
    ShownData& operator=(const ShownData&) = delete;

    [[nodiscard]] const DocumentIndex& index() const { return *index_; }
    [[nodiscard]] std::string_view instance() const { return instance_; }
    [[nodiscard]] bool is_reached(std::uint32_t document) const { return is_reached_[document]; }
    // The elements of a reached array, in order; nothing for one that is not reached.
    [[nodiscard]] std::optional<std::span<const std::uint32_t>> elements(std::string_view domain) const {
        const auto number = domains_.find(domain);
        return number ? reached_elements(*number) : std::nullopt;
    }
    // The same by the number of its domain.
    [[nodiscard]] std::optional<std::span<const std::uint32_t>> reached_elements(std::uint32_t domain) const {
        if (domain >= arrays_.size() || !arrays_[domain].is_reached) return std::nullopt;
        return arrays_[domain].elements;
    }
    // The winning content of a document, together with the members that were lost, or nothing.
    [[nodiscard]] std::optional<std::string_view> content(std::uint32_t document) const {
        if (!restored_.empty()) {
            if (const auto found = restored_.find(document); found != restored_.end()) return found->second;
        }
        return index_->winning_content(document);
    }
    // Whether members that were lost are in it.
    [[nodiscard]] bool is_restored(std::uint32_t document) const { return restored_.contains(document); }
    [[nodiscard]] const ReferenceGraph& references() const { return references_; }
    // The reached documents, nearly always in the order in which a walk from the root comes to them.
    [[nodiscard]] std::span<const std::uint32_t> reading_order() const { return reading_order_; }
    // Bring near what is known of an array, and after that the numbers of its elements.
    void prefetch_array(std::uint32_t domain) const {
        if (domain < arrays_.size()) prefetch_at(&arrays_[domain]);
    }
    void prefetch_elements(std::uint32_t domain) const {
        if (domain < arrays_.size()) prefetch_at(arrays_[domain].elements.data());
    }

    // Whether a read that may write has anything to store: lists of reached arrays that differ from what their own
    // documents say, or whose documents have other leaves, and what that changes about other lists (ListKeeper).
    [[nodiscard]] bool is_stored() const { return lists_to_store_.empty(); }
    // The storage of the index with all of that stored. O(storage) if there is anything.
    [[nodiscard]] DocumentStorage stored() const { return store_lists(*index_, instance_, domains_, lists_to_store_); }

   private:
    friend class LostRecovery;

    struct Array {
        bool is_reached = false;
        std::span<const std::uint32_t> elements;
        std::unique_ptr<MergedList> grown;  // while other lists add to it
    };

    // The former one and how its documents are numbered now; null where nothing can be taken over.
    struct Former {
        const ShownData* data = nullptr;
        std::optional<Renumbering> documents;
    };
    ShownData(const DocumentIndex& index, std::string_view instance, const Former& former);
    [[nodiscard]] ReferenceGraph references_after(const Former& former);
    void take_out_what_was_not_moved();
    void reach(std::uint32_t document);
    void reach_document(std::uint32_t document);
    void reach_array(std::uint32_t domain);
    [[nodiscard]] Array& array(std::uint32_t domain);
    [[nodiscard]] MergedList& grow(std::uint32_t domain);
    void finish_grown();
    void collect_lists_to_store();
    void find_documents(std::vector<ListToStore>& lists);

    const DocumentIndex* index_;
    std::string_view instance_;
    Arena arena_;
    OrderingLists reader_;
    DomainTable domains_;
    OwnLists own_;
    ReferenceGraph references_;
    std::vector<Array> arrays_;  // by domain
    std::vector<bool> is_reached_;
    struct Open {
        std::uint32_t target;
        bool is_array;
    };
    std::vector<Open> open_;                    // what is to be reached, the next one last
    std::size_t reached_documents_ = 0;         // live ones, without ordering documents
    std::vector<std::uint32_t> reading_order_;  // documents in the order in which they were reached
    NumberSet followed_;                        // first references of contents
    std::vector<std::uint32_t> reached_arrays_;
    std::unordered_map<std::uint32_t, std::string_view> restored_;  // contents with their lost members
    std::vector<ListToStore> lists_to_store_;
};

}  // namespace libzentadbpp
