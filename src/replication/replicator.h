#pragma once

#include "documents/document_storage.h"

namespace libzentadbpp {

// The target with every document and content of the source merged into it; it then knows all that the source knows.
// Replicating again adds nothing, and copies replicated into each other in any order end up alike. Different root ids:
// ReplicationException "mismatching_root_document_identifiers". O(documents of both + revisions of those that differ);
// what lies in nodes that both share is not looked at. Where the target lacks contents that only equal documents name,
// because it was pruned, or none does: all revisions of the source as well.
//
// What comes over from the source is copied into the memory: a target that lives on would otherwise keep the whole text
// that its source was opened from. If the memory is that of a call (`SharedMemory::is_arena`), both end with it, and
// the target shares what the source has.
[[nodiscard]] DocumentStorage replicate(const DocumentStorage& source, const DocumentStorage& target,
                                        SharedMemory& memory);

}  // namespace libzentadbpp
