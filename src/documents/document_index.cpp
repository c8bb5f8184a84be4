#include "documents/document_index.h"

#include <algorithm>

#include "common/arena.h"
#include "common/json_scanner.h"
#include "documents/vocabulary.h"

namespace libzentadbpp {

namespace {

// Recursion is bounded by the depth of one content.
template <class Visit>
void visit_references(const JsonValue& value, const Visit& visit) {
    if (value.is_string()) {
        const std::string_view text = value.as_string();
        if (text.starts_with(vocabulary::object_reference_marker)) visit(text.substr(1));
    } else if (value.is_array()) {
        for (const JsonValue& element : value.elements()) visit_references(element, visit);
    } else if (value.find(vocabulary::no_flatten_key) == nullptr) {
        for (const auto& [key, member] : value.members()) {
            if (key != vocabulary::id_key) visit_references(member, visit);
        }
    }
}

}  // namespace

DocumentIndex::DocumentIndex(const DocumentStorage& storage) : storage_(&storage) {
    documents_.reserve(storage.documents().size());
    for (const auto& entry : storage.documents()) documents_.push_back(entry.value.get());
}

std::optional<std::uint32_t> DocumentIndex::find(std::string_view id) const {
    const auto before = [](const MultiVersionDocument* document, std::string_view key) { return document->id() < key; };
    const auto at = std::lower_bound(documents_.begin(), documents_.end(), id, before);
    if (at == documents_.end() || (*at)->id() != id) return std::nullopt;
    return static_cast<std::uint32_t>(at - documents_.begin());
}

void mark_referenced_objects(const DocumentIndex& index, std::vector<bool>& referenced) {
    for (std::uint32_t number = 0; number < index.size(); ++number) {
        if (!index.is_live(number) || has_ordering_id(index.id(number))) continue;
        const auto content = index.storage().data().find(index.document(number).winning().datahash());
        if (!content || content->find("\"O") == std::string_view::npos) continue;
        Arena arena;
        visit_references(JsonScanner(*content, arena).read_value(0, deepest_content), [&](std::string_view id) {
            if (const auto target = index.find(id)) referenced[*target] = true;
        });
    }
}

}  // namespace libzentadbpp
