#pragma once

#include <string>
#include <vector>

#include "inspect/sync_json.h"

namespace zentadb {

// Revisions of one document that a server is to get.
struct Outgoing {
    const Entry* document;
    std::vector<std::size_t> tips;  // places in its tree
};

// Puts what refers to a document before that document. A copy that pulls in the midst of a push then finds lists with
// entries that are not there yet, which do no harm; but not a document that nothing refers to, which it would take for
// one that was removed.
void put_parents_first(const SyncJson& store, std::vector<Outgoing>& outgoing);

// Throws Failure (input) if a CouchDB server accepts no document of this id.
void check_id(const std::string& id);

// A revision as an element of "docs" in _bulk_docs. Throws Failure (input) for what a CouchDB server cannot hold.
[[nodiscard]] std::string text_for_server(const SyncJson& store, const Entry& document, const RevisionTree& tree,
                                          std::size_t tip);

}  // namespace zentadb
