#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "common/arena.h"
#include "common/canonical_object.h"
#include "common/pair_scan.h"
#include "documents/document_index.h"
#include "documents/vocabulary.h"

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

    // The list of one revision; nothing where its content is missing or that of no ordering document.
    [[nodiscard]] std::optional<OrderingList> read(std::uint32_t document, std::uint32_t revision);

   private:
    struct Content {
        bool is_list = false;
        std::string_view instance;
        std::string_view domain;
        std::span<const std::uint32_t> elements;
        bool complete = true;
    };
    [[nodiscard]] Content parse(std::string_view text);
    const char* parse_elements(const char* array, const char* end, Content& content);

    const DocumentIndex* index_;
    Arena arena_;
    std::unordered_map<const char*, Content> long_contents_;  // by where their texts lie
    std::vector<std::uint32_t> elements_;
};

// Calls `visit(domain)` for every string of a written content that refers to an array. The domain lives as long as the
// visit.
template <class Visit>
void visit_array_references(std::string_view content, const Visit& visit) {
    const char* const end = content.data() + content.size();
    // In a written text a quote before a letter opens a string, unless it is escaped.
    for (const char* at = content.data(); (at = find_pair(at, end, '"', vocabulary::array_reference_marker)) != end;
         ++at) {
        if (at[-1] == '\\') continue;
        const char* const string_end = written_string_end(at, end);
        if (*string_end == ':') continue;
        visit(DecodedString({at + 2, static_cast<std::size_t>(string_end - at - 3)}).text());
    }
}

// The numbers of the ordering documents.
struct NumberRange {
    std::uint32_t first;
    std::uint32_t end;
};
[[nodiscard]] NumberRange ordering_documents(const DocumentIndex& index);

// Marks the documents that the winning lists of the ordering documents name.
void mark_listed_elements(const DocumentIndex& index, std::vector<bool>& listed);

// For each revision of a document the last one that its history shares with the winning revision's. O(revisions).
[[nodiscard]] std::vector<std::uint32_t> last_common_with_winning(const MultiVersionDocument& document);

}  // namespace libzentadbpp
