#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "cli/warning.h"
#include "couchdb/exchange.h"
#include "inspect/sync_json.h"

namespace zentadb {

// Revisions that come from a server, on their way into a store.
class Incoming {
   public:
    using Json = nlohmann::json;

    // Contents that do not hash to their names are refused, as those of `source`; with an empty one they are not looked
    // at.
    Incoming(const SyncJson& store, std::string source) : store_(store), source_(std::move(source)) {}

    // A document of a response as the library takes it; nothing if it does not belong to the data, which is noted. A
    // deletion that was made on the server deletes the document only if the server has no other leaf of it; otherwise
    // it resolves a conflict, and closes its branch.
    [[nodiscard]] std::optional<Json> accept(Json document, bool is_document_deleted);

    void add(const Json& accepted);
    [[nodiscard]] std::size_t count() const { return count_; }

    // The target with all that was added. An empty target begins with the root of this id, or with the one that the
    // library finds.
    [[nodiscard]] zentadbpp::Handle merged_into(const zentadbpp::Handle& target, const std::string& root) const;

    void print_warnings() const;

   private:
    [[nodiscard]] bool complete(const std::string& id, Json& revisions) const;
    void check_content(const Json& accepted);

    const SyncJson& store_;
    std::string source_;
    // Bodies for the library, each with at most one first revision for a document: it takes no more at a time.
    std::vector<std::string> bodies_;
    std::unordered_map<std::string, std::vector<std::string>> firsts_;
    std::unordered_map<std::string, Json> named_by_server_;
    std::size_t count_ = 0;
    Warning foreign_{"document of the database does not belong to this data and was skipped",
                     "documents of the database do not belong to this data and were skipped"};
    Warning attachments_{"document has attachments, which a store cannot keep; they stay on the server",
                         "documents have attachments, which a store cannot keep; they stay on the server"};
    Warning cut_short_{
        "document has a history that the server cut short and that is unknown here; it was skipped; raise _revs_limit, "
        "and push it again from a store that has it",
        "documents have a history that the server cut short and that is unknown here; they were skipped; raise "
        "_revs_limit, and push them again from a store that has them"};
    Warning unusable_{"document has revisions with names that a store cannot keep, and was skipped",
                      "documents have revisions with names that a store cannot keep, and were skipped"};
};

}  // namespace zentadb
