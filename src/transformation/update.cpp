#include "transformation/update.h"

#include "common/canonical_object.h"
#include "common/json_writer.h"
#include "data/data_hash.h"
#include "transformation/document_changes.h"
#include "transformation/flattener.h"

namespace libzentadbpp {

DocumentStorage update(const DocumentStorage& storage, const JsonValue& data, const TransformationSettings& settings,
                       Arena& arena) {
    DataHasher hasher(settings.hash_kind());
    Flattener::Result flat = Flattener(settings, hasher, arena).flatten(data);
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
