#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "contents/document_index.h"
#include "data/data_hash.h"
#include "documents/document_storage.h"
#include "transformation/domain_table.h"
#include "transformation/own_lists.h"
#include "transformation/reference_graph.h"
#include "transformation/taken_places.h"

namespace libzentadbpp {

// A list to be stored. All other leaves of its document are closed then, as whoever stores it has read them.
struct ListToStore {
    std::uint32_t domain;
    std::uint32_t document;  // OwnLists::none: a new one
    std::span<const std::uint32_t> elements;
    bool is_changed = true;  // otherwise leaves are closed and nothing else
};

// What the data holds that was read, or that an update brought: which documents, and the list of every array.
struct HeldData {
    using List = std::optional<std::span<const std::uint32_t>>;
    std::function<bool(std::uint32_t)> has_document;
    std::function<List(std::uint32_t)> list_of;  // by domain; nothing for an array that is not in the data
    bool stores_empty_lists;                     // an update writes none
};

// Keeps the other stored lists in line with the data. An own document whose array is not in the data may list what the
// data has somewhere else: that was moved, and would show in both places once the array comes back. It leaves the list.
// What is nowhere in the data stays listed, and what was carried along with an object that holds the array does too.
class ListKeeper {
   public:
    ListKeeper(const DocumentIndex& index, OwnLists& own, const ReferenceGraph& references, DomainTable& domains,
               Arena& arena, HeldData held)
        : index_(&index),
          own_(&own),
          references_(&references),
          domains_(&domains),
          arena_(&arena),
          held_(std::move(held)),
          places_(index, domains, arena) {}

    // Adds to `lists`, which are those that are stored for the arrays of the data. Linear, n log n if anything was
    // moved.
    void add_to(std::vector<ListToStore>& lists);

   private:
    using Numbers = std::unordered_set<std::uint32_t>;
    // The list of an own document once it was stored.
    struct Stored {
        std::span<const std::uint32_t> elements;
        Numbers numbers;
    };

    void count_places();
    [[nodiscard]] bool is_in(std::uint32_t number, std::uint32_t domain);
    [[nodiscard]] bool is_kept(const OwnLists::Leaf& leaf) const;
    [[nodiscard]] bool is_elsewhere(std::uint32_t number, std::uint32_t domain);
    [[nodiscard]] bool is_listed_beside(std::uint32_t number, std::uint32_t document, std::uint32_t places,
                                        std::uint32_t other = OwnLists::none);
    [[nodiscard]] bool lists_now(std::uint32_t document, std::uint32_t number);
    void look_through_documents_with(const Numbers& domains);
    void take_out_moved(std::vector<ListToStore>& lists);
    [[nodiscard]] Stored without_moved(std::uint32_t document, std::uint32_t domain);
    void keep_carried_along(std::vector<ListToStore>& lists);
    [[nodiscard]] Numbers dropped_now(std::uint32_t document);

    const DocumentIndex* index_;
    OwnLists* own_;
    const ReferenceGraph* references_;
    DomainTable* domains_;
    Arena* arena_;
    HeldData held_;
    TakenPlaces places_;
    std::vector<std::uint32_t> places_of_;                // by document: how many arrays of the data have it
    std::unordered_map<std::uint32_t, Numbers> members_;  // of the arrays of the data that were asked for
    std::deque<Stored> stored_;
    std::unordered_map<std::uint32_t, const Stored*> stored_by_document_;
};

// A document whose winning revision is deleted stays as it is.
[[nodiscard]] bool may_store(const DocumentIndex& index, const ListToStore& list);

// Writes lists into a storage, each on the winning revision of its document if possible. Hashes are of the given kind,
// or else of the kind of the document or the domain. O(lists + storage).
[[nodiscard]] DocumentStorage store_lists(const DocumentIndex& index, std::string_view instance,
                                          const DomainTable& domains, std::span<const ListToStore> lists,
                                          std::optional<HashKind> hash_kind = std::nullopt);

}  // namespace libzentadbpp
