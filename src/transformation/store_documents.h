#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "data/data_hash.h"
#include "documents/document_storage.h"
#include "transformation/last_update.h"

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

// What the last update knows of the storage, and which documents are to stay as they are.
struct KnownDocuments {
    const LastUpdate& last;
    const std::vector<bool>& left_alone;
};

// What becomes known of the storage that results, where its winning contents do.
struct StoredNotes {
    bool any_changed = false;   // of the documents
    std::vector<bool> settled;  // see LastUpdate
    std::vector<bool> stays;
    std::vector<std::uint32_t> numbers;   // of the documents that were given
    std::vector<std::uint32_t> inserted;  // for each new document the number of the one that it came before; ascending
};

// Stores documents under their ids. A new document gets a first revision, a live one a child of its winning revision if
// the content differs, a deleted one stays deleted. All other leaves of a live ordering document are closed: its list
// was made from them. Every other live document that is not an ordering document gets a deleted revision if
// `may_remove` says so (if it is empty, none does). The documents are in ascending order of id; several of one id are
// consecutive revisions. Contents are compared by their text, so unchanged ones are not hashed. New data is in the
// memory. With `known`, those that are left alone are neither looked at nor among the documents, and `may_remove` is
// not asked for them. O(documents of the storage + those produced).
[[nodiscard]] DocumentStorage store_documents(const DocumentStorage& storage,
                                              std::span<const FlattenedDocument> documents, const MayRemove& may_remove,
                                              DataHasher& hasher, SharedMemory& memory,
                                              const KnownDocuments* known = nullptr, StoredNotes* notes = nullptr);

}  // namespace libzentadbpp
