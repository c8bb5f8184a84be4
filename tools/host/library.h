#pragma once

#include <zentadbpp.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "host/failure.h"

namespace zentadb {

// A text from the `error` field of a record.
class LibraryError : public std::runtime_error {
   public:
    using std::runtime_error::runtime_error;
};

// The same for people: what is wrong, and what can be done about it.
[[nodiscard]] Failure explained(const LibraryError& error);

struct FreeHandle {
    void operator()(sync_json_ptr handle) const noexcept { free_sync_json_ptr(handle); }
};
using Handle = std::unique_ptr<zentadbpp_document_storage, FreeHandle>;

[[nodiscard]] std::string value_of(sync_json_result record);
[[nodiscard]] std::string value_of(flatten_result record);
[[nodiscard]] Handle value_of(sync_json_ptr_result record);
[[nodiscard]] std::string dump(const Handle& handle);

}  // namespace zentadb
