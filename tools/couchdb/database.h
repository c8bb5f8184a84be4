#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "couchdb/http.h"

namespace zentadb {

// Throws Failure (network) unless a response has the right shape: a malformed one must not pass for an empty one.
[[noreturn]] void refuse_shape(const std::string& what);
inline void expect_shape(bool is_right, const std::string& what) {
    if (!is_right) refuse_shape(what);
}

// A database on a server that speaks the CouchDB replication protocol. Throws Failure (refused) for what the server
// refuses, and (network) for an invalid response. A request that is too large for the server is sent in halves.
class Database {
   public:
    using Json = nlohmann::json;

    explicit Database(HttpClient client) : client_(std::move(client)) {}

    [[nodiscard]] const std::string& url() const { return client_.url(); }

    // Checks that the database exists, which all other functions assume.
    void open(bool create);

    // Whether the server has reached the sequence up to which its changes were read.
    [[nodiscard]] bool has_reached(const Json& since) const;

    // A document that only this server keeps and that is not part of the data.
    [[nodiscard]] std::optional<Json> local(const std::string& name);
    // Writes one; false if another process did so since `document` was read, or if the server does not allow it.
    [[nodiscard]] bool put_local(const std::string& name, const Json& document);

    // How many revisions of each document the server keeps; 0 if it does not say.
    [[nodiscard]] std::size_t revs_limit();

    // {id: [rev, ...]} to {id: {"missing": [rev, ...]}}.
    [[nodiscard]] Json revs_diff(const Json& revisions);
    // Those of some documents that are there, deleted ones too, each with its leading revision: [{"id", "rev"}, ...].
    [[nodiscard]] Json leading_revs(const Json& ids);
    // The failures, by document: [{"id", "error", "reason"}, ...]. Nothing if the body was too large for the server.
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
