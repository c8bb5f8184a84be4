// Questions about whole storages, and the operations that cut them down, by value and by handle.

#include <algorithm>

#include "contents/storage_queries.h"
#include "json/parser.h"
#include "libzentadbpp/frame.h"
#include "libzentadbpp/text_sets.h"
#include "text/sort_unique.h"

using namespace libzentadbpp;

namespace {

CText root(const DocumentStorage& storage) { return Call::plain(storage.root()); }
CText writing_instances(const DocumentStorage& storage) { return joined(instances(storage)); }
CText unresolved_documents(const DocumentStorage& storage) { return joined(unresolved(storage)); }
CText all_docs(const DocumentStorage& storage) {
    std::vector<std::string> ids;
    ids.reserve(storage.documents().size());
    for (const auto& entry : storage.documents()) ids.emplace_back(entry.key);
    return json_list(ids);
}
CText availability(const DocumentStorage& storage, std::string_view revision_or_id) {
    TextBuffer text;
    text.append(available(storage, revision_or_id) ? "true" : "false");
    return Call::rendered(std::move(text));
}

using StorageQuery = CText (*)(const DocumentStorage&);
using Comparison = std::vector<std::string> (*)(const DocumentStorage&, const DocumentStorage&);

sync_json_result ask(const char* name, const char* sync_json, StorageQuery query) {
    return answer(name,
                  [&](Call& call) { return query(call.open(call.sync_json(sync_json), Inflation::passed_over)); });
}

sync_json_result ask(const char* name, sync_json_ptr ptr, StorageQuery query) {
    return answer(name, [&](Call& call) { return query(call.storage(ptr)); });
}

sync_json_result compare(const char* name, const char* sync_json, const char* old_sync_json, Comparison comparison) {
    return answer(name, [&](Call& call) {
        SyncJsonText text = call.sync_json(sync_json);
        SyncJsonText old_text = call.sync_json(old_sync_json);
        const DocumentStorage storage = call.open(std::move(text), Inflation::passed_over);
        return joined(comparison(storage, call.open(std::move(old_text), Inflation::passed_over)));
    });
}

sync_json_result compare(const char* name, sync_json_ptr ptr, sync_json_ptr old_ptr, Comparison comparison) {
    return answer(name, [&](Call& call) {
        const DocumentStorage& storage = call.storage(ptr);
        return joined(comparison(storage, call.storage(old_ptr, "invalid_old_sync_json_ptr")));
    });
}

// A JSON array of strings, a JSON string, or a text that is itself an id.
std::vector<std::string_view> listed_ids(Call& call, const char* ids) {
    const std::string_view text = Call::text(ids);
    if (text.empty()) return {};
    std::vector<std::string_view> listed;
    try {
        const JsonValue value = parse_json(text, call.arena());
        for (const JsonValue& id : value.elements()) {
            if (id.is_string()) listed.push_back(id.as_string());
        }
        if (!value.is_array()) listed.push_back(value.is_string() ? value.as_string() : text);
    } catch (const ParseError&) {
        listed.push_back(text);
    }
    sort_unique(listed);
    return listed;
}

}  // namespace

sync_json_result sync_json_root(const char* sync_json) { return ask("sync_json_root", sync_json, root); }
sync_json_result sync_json_ptr_root(sync_json_ptr ptr) { return ask("sync_json_ptr_root", ptr, root); }

sync_json_result sync_json_instances(const char* sync_json) {
    return ask("sync_json_instances", sync_json, writing_instances);
}
sync_json_result sync_json_ptr_instances(sync_json_ptr ptr) {
    return ask("sync_json_ptr_instances", ptr, writing_instances);
}

sync_json_result sync_json_unresolved(const char* sync_json) {
    return ask("sync_json_unresolved", sync_json, unresolved_documents);
}
sync_json_result sync_json_ptr_unresolved(sync_json_ptr ptr) {
    return ask("sync_json_ptr_unresolved", ptr, unresolved_documents);
}

sync_json_result sync_json_all_docs(const char* sync_json) { return ask("sync_json_all_docs", sync_json, all_docs); }
sync_json_result sync_json_ptr_all_docs(sync_json_ptr ptr) { return ask("sync_json_ptr_all_docs", ptr, all_docs); }

sync_json_result sync_json_available(const char* sync_json, const char* revision_or_id) {
    return answer("sync_json_available", [&](Call& call) {
        SyncJsonText text = call.sync_json(sync_json);
        const std::string_view asked = Call::text(revision_or_id);
        return availability(call.open(std::move(text), Inflation::reported), asked);
    });
}
sync_json_result sync_json_ptr_available(sync_json_ptr ptr, const char* revision_or_id) {
    return answer("sync_json_ptr_available", [&](Call& call) {
        const DocumentStorage& storage = call.storage(ptr);
        return availability(storage, Call::text(revision_or_id));
    });
}

sync_json_result sync_json_created(const char* sync_json, const char* old_sync_json) {
    return compare("sync_json_created", sync_json, old_sync_json, created);
}
sync_json_result sync_json_ptr_created(sync_json_ptr ptr, sync_json_ptr old_ptr) {
    return compare("sync_json_ptr_created", ptr, old_ptr, created);
}

sync_json_result sync_json_updated(const char* sync_json, const char* old_sync_json) {
    return compare("sync_json_updated", sync_json, old_sync_json, updated);
}
sync_json_result sync_json_ptr_updated(sync_json_ptr ptr, sync_json_ptr old_ptr) {
    return compare("sync_json_ptr_updated", ptr, old_ptr, updated);
}

sync_json_result sync_json_deleted(const char* sync_json, const char* old_sync_json) {
    return compare("sync_json_deleted", sync_json, old_sync_json, deleted);
}
sync_json_result sync_json_ptr_deleted(sync_json_ptr ptr, sync_json_ptr old_ptr) {
    return compare("sync_json_ptr_deleted", ptr, old_ptr, deleted);
}

sync_json_result sync_json_all_winning(const char* sync_json) {
    return answer("sync_json_all_winning", [&](Call& call) {
        return Call::rendered(all_winning(call.open(call.sync_json(sync_json), Inflation::passed_over)));
    });
}
sync_json_ptr_result sync_json_ptr_all_winning(sync_json_ptr ptr) {
    return answer_handle("sync_json_ptr_all_winning", [&](Call& call) { return all_winning(call.storage(ptr)); });
}

sync_json_result sync_json_prune(const char* sync_json, uint32_t depth, bool skip_winning) {
    return answer("sync_json_prune", [&](Call& call) {
        SyncJsonText text = call.sync_json(sync_json);
        const bool compress = text.is_compressed();
        const DocumentStorage storage = call.open(std::move(text), Inflation::passed_over);
        return Call::rendered(prune(storage, depth, skip_winning), compress);
    });
}
sync_json_ptr_result sync_json_ptr_prune(sync_json_ptr ptr, uint32_t depth, bool skip_winning) {
    return answer_handle("sync_json_ptr_prune",
                         [&](Call& call) { return prune(call.storage(ptr), depth, skip_winning); });
}

sync_json_result sync_json_prune_ids(const char* sync_json, const char* ids, uint32_t depth, bool skip_winning) {
    return answer("sync_json_prune_ids", [&](Call& call) {
        SyncJsonText text = call.sync_json(sync_json);
        const std::vector<std::string_view> listed = listed_ids(call, ids);
        const bool compress = text.is_compressed();
        const DocumentStorage storage = call.open(std::move(text), Inflation::passed_over);
        return Call::rendered(prune_ids(storage, listed, depth, skip_winning), compress);
    });
}
sync_json_ptr_result sync_json_ptr_prune_ids(sync_json_ptr ptr, const char* ids, uint32_t depth, bool skip_winning) {
    return answer_handle("sync_json_ptr_prune_ids", [&](Call& call) {
        const DocumentStorage& storage = call.storage(ptr);
        return prune_ids(storage, listed_ids(call, ids), depth, skip_winning);
    });
}
