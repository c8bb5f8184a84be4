#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <unordered_map>
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
    std::span<const std::uint32_t> elements;  // the live ones, with repetitions
    bool complete;                            // nothing was left out of `elements`
};

// Reads the lists of revisions, each content once: any number of revisions may share a long one. The lists live as long
// as this; those of one content have their elements at one place.
class OrderingLists {
   public:
    explicit OrderingLists(const DocumentIndex& index) : index_(&index) {}

    // The list of one revision; nothing where its content is missing or that of no ordering document.
    [[nodiscard]] std::optional<OrderingList> read(std::uint32_t document, std::uint32_t revision);

   private:
    struct Content {
        bool is_list = false;
        std::string_view instance;
        std::string_view domain;
        std::vector<std::uint32_t> elements;
        bool complete = true;
    };
    [[nodiscard]] Content parse(std::string_view text);

    const DocumentIndex* index_;
    Arena arena_;
    std::unordered_map<const char*, Content> contents_;  // by where their texts lie
};

// Calls `visit(domain)` for every string of a written content that refers to an array.
template <class Visit>
void visit_array_references(std::string_view content, const Visit& visit) {
    // In a written text a quote before a letter opens a string, unless it is escaped.
    constexpr std::string_view opening = "\"A";
    for (std::size_t at = content.find(opening); at != std::string_view::npos; at = content.find(opening, at + 1)) {
        if (content[at - 1] == '\\') continue;
        const std::size_t end = content.find('"', at + 1);
        if (content[end + 1] != ':') visit(content.substr(at + 2, end - at - 2));
    }
}

// Marks the documents that the winning lists of the ordering documents name.
void mark_listed_elements(const DocumentIndex& index, std::vector<bool>& listed);

// For each revision of a document the last one that its history shares with the winning revision's. O(revisions).
[[nodiscard]] std::vector<std::uint32_t> last_common_with_winning(const MultiVersionDocument& document);

}  // namespace libzentadbpp
