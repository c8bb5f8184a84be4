#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "couchdb/http.h"

namespace zentadb {

// Throws Failure (network) unless an answer has the shape that it should: what a server did not say must not be taken
// for nothing to be said.
void expect_shape(bool is_right, const std::string& what);

// A database on a server that speaks the CouchDB replication protocol. Throws Failure (refused) for what the server
// will not do, and (network) for what cannot be its answer. A question that is too large for the server is asked in
// halves.
class Database {
   public:
    using Json = nlohmann::json;

    explicit Database(HttpClient client) : client_(std::move(client)) {}

    [[nodiscard]] const std::string& url() const { return client_.url(); }

    // Makes sure that the database is there, as all else takes for granted.
    void open(bool create);

    // Whether the server has come as far as where its changes are said to have been read.
    [[nodiscard]] bool has_reached(const Json& since) const;

    // A document that only this server keeps, and that counts for no data.
    [[nodiscard]] std::optional<Json> local(const std::string& name);
    // Writes one; false where another process did so since `document` was read, or the server does not allow it.
    [[nodiscard]] bool put_local(const std::string& name, const Json& document);

    // How many revisions of each document the server keeps; 0 where it does not tell.
    [[nodiscard]] std::size_t revs_limit();

    // {id: [rev, ...]} to {id: {"missing": [rev, ...]}}.
    [[nodiscard]] Json revs_diff(const Json& revisions);
    // Those of some documents that are there, deleted ones too, each with its leading revision: [{"id", "rev"}, ...].
    [[nodiscard]] Json leading_revs(const Json& ids);
    // What went wrong, by document: [{"id", "error", "reason"}, ...]. Nothing where the body was too large for the
    // server.
    [[nodiscard]] std::optional<Json> bulk_docs(const std::string& body);
    // {"results": [{"id", "changes": [{"rev"}, ...], "deleted"}, ...], "last_seq"}.
    [[nodiscard]] Json changes(const Json& since, std::size_t limit);
    // [{"id", "rev"}, ...] to [{"docs": [{"ok"}, ...]}, ...].
    [[nodiscard]] Json bulk_get(const Json& wanted);

   private:
    [[nodiscard]] Json parsed(const Answer& answer) const;
    [[nodiscard]] Json expect(const Answer& answer) const;
    [[noreturn]] void refuse(const Answer& answer) const;

    HttpClient client_;
    Json update_seq_;
};

}  // namespace zentadb
