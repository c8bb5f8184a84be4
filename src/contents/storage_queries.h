#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "documents/document_storage.h"

namespace libzentadbpp {

// Questions about a whole storage, comparisons of two, and the operations that drop content. Sets come in ascending
// byte order; O(documents) unless said otherwise.

// Whether a content is stored under the data hash of a revision; reserved ones always are. A text that is not a
// revision string but the id of a document means that document's winning revision; any other text fails as parsing
// does.
[[nodiscard]] bool available(const DocumentStorage& storage, std::string_view revision_or_id);

// The instances that wrote ordering documents; one whose content is missing is passed over. O(their contents).
[[nodiscard]] std::vector<std::string> instances(const DocumentStorage& storage);
// The documents with a conflicting revision, ordering documents left out: those are reconciled by the library itself.
[[nodiscard]] std::vector<std::string> unresolved(const DocumentStorage& storage);

// The documents of `storage` that `old` does not have; that are deleted in it, but not in `old`; whose winning contents
// differ.
[[nodiscard]] std::vector<std::string> created(const DocumentStorage& storage, const DocumentStorage& old);
[[nodiscard]] std::vector<std::string> deleted(const DocumentStorage& storage, const DocumentStorage& old);
[[nodiscard]] std::vector<std::string> updated(const DocumentStorage& storage, const DocumentStorage& old);

// Every document cut down to the path from its first revision to its winning one, with the contents of those paths.
// If the winning list of an ordering document was grafted under the first one, that one is closed if another branch
// followed it.
[[nodiscard]] DocumentStorage all_winning(const DocumentStorage& storage);

inline constexpr std::uint32_t no_prune_limit = 0xffffffff;

// Drops every content but those of the newest `limit` revisions of each winning history, winning revisions left out
// if `skip_winning` is set; the winning contents of ordering documents always stay. The trees stay as they are.
[[nodiscard]] DocumentStorage prune(const DocumentStorage& storage, std::uint32_t limit, bool skip_winning);
// The same for the listed documents (ascending, each once); ids of no documents are passed over, and content that any
// document outside the list names stays.
[[nodiscard]] DocumentStorage prune_ids(const DocumentStorage& storage, const std::vector<std::string_view>& ids,
                                        std::uint32_t limit, bool skip_winning);

}  // namespace libzentadbpp
