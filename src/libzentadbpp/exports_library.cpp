#include <cstdlib>

#include "libzentadbpp/zentadbpp.h"

namespace {

void release(char*& text) {
    std::free(text);
    text = nullptr;
}

}  // namespace

const char* sync_json_lib_version(void) { return "2019-06-07"; }

void free_sync_json_result(sync_json_result* record) {
    release(record->reserved);
    release(record->error);
    release(record->value);
}

void free_sync_json_query_result(sync_json_query_result* record) {
    release(record->error);
    release(record->value);
}

void free_flatten_result(flatten_result* record) {
    release(record->value);
    release(record->error);
}

void free_sync_json_ptr_result(sync_json_ptr_result* record) {
    release(record->reserved);
    release(record->error);
}

void free_sync_json_ptr_result_all(sync_json_ptr_result* record) {
    if (record == nullptr) return;
    free_sync_json_ptr(record->ptr);
    free_sync_json_ptr_result(record);
}
