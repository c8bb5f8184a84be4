#include "transformation/update.h"

#include <algorithm>
#include <optional>
#include <string>

#include "common/canonical_object.h"
#include "common/json_scanner.h"
#include "common/json_writer.h"
#include "common/text_table.h"
#include "data/data_hash.h"
#include "transformation/document_changes.h"
#include "transformation/document_path.h"
#include "transformation/flattener.h"

namespace libzentadbpp {

namespace {

// An empty array gets no ordering document, and keeps the one it has from before: an element that was removed here but
// edited on another copy finds its place again. Only where an element lives on, the old list would show it here as well
// as where it went, so then it is emptied.
void add_emptied_lists(const DocumentStorage& storage, const TransformationSettings& settings, DataHasher& hasher,
                       Arena& arena, Flattener::Result& flat) {
    std::optional<TextTable> produced;
    for (const std::string_view domain : flat.empty_arrays) {
        const std::string id = ordering_id(settings.instance_id, domain, hasher);
        const MultiVersionDocument* document = storage.find(id);
        if (document == nullptr || !document->has_winning()) continue;
        const auto content = storage.data().find(document->winning().datahash());
        if (!content) continue;
        const JsonValue list = JsonScanner(*content, arena).read_value(0, deepest_content);
        const JsonValue* ids = list.find(vocabulary::ordering_ids_key);
        if (ids == nullptr || ids->elements().empty()) continue;
        if (!produced) {
            produced.emplace(flat.documents.size());
            for (const FlattenedDocument& flattened : flat.documents) produced->add(flattened.id);
        }
        const auto still_lives = [&](const JsonValue& element) {
            return produced->find(element.as_string()) || has_ordering_id(element.as_string());
        };
        if (std::ranges::none_of(ids->elements(), still_lives)) continue;
        TextBuffer emptied;
        write_ordering_content(settings.instance_id, domain, {}, emptied);
        flat.documents.push_back({arena.copy(id), arena.copy(emptied.view())});
    }
}

}  // namespace

DocumentStorage update(const DocumentStorage& storage, const JsonValue& data, const TransformationSettings& settings,
                       Arena& arena) {
    DataHasher hasher(settings.hash_kind());
    Flattener::Result flat = Flattener(settings, hasher, arena).flatten(data);
    add_emptied_lists(storage, settings, hasher, arena, flat);
    const DocumentStorage stored = store_documents(storage, std::move(flat.documents), Unproduced::remove, hasher);
    return DocumentStorage(stored.documents(), stored.data(), std::string(flat.root_id));
}

void flatten_object(const JsonValue& data, const TransformationSettings& settings, Arena& arena, TextBuffer& out) {
    const DocumentStorage storage = update({}, data, settings, arena);
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
