#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "inspect/revision_tree.h"

namespace zentadb {

// What a server calls the revisions of the library, and the other way round.
//
// A revision "3-<hash>_<suffix>" of the library has the same name on the server. The bare hash would not do: two
// branches of a document that are closed, deleted, or come to the same content in one generation differ in the suffix
// only, and a server that knows one of them would be taken to know the other.
//
// A revision that was made on the server has a name without a suffix, "3-<digits>". It comes in with its digits as the
// hash and with the suffix that any child of its parent has, and goes by its own name when it is sent elsewhere.
//
// A deletion that was made on the server comes in as the library's own, "deleted" or "resolved" with the suffix of its
// parent, and is sent back under that name: the library knows deletions by that word, and all copies must agree.

// The entry as the server has it in "ids", and with its generation as "_rev".
[[nodiscard]] std::string server_id(std::string_view entry);
[[nodiscard]] std::string server_rev(const Revision& revision);

// The places of the revisions that nothing follows, those that are deleted or closed among them.
[[nodiscard]] std::vector<std::size_t> tips_of(const RevisionTree& tree);

// Whether the library can take such an entry of "ids".
[[nodiscard]] bool is_acceptable_id(std::string_view id);

// A number for a revision of a document, by which it is remembered that both sides have it.
[[nodiscard]] std::uint64_t mark_of(std::string_view document, std::string_view rev);

}  // namespace zentadb
