#pragma once

#include <cstddef>

#include "documents/multiversiondocument.h"

namespace libzentadbpp {

// What merging did to the target document.
struct MergedDocument {
    DocumentRef document;   // null: the target is as it was
    std::size_t added = 0;  // revisions of the source that the target did not know
};

// Brings every revision of `source` into `target`, two copies of one document. Pure, linear, and the same in both
// directions. Copies that are merged into each other until nothing is new end up alike, whatever the order; where
// merges graft or reopen, what single merges answer on the way can depend on it.
// - A revision that both know under different parents keeps the smaller of the two.
// - Two ordering documents with different first revisions are grafted: the smaller one is the root, the other tree
//   hangs under it, one generation later. Any other document with two first revisions throws SecondFirstRevision, after
//   telling both on standard error.
// - Where every branch of the result is closed, because two copies settled one conflict in opposite ways, the longest
//   closed one is opened again with its last content.
[[nodiscard]] MergedDocument merge_documents(const MultiVersionDocument& target, const MultiVersionDocument& source);

// The document with its longest closed branch opened again, where it has revisions but no leaf; null otherwise.
[[nodiscard]] DocumentRef reopened(const MultiVersionDocument& document);

}  // namespace libzentadbpp
