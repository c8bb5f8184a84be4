// Questions about whole storages, and the operations that cut them down, by value and by handle.

#include <algorithm>

#include "contents/storage_queries.h"
#include "json/parser.h"
#include "libzentadbpp/frame.h"
#include "text/sort_unique.h"

using namespace libzentadbpp;

namespace {

CText root(const DocumentStorage& storage) { return Call::plain(storage.root()); }
CText writing_instances(const DocumentStorage& storage) { return Call::plain(instances(storage)); }
CText unresolved_documents(const DocumentStorage& storage) { return Call::plain(unresolved(storage)); }
CText all_docs(const DocumentStorage& storage) {
    std::vector<std::string> ids;
    ids.reserve(storage.documents().size());
    for (const auto& entry : storage.documents()) ids.emplace_back(entry.key);
    return Call::rendered(ids);
}

using StorageQuery = CText (*)(const DocumentStorage&);
using Comparison = std::vector<std::string> (*)(const DocumentStorage&, const DocumentStorage&);

// Each by the texts of sync JSONs or by handles, which have nothing to inflate.
template <class SyncJson>
sync_json_result ask(SyncJson sync_json, StorageQuery query, const char* name = __builtin_FUNCTION()) {
    const auto body = [&](Call& call) { return query(call.open(call.sync_json(sync_json), Inflation::passed_over)); };
    return answer(body, name);
}

template <class SyncJson>
sync_json_result ask_available(SyncJson sync_json, const char* revision_or_id,
                               const char* name = __builtin_FUNCTION()) {
    const auto body = [&](Call& call) {
        auto&& given = call.sync_json(sync_json);
        const std::string_view asked = Call::text(revision_or_id);
        TextBuffer text;
        const DocumentStorage& storage = call.open(std::forward<decltype(given)>(given), Inflation::reported);
        text.append(available(storage, asked) ? "true" : "false");
        return Call::rendered(std::move(text));
    };
    return answer(body, name);
}

template <class SyncJson>
sync_json_result compare(SyncJson sync_json, SyncJson old_sync_json, Comparison comparison,
                         const char* name = __builtin_FUNCTION()) {
    const auto body = [&](Call& call) {
        auto&& given = call.sync_json(sync_json);
        auto&& old = call.sync_json(old_sync_json, "invalid_old_sync_json_ptr");
        const DocumentStorage& storage = call.open(std::forward<decltype(given)>(given), Inflation::passed_over);
        return Call::plain(comparison(storage, call.open(std::forward<decltype(old)>(old), Inflation::passed_over)));
    };
    return answer(body, name);
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

sync_json_result sync_json_root(const char* sync_json) { return ask(sync_json, root); }
sync_json_result sync_json_ptr_root(sync_json_ptr ptr) { return ask(ptr, root); }

sync_json_result sync_json_instances(const char* sync_json) { return ask(sync_json, writing_instances); }
sync_json_result sync_json_ptr_instances(sync_json_ptr ptr) { return ask(ptr, writing_instances); }

sync_json_result sync_json_unresolved(const char* sync_json) { return ask(sync_json, unresolved_documents); }
sync_json_result sync_json_ptr_unresolved(sync_json_ptr ptr) { return ask(ptr, unresolved_documents); }

sync_json_result sync_json_all_docs(const char* sync_json) { return ask(sync_json, all_docs); }
sync_json_result sync_json_ptr_all_docs(sync_json_ptr ptr) { return ask(ptr, all_docs); }

sync_json_result sync_json_available(const char* sync_json, const char* revision_or_id) {
    return ask_available(sync_json, revision_or_id);
}
sync_json_result sync_json_ptr_available(sync_json_ptr ptr, const char* revision_or_id) {
    return ask_available(ptr, revision_or_id);
}

sync_json_result sync_json_created(const char* sync_json, const char* old_sync_json) {
    return compare(sync_json, old_sync_json, created);
}
sync_json_result sync_json_ptr_created(sync_json_ptr ptr, sync_json_ptr old_ptr) {
    return compare(ptr, old_ptr, created);
}

sync_json_result sync_json_updated(const char* sync_json, const char* old_sync_json) {
    return compare(sync_json, old_sync_json, updated);
}
sync_json_result sync_json_ptr_updated(sync_json_ptr ptr, sync_json_ptr old_ptr) {
    return compare(ptr, old_ptr, updated);
}

sync_json_result sync_json_deleted(const char* sync_json, const char* old_sync_json) {
    return compare(sync_json, old_sync_json, deleted);
}
sync_json_result sync_json_ptr_deleted(sync_json_ptr ptr, sync_json_ptr old_ptr) {
    return compare(ptr, old_ptr, deleted);
}

sync_json_result sync_json_all_winning(const char* sync_json) {
    return answer([&](Call& call) {
        return Call::rendered(all_winning(call.open(call.sync_json(sync_json), Inflation::passed_over)));
    });
}
sync_json_ptr_result sync_json_ptr_all_winning(sync_json_ptr ptr) {
    return answer_handle([&](Call& call) { return all_winning(call.sync_json(ptr)); });
}

sync_json_result sync_json_prune(const char* sync_json, uint32_t depth, bool skip_winning) {
    return answer([&](Call& call) {
        SyncJsonText text = call.sync_json(sync_json);
        const bool compress = text.is_compressed();
        const DocumentStorage storage = call.open(std::move(text), Inflation::passed_over);
        return Call::rendered(prune(storage, depth, skip_winning), compress);
    });
}
sync_json_ptr_result sync_json_ptr_prune(sync_json_ptr ptr, uint32_t depth, bool skip_winning) {
    return answer_handle([&](Call& call) { return prune(call.sync_json(ptr), depth, skip_winning); });
}

sync_json_result sync_json_prune_ids(const char* sync_json, const char* ids, uint32_t depth, bool skip_winning) {
    return answer([&](Call& call) {
        SyncJsonText text = call.sync_json(sync_json);
        const std::vector<std::string_view> listed = listed_ids(call, ids);
        const bool compress = text.is_compressed();
        const DocumentStorage storage = call.open(std::move(text), Inflation::passed_over);
        return Call::rendered(prune_ids(storage, listed, depth, skip_winning), compress);
    });
}
sync_json_ptr_result sync_json_ptr_prune_ids(sync_json_ptr ptr, const char* ids, uint32_t depth, bool skip_winning) {
    return answer_handle([&](Call& call) {
        const DocumentStorage& storage = call.sync_json(ptr);
        return prune_ids(storage, listed_ids(call, ids), depth, skip_winning);
    });
}
