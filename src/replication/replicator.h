#pragma once

#include <cstddef>

#include "documents/document_storage.h"

namespace libzentadbpp {

// Whether what comes over from the source is copied into memory of its own, or keeps sharing the source's. Sharing is
// for storages that end with the call; a target that lives on would hold on to the whole text its source was opened
// from.
enum class Takeover : bool { copy, share };

struct ReplicationResult {
    DocumentStorage target;
    std::size_t missing_found = 0;  // revisions that the target did not know
};

// Merges every document and content of the source into the target; the source's knowledge is then part of the target's.
// Replicating again adds nothing, and copies replicated into each other in any order end up alike. Different root ids:
// ReplicationException "mismatching_root_document_identifiers". O(documents of both + revisions of those that differ);
// what lies in nodes that both share is not looked at. Where the target lacks contents that only equal documents name,
// because it was pruned, or none does: all revisions of the source as well.
[[nodiscard]] ReplicationResult replicate(const DocumentStorage& source, const DocumentStorage& target,
                                          Takeover takeover);

}  // namespace libzentadbpp
