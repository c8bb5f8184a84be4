#include "transformation/update.h"

#include <algorithm>
#include <string>

#include "common/canonical_object.h"
#include "common/json_scanner.h"
#include "common/json_writer.h"
#include "common/text_table.h"
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
    TextTable produced(documents.size());
    for (const FlattenedDocument& document : documents) produced.add(document.id);
    const auto lives_on = [&](const JsonValue& id) {
        return produced.find(id.as_string()) || has_ordering_id(id.as_string());
    };
    for (const auto& entry : storage.documents()) {
        if (!has_ordering_id(entry.key) || produced.find(entry.key) || !entry.value->has_winning()) continue;
        const auto content = storage.data().find(entry.value->winning().datahash());
        if (!content) continue;
        const JsonValue list = JsonScanner(*content, arena).read_value(0, deepest_content);
        const JsonValue* ids = list.find(vocabulary::ordering_ids_key);
        const JsonValue* instance = list.find(vocabulary::ordering_instance_key);
        const JsonValue* domain = list.find(vocabulary::ordering_domain_key);
        if (ids == nullptr || instance == nullptr || domain == nullptr || !domain->is_string()) continue;
        if (instance->as_string() != settings.instance_id || std::ranges::none_of(ids->elements(), lives_on)) continue;
        TextBuffer emptied;
        write_ordering_content(settings.instance_id, domain->as_string(), {}, emptied);
        documents.push_back({entry.key, arena.copy(emptied.view())});
    }
}

}  // namespace

DocumentStorage update(const DocumentStorage& storage, const JsonValue& data, const TransformationSettings& settings,
                       Arena& arena) {
    DataHasher hasher(settings.hash_kind());
    Flattener::Result flat = Flattener(settings, hasher, arena).flatten(data);
    add_emptied_lists(storage, settings, arena, flat.documents);
    const DocumentStorage stored = store_documents(storage, flat.documents, Unproduced::remove, hasher);
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
