#include <cstdlib>

#include "libzentadbpp/frame.h"

using namespace libzentadbpp;

sync_json_ptr_result new_sync_json_ptr(const char* sync_json) {
    return answer_handle<Texts::of_the_handle>(
        [&](Call& call) { return call.open(call.sync_json(sync_json), Inflation::reported_briefly); });
}

void free_sync_json_ptr(sync_json_ptr handle) { delete handle; }

char* dump_sync_json_ptr(sync_json_ptr ptr) {
    if (ptr == nullptr) return nullptr;
    sync_json_result record = answer([&](Call& call) { return Call::rendered(call.sync_json(ptr)); });
    std::free(record.error);  // there is no way to report it
    return record.value;
}
