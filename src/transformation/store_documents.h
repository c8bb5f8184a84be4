#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string_view>

#include "data/data_hash.h"
#include "documents/document_storage.h"

namespace libzentadbpp {

// A document as flattening produced it: its id, and its content as written text without the "_id". An ordering document
// without a content (null data) stays as it is, but for its other leaves.
struct FlattenedDocument {
    std::string_view id;
    std::string_view content;
};

// Asked for a document that is not among those to be stored, by its number in ascending order of id: whether it is to
// be deleted.
using MayRemove = std::function<bool(std::uint32_t)>;

// Stores documents under their ids. A new document gets a first revision, a live one a child of its winning revision if
// the content differs, a deleted one stays deleted. All other leaves of a live ordering document are closed: its list
// was made from them. Every other live document that is not an ordering document gets a deleted revision if
// `may_remove` says so (if it is empty, none does). The documents are in ascending order of id; several of one id are
// consecutive revisions. Contents are compared by their text, so unchanged ones are not hashed. New data is in the
// memory. O(documents of the storage + those produced).
[[nodiscard]] DocumentStorage store_documents(const DocumentStorage& storage,
                                              std::span<const FlattenedDocument> documents, const MayRemove& may_remove,
                                              DataHasher& hasher, SharedMemory& memory);

}  // namespace libzentadbpp
