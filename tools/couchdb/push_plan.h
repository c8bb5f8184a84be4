#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <unordered_map>
#include <vector>

#include "cli/warning.h"
#include "couchdb/exchange.h"
#include "couchdb/outgoing.h"

namespace zentadb {

// What a push sends.
struct PushPlan {
    std::vector<Outgoing> outgoing;  // what the server lacks, in the order in which to send it
    // What the server keeps of the documents' attachments, by the mark of the revision that goes on with them.
    std::unordered_map<std::uint64_t, nlohmann::json> attachments;
    std::size_t compared = 0;  // documents that the server was asked for
    Warning pruned{"document has revisions whose content was pruned here; those were not sent",
                   "documents have revisions whose content was pruned here; those were not sent"};
};

// Asks the server what it lacks. All or nothing: throws Failure for what the server cannot hold, or has as another
// document.
[[nodiscard]] PushPlan plan_push(Exchange& begun);

}  // namespace zentadb
