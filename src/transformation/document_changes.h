#pragma once

#include <span>
#include <string_view>

#include "data/data_hash.h"
#include "documents/document_storage.h"

namespace libzentadbpp {

// A document as flattening produced it: its id, and its content as written text without the "_id".
struct FlattenedDocument {
    std::string_view id;
    std::string_view content;
};

enum class Unproduced : bool { keep, remove };

// Stores documents under their ids: a new document gets a first revision, a live one a child of its winning revision
// where the content differs, a deleted one stays deleted. With Unproduced::remove every other document that is no
// ordering document gets a deleted revision. The documents come in ascending order of id; of several of one id each is
// a further revision. Comparing contents by their text spares hashing what did not change. What is new lies in the
// memory. O(documents of the storage + those produced).
[[nodiscard]] DocumentStorage store_documents(const DocumentStorage& storage,
                                              std::span<const FlattenedDocument> documents, Unproduced unproduced,
                                              DataHasher& hasher, SharedMemory& memory);

}  // namespace libzentadbpp
