#pragma once

#include <optional>
#include <span>
#include <string_view>
#include <unordered_map>

#include "documents/document_storage.h"
#include "json/canonical_object.h"
#include "memory/arena.h"
#include "memory/text_buffer.h"

namespace libzentadbpp {

// The content of an ordering document: {"d": domain, "i": instance, "s": [ids]}, the order of one array as one instance
// wrote it. Contents from elsewhere may have other members too.
struct OrderingContent {
    std::string_view domain;
    std::string_view instance;
    std::string_view ids;  // the array as it is written, and what follows it in the content
};

// Empty if the content is not that of an ordering document. Strings without escapes are slices of the content, others
// are in the arena. O(text before the ids).
[[nodiscard]] std::optional<OrderingContent> read_ordering_content(std::string_view content, Arena& arena);

// Calls `visit(id)` for every element of the array: the id, or nothing if the element is not a string. The id is valid
// during the visit.
template <class Visit>
void visit_listed_ids(std::string_view ids, const Visit& visit) {
    const char* const end = ids.data() + ids.size();
    for (const char* at = ids.data() + 1; *at != ']';) {
        if (*at == ',') at += 2;
        const char* const element = at;
        at = written_value_end(at, end);
        if (*element == '"') {
            const DecodedString id(inside_quotes({element, static_cast<std::size_t>(at - element)}));
            visit(std::optional(id.text()));
        } else {
            visit(std::optional<std::string_view>());
        }
    }
}

void write_ordering_content(std::string_view instance, std::string_view domain, std::span<const std::string_view> ids,
                            TextBuffer& out);

// The ordering documents of a storage: those with an ordering id whose winning content says so, or is missing or
// deleted. A host may give such an id to one of its objects. Any number of documents may share one long content, which
// is looked at once.
class OrderingDocuments {
   public:
    explicit OrderingDocuments(const DataStorage& data) : data_(&data) {}
    [[nodiscard]] bool contains(const MultiVersionDocument& document);
    // The same for a document whose winning content is known; null data: it is not.
    [[nodiscard]] bool contains(const MultiVersionDocument& document, std::string_view winning_content);
    // Whether a content, which must outlive this, is that of an ordering document.
    [[nodiscard]] bool is_list(std::string_view content);

   private:
    const DataStorage* data_;
    std::unordered_map<const char*, bool> long_contents_;  // whether they are lists
};

}  // namespace libzentadbpp
