#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "contents/document_index.h"
#include "contents/ordering_content.h"
#include "contents/renumbering.h"
#include "memory/arena.h"
#include "memory/by_number.h"
#include "text/text_table.h"

namespace libzentadbpp {

// What one content of ordering documents says: the elements of an array in order.
struct ListContent {
    std::uint32_t number;    // of those that were read, counted from zero
    std::uint32_t instance;  // numbered by the reader: thousands of lists may share a long one
    std::string_view domain;
    std::span<const std::uint32_t> elements;  // the live ones, with repetitions
    bool complete;                            // nothing was left out of `elements`
};

// The list of one revision.
struct OrderingList {
    std::uint32_t document;      // number of the ordering document
    std::uint32_t revision;      // position in its tree
    const ListContent* content;  // shared by all revisions that share the content
};

// Reads the lists of revisions. Any number of revisions may share one long content, so each is read once. The lists
// live as long as this.
class OrderingLists {
   public:
    explicit OrderingLists(const DocumentIndex& index) : index_(&index) {}
    // Takes over the winning lists that were read for a former index, as far as they still have the same elements.
    // O(those lists).
    OrderingLists(const DocumentIndex& index, const OrderingLists& former, const Renumbering& documents);

    // The list of one revision; nothing where its content is missing or not that of an ordering document.
    [[nodiscard]] std::optional<OrderingList> read(std::uint32_t document, std::uint32_t revision);
    // The same for the winning revision and a content that was read already.
    [[nodiscard]] OrderingList read_winning(std::uint32_t document, const OrderingContent& content);
    // The number of an instance, whose text must live as long as this.
    [[nodiscard]] std::uint32_t number_of(std::string_view instance) { return instances_.add(instance).number; }
    // By the number of an instance: its place among all that were numbered so far, in the order of their texts.
    [[nodiscard]] std::vector<std::uint32_t> instance_ranks() const;

   private:
    [[nodiscard]] const ListContent* add(const OrderingContent& content);
    [[nodiscard]] const ListContent* add_with_elements(const OrderingContent& content, bool complete);

    const DocumentIndex* index_;
    Arena arena_;
    TextTable instances_;
    std::uint32_t count_ = 0;
    ListContent not_a_list_{};
    ByNumber<const ListContent*> lists_;  // by content; null for those that were not read
    std::vector<std::uint32_t> elements_;
};

// Marks the documents that the winning lists of the ordering documents name.
void mark_listed_elements(const DocumentIndex& index, std::vector<bool>& listed);

}  // namespace libzentadbpp
