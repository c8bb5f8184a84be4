#include "libzentadbpp/frame.h"
#include "replication/bulk_exchange.h"

using namespace libzentadbpp;

namespace {

TextBuffer bulk_docs(const DocumentStorage& storage) {
    TextBuffer body;
    write_bulk_docs(storage, body);
    return body;
}

DocumentStorage imported(Call& call, const JsonValue& body) {
    BulkImport import = from_bulk_get(call.inflated(call.whole_object(body), Inflation::reported).value);
    if (import.first_fault != nullptr) {
        if (import.storage.documents().empty()) std::rethrow_exception(import.first_fault);
        call.report(import.first_fault);
    }
    return std::move(import.storage);
}

}  // namespace

sync_json_result sync_json_to_bulk_docs(const char* sync_json) {
    return answer([&](Call& call) {
        SyncJsonText text = call.sync_json(sync_json);
        const bool compress = text.is_compressed();
        return Call::rendered(bulk_docs(call.open(std::move(text), Inflation::passed_over)), compress);
    });
}
sync_json_result sync_json_ptr_to_bulk_docs(sync_json_ptr ptr) {
    return answer([&](Call& call) { return Call::rendered(bulk_docs(call.sync_json(ptr))); });
}

sync_json_result sync_json_from_bulk_get(const char* bulk_get, const char* config) {
    return answer([&](Call& call) {
        const JsonValue body = call.json(bulk_get);
        const JsonValue configuration = call.configuration(config);
        return Call::rendered(imported(call, body), asks_for_compression(configuration));
    });
}
sync_json_ptr_result sync_json_ptr_from_bulk_get(const char* bulk_get, const char* config) {
    return answer_handle([&](Call& call) {
        const JsonValue body = call.json(bulk_get);
        (void)call.configuration(config);
        return imported(call, body);
    });
}
