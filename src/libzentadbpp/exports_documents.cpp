// Questions about one document, by value and by handle.

#include "documents/document_queries.h"
#include "libzentadbpp/frame.h"
#include "transformation/unflattener.h"

using namespace libzentadbpp;

namespace {

CText winning(const MultiVersionDocument& document) { return Call::plain(document.winning().revision_string()); }
CText leafs(const MultiVersionDocument& document) { return Call::plain(leaf_revisions(document)); }
CText conflicting(const MultiVersionDocument& document) { return Call::plain(conflicting_revisions(document)); }

CText parent(const MultiVersionDocument& document, const Revision& revision) {
    return Call::plain(ancestor(document, revision));
}
CText siblings(const MultiVersionDocument& document, const Revision& revision) {
    return Call::plain(sibling_revisions(document, revision));
}
CText path(const MultiVersionDocument& document, const Revision& revision) {
    return Call::rendered(history(document, revision));
}

using DocumentQuery = CText (*)(const MultiVersionDocument&);
using RevisionQuery = CText (*)(const MultiVersionDocument&, const Revision&);

// By the text of a sync JSON or by a handle, which has nothing to inflate.
template <class SyncJson>
sync_json_result ask(SyncJson sync_json, const char* id, DocumentQuery query,
                     Inflation inflation = Inflation::passed_over, const char* name = __builtin_FUNCTION()) {
    const auto body = [&](Call& call) {
        auto&& given = call.sync_json(sync_json);
        const std::string_view document_id = Call::text(id);
        const DocumentStorage& storage = call.open(std::forward<decltype(given)>(given), inflation);
        return query(*call.document(storage, document_id));
    };
    return answer(body, name);
}

template <class SyncJson>
sync_json_result ask(SyncJson sync_json, const char* id, const char* rev, RevisionQuery query,
                     Inflation inflation = Inflation::passed_over, const char* name = __builtin_FUNCTION()) {
    const auto body = [&](Call& call) {
        auto&& given = call.sync_json(sync_json);
        const std::string_view document_id = Call::text(id);
        const std::string_view revision = Call::text(rev);
        const DocumentStorage& storage = call.open(std::forward<decltype(given)>(given), inflation);
        const DocumentRef& document = call.document(storage, document_id);
        return query(*document, Revision(revision));
    };
    return answer(body, name);
}

CText data_of(const ReadIndex& index, std::string_view id, const Revision& revision, bool discard_id) {
    TextBuffer data;
    unflatten(index, id, revision, discard_id, data);
    return Call::rendered(std::move(data));
}

DocumentStorage resolved(Call& call, const DocumentStorage& storage, std::string_view id, std::string_view revision) {
    const DocumentRef& document = call.document(storage, id);
    return resolve(storage, document, Revision(revision));
}

}  // namespace

sync_json_result sync_json_winning(const char* sync_json, const char* id) {
    return ask(sync_json, id, winning, Inflation::reported);
}
sync_json_result sync_json_ptr_winning(sync_json_ptr ptr, const char* id) { return ask(ptr, id, winning); }

sync_json_result sync_json_leafs(const char* sync_json, const char* id) {
    return ask(sync_json, id, leafs, Inflation::reported);
}
sync_json_result sync_json_ptr_leafs(sync_json_ptr ptr, const char* id) { return ask(ptr, id, leafs); }

sync_json_result sync_json_conflicting(const char* sync_json, const char* id) {
    return ask(sync_json, id, conflicting, Inflation::passed_over);
}
sync_json_result sync_json_ptr_conflicting(sync_json_ptr ptr, const char* id) { return ask(ptr, id, conflicting); }

sync_json_result sync_json_ancestor(const char* sync_json, const char* id, const char* rev) {
    return ask(sync_json, id, rev, parent, Inflation::reported);
}
sync_json_result sync_json_ptr_ancestor(sync_json_ptr ptr, const char* id, const char* rev) {
    return ask(ptr, id, rev, parent);
}

sync_json_result sync_json_siblings(const char* sync_json, const char* id, const char* rev) {
    return ask(sync_json, id, rev, siblings, Inflation::reported);
}
sync_json_result sync_json_ptr_siblings(sync_json_ptr ptr, const char* id, const char* rev) {
    return ask(ptr, id, rev, siblings);
}

sync_json_result sync_json_history(const char* sync_json, const char* id, const char* rev) {
    return ask(sync_json, id, rev, path, Inflation::passed_over);
}
sync_json_result sync_json_ptr_history(sync_json_ptr ptr, const char* id, const char* rev) {
    return ask(ptr, id, rev, path);
}

sync_json_result sync_json_data(const char* sync_json, const char* id, const char* rev, const char* config) {
    return answer([&](Call& call) {
        SyncJsonText text = call.sync_json(sync_json);
        const std::string_view document_id = Call::text(id);
        const std::string_view revision = Call::text(rev);
        const TransformationSettings settings(call.configuration(config));
        const DocumentStorage storage = call.open(std::move(text), Inflation::reported);
        (void)call.document(storage, document_id);
        const Revision wanted(revision);
        return data_of(ReadIndex(storage, settings.instance_id), document_id, wanted, settings.discard_id);
    });
}
sync_json_result sync_json_ptr_data(sync_json_ptr ptr, const char* id, const char* rev, const char* config) {
    return answer([&](Call& call) {
        const zentadbpp_document_storage& handle = call.handle(ptr);
        const std::string_view document_id = Call::text(id);
        const std::string_view revision = Call::text(rev);
        const TransformationSettings settings(call.configuration(config));
        (void)call.document(handle.storage(), document_id);
        const Revision wanted(revision);
        return data_of(*handle.read_index(settings.instance_id), document_id, wanted, settings.discard_id);
    });
}

sync_json_result sync_json_resolve(const char* sync_json, const char* id, const char* rev) {
    return answer([&](Call& call) {
        SyncJsonText text = call.sync_json(sync_json);
        const std::string_view document_id = Call::text(id);
        const std::string_view revision = Call::text(rev);
        const DocumentStorage storage = call.open(std::move(text), Inflation::passed_over);
        return Call::rendered(resolved(call, storage, document_id, revision));
    });
}
sync_json_ptr_result sync_json_ptr_resolve(sync_json_ptr ptr, const char* id, const char* rev) {
    return answer_handle([&](Call& call) {
        const zentadbpp_document_storage& handle = call.handle(ptr);
        const std::string_view document_id = Call::text(id);
        return Successor{resolved(call, handle.storage(), document_id, Call::text(rev)), handle.passed_on()};
    });
}
