#pragma once

#include <string>
#include <vector>

#include "documents/document_storage.h"

namespace libzentadbpp {

// Questions about one document. Each throws what its tree throws. Sets come in byte order of the revision strings.

// The parent's revision string, empty for a first revision. Unknown: RevisionNotFoundException
// "revision_not_found_in_ancestor".
[[nodiscard]] std::string ancestor(const MultiVersionDocument& document, const Revision& revision);
// The revision and all its ancestors, newest first. Unknown: as ancestor.
[[nodiscard]] std::vector<std::string> history(const MultiVersionDocument& document, const Revision& revision);
// The other children of its parent. Unknown: RevisionNotFoundException "revision_not_found".
[[nodiscard]] std::vector<std::string> sibling_revisions(const MultiVersionDocument& document,
                                                         const Revision& revision);
[[nodiscard]] std::vector<std::string> leaf_revisions(const MultiVersionDocument& document);
// The leaves that are neither the winner nor deleted.
[[nodiscard]] std::vector<std::string> conflicting_revisions(const MultiVersionDocument& document);

// Resolves the document's conflict with a leaf: the branch that ends in it is closed with a resolved revision. A branch
// that is closed already and the only leaf of a document stay as they are, and so does a deleted leaf while all other
// leaves are deleted too. Unknown revision: RevisionNotFoundException "revision_not_found"; not a leaf:
// InvalidRevisionException "revision_is_not_a_leaf".
[[nodiscard]] DocumentStorage resolve(const DocumentStorage& storage, const DocumentRef& document,
                                      const Revision& revision);

}  // namespace libzentadbpp
