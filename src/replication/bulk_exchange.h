#pragma once

#include <exception>

#include "documents/document_storage.h"
#include "json/value.h"
#include "memory/text_buffer.h"

namespace libzentadbpp {

// Exchange with servers that speak the CouchDB replication protocol.

// Appends the body of a _bulk_docs request: of every document the winning content, with its "_id" and the path of data
// hashes that leads to it in "_revisions". std::length_error if documents that share contents make it grow out of
// proportion. O(result).
void write_bulk_docs(const DocumentStorage& storage, TextBuffer& out);

struct BulkImport {
    DocumentStorage storage;
    std::exception_ptr first_fault;  // of what was refused, if anything was
};

// Makes a new storage from the response to a _bulk_get request. Entries of another shape are ignored, and so are paths
// that do not reach back to the first revision. Revision ids may have both forms, "hash_suffix" and the bare hash that
// the export sends. Rejected documents are left out, and all others are imported. The root is chosen among the
// documents that are neither ordering documents nor deleted, if there are any: "root", or else the smallest id that no
// other winning content and no open list refers to, or else the smallest id. O(body log body).
[[nodiscard]] BulkImport from_bulk_get(const JsonValue& body);

}  // namespace libzentadbpp
