#include "host/library.h"

#include <cstdlib>
#include <new>

namespace zentadb {

namespace {

template <class Record>
std::string text_of(Record record, void (*release)(Record*)) {
    const std::unique_ptr<Record, void (*)(Record*)> owner(&record, release);
    if (record.value != nullptr) return record.value;
    if (record.error == nullptr) throw std::bad_alloc();
    throw LibraryError(record.error);
}

}  // namespace

std::string value_of(sync_json_result record) { return text_of(record, free_sync_json_result); }
std::string value_of(flatten_result record) { return text_of(record, free_flatten_result); }

Handle value_of(sync_json_ptr_result record) {
    const std::unique_ptr<sync_json_ptr_result, void (*)(sync_json_ptr_result*)> owner(&record,
                                                                                       free_sync_json_ptr_result);
    if (record.ptr != nullptr) return Handle(record.ptr);
    if (record.error == nullptr) throw std::bad_alloc();
    throw LibraryError(record.error);
}

std::string dump(const Handle& handle) {
    const std::unique_ptr<char, void (*)(void*)> text(dump_sync_json_ptr(handle.get()), std::free);
    if (text == nullptr) throw std::bad_alloc();
    return text.get();
}

Failure explained(const LibraryError& error) { return {Outcome::input, error.what()}; }

}  // namespace zentadb
