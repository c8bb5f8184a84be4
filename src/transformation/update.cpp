#include "transformation/update.h"

#include <algorithm>
#include <string>
#include <unordered_map>

#include "common/canonical_object.h"
#include "common/json_scanner.h"
#include "common/json_writer.h"
#include "data/data_hash.h"
#include "transformation/document_changes.h"
#include "transformation/flattener.h"

namespace libzentadbpp {

namespace {

// An array that is empty or gone gets no ordering document and keeps the one it has from before: an element that was
// removed here but edited on another copy finds its place again. Only where an element lives on, the old list would
// show it there as well as where it went, so then it is emptied.
void add_emptied_lists(const DocumentStorage& storage, const TransformationSettings& settings, Arena& arena,
                       std::vector<FlattenedDocument>& documents) {
    const auto by_id = [](const FlattenedDocument& document, std::string_view id) { return document.id < id; };
    const auto lives_on = [&](const JsonValue& element) {
        const std::string_view id = element.as_string();
        const auto at = std::lower_bound(documents.begin(), documents.end(), id, by_id);
        return (at != documents.end() && at->id == id) || has_ordering_id(id);
    };
    // The content that a list gives way to; none where it stays.
    const auto emptied_list = [&](std::string_view content) -> std::string_view {
        const JsonValue list = JsonScanner(content, arena).read_value(0, deepest_content);
        const JsonValue* ids = list.find(vocabulary::ordering_ids_key);
        const JsonValue* instance = list.find(vocabulary::ordering_instance_key);
        const JsonValue* domain = list.find(vocabulary::ordering_domain_key);
        if (ids == nullptr || instance == nullptr || domain == nullptr || !domain->is_string()) return {};
        if (instance->as_string() != settings.instance_id || std::ranges::none_of(ids->elements(), lives_on)) return {};
        TextBuffer text;
        write_ordering_content(settings.instance_id, domain->as_string(), {}, text);
        return arena.copy(text.view());
    };
    std::unordered_map<const char*, std::string_view> emptied_lists;  // documents may share a long content
    std::vector<FlattenedDocument> emptied;
    auto produced = std::lower_bound(documents.begin(), documents.end(), ordering_id_prefix, by_id);
    for (const auto& [id, document] : storage.documents()) {
        if (!has_ordering_id(id)) continue;
        while (produced != documents.end() && produced->id < id) ++produced;
        const bool is_produced = produced != documents.end() && produced->id == id;
        if (is_produced || !document->has_winning()) continue;
        const auto content = storage.data().find(document->winning().datahash());
        if (!content) continue;
        const auto [entry, is_new] = emptied_lists.try_emplace(content->data());
        if (is_new) entry->second = emptied_list(*content);
        if (!entry->second.empty()) emptied.push_back({id, entry->second});
    }
    const auto middle = documents.insert(documents.end(), emptied.begin(), emptied.end());
    std::inplace_merge(documents.begin(), middle, documents.end(),
                       [](const FlattenedDocument& a, const FlattenedDocument& b) { return a.id < b.id; });
}

}  // namespace

DocumentStorage update(const DocumentStorage& storage, const JsonValue& data, const TransformationSettings& settings,
                       Arena& arena, SharedMemory& memory) {
    DataHasher hasher(settings.hash_kind());
    Flattener::Result flat = Flattener(settings, hasher, arena).flatten(data);
    add_emptied_lists(storage, settings, arena, flat.documents);
    const DocumentStorage stored = store_documents(storage, flat.documents, Unproduced::remove, hasher, memory);
    return DocumentStorage(stored.documents(), stored.data(), std::string(flat.root_id), stored.contents_not_named(),
                           stored.closed_documents());
}

void flatten_object(const JsonValue& data, const TransformationSettings& settings, Arena& arena, TextBuffer& out) {
    SharedMemory memory(arena);
    const DocumentStorage storage = update({}, data, settings, arena, memory);
    const char* separator = "";
    TextBuffer id;
    out.push_back('[');
    for (const auto& entry : storage.documents()) {
        out.append(separator);
        separator = ", ";
        id.clear();
        write_json_string(entry.key, id);
        const WrittenMember id_member{vocabulary::id_key, id.view()};
        write_object_with(storage.data().read_object(entry.value->winning().datahash()), {&id_member, 1}, out);
    }
    out.push_back(']');
}

}  // namespace libzentadbpp
