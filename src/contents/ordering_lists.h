#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "contents/document_index.h"
#include "contents/ordering_content.h"
#include "memory/arena.h"

namespace libzentadbpp {

// What one revision of an ordering document says: the elements of an array in order.
struct OrderingList {
    std::uint32_t document;  // number of the ordering document
    std::uint32_t revision;  // position in its tree
    std::string_view instance;
    std::string_view domain;
    std::span<const std::uint32_t> elements;  // the live ones, with repetitions
    bool complete;                            // nothing was left out of `elements`
    const char* content;                      // where it is written: at one place for all revisions that share it
};

// Reads the lists of revisions. Any number of revisions may share one long content, so that is read once. The lists
// live as long as this.
class OrderingLists {
   public:
    explicit OrderingLists(const DocumentIndex& index) : index_(&index) {}

    // The list of one revision; nothing where its content is missing or not that of an ordering document.
    [[nodiscard]] std::optional<OrderingList> read(std::uint32_t document, std::uint32_t revision);
    // The same for the winning revision and a content that was read already.
    [[nodiscard]] OrderingList read_winning(std::uint32_t document, const OrderingContent& content);

   private:
    struct Elements {
        std::span<const std::uint32_t> live;
        bool complete = true;
    };
    struct Known {
        std::optional<OrderingContent> content;
        Elements elements;
    };
    [[nodiscard]] Known parse(std::string_view text);
    [[nodiscard]] Elements elements_of(std::string_view ids);

    const DocumentIndex* index_;
    Arena arena_;
    std::unordered_map<const char*, Known> long_contents_;  // by where their texts lie
    std::vector<std::uint32_t> elements_;
};

// Marks the documents that the winning lists of the ordering documents name.
void mark_listed_elements(const DocumentIndex& index, std::vector<bool>& listed);

}  // namespace libzentadbpp
