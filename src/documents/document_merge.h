#pragma once

#include "documents/multiversion_document.h"

namespace libzentadbpp {

// Which documents may have several first revisions: those with ordering ids, unless their contents say that a host made
// them.
enum class Grafts : bool { never, with_ordering_id };

// Brings every revision of `source` into `target`, two copies of one document; null if the target stays as it is. Pure,
// commutative, associative and idempotent: the outcome depends only on the revisions that were made. Linear, but for
// n log n if trees are grafted or leaves opened again.
// - A revision that both know under different parents keeps the smaller of the two.
// - Ordering documents with different first revisions are grafted: the smallest is the root, and what each other one
//   began hangs directly under it, one generation later. Any other document with two first revisions throws
//   SecondFirstRevision, after printing both to standard error.
// - If every branch is closed, because copies resolved one conflict in opposite ways, a leaf with the last content of
//   the longest branch reopens the document. Nobody made such a leaf: while it has no child, merging ignores it, so it
//   disappears if the union has an open leaf or a longer closed branch. A leaf under a closing revision counts as such
//   if an earlier revision has its content.
// If grafting gives one name to steps of two histories, the smaller parent decides which of them it is. Merges in
// another order can then differ until copies with both outcomes meet.
[[nodiscard]] DocumentRef merge_documents(const MultiVersionDocument& target, const MultiVersionDocument& source,
                                          Grafts grafts = Grafts::with_ordering_id);

// The document with its longest closed branch reopened, if it has revisions but no leaf; otherwise null.
[[nodiscard]] DocumentRef reopened(const MultiVersionDocument& document);

}  // namespace libzentadbpp
