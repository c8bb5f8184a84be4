#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <unordered_set>

#include "couchdb/database.h"
#include "inspect/sync_json.h"
#include "store/files.h"

namespace zentadb {

// What a store remembers of its last exchange with a database, in a file beside it: up to where it has seen the
// server's changes, and a mark for every revision that both have. It is an aid to ask for less. It counts only where
// nothing can be missed for it, or else all is asked for again, and still only what is missing is sent:
//
//   - The server has to be a later state of the one it was taken of. Each checkpoint has a name of its own, which is
//     noted in a local document of the server first. A server that was made anew, or brought back from a backup, does
//     not have that name, even where other copies of this store have gone on there from the same checkpoint.
//   - The store has to be a later state as well. One that was brought back from a backup lacks revisions of the marks.
//
// It is locked as long as it lives, so that two processes do not exchange the same.
class Checkpoint {
   public:
    using Json = nlohmann::json;

    Checkpoint(const std::string& store_path, Database& database);

    // Reads what there is, and forgets it where it does not count for these two, or where all is to be asked `afresh`.
    void recall(const SyncJson& store, bool afresh);

    [[nodiscard]] const Json& since() const { return since_; }
    // Names what is remembered; a journal that began after it goes on after it.
    [[nodiscard]] const std::string& session() const { return session_; }
    [[nodiscard]] std::string journal_path() const { return path_ + "-pulled"; }

    [[nodiscard]] bool is_shared(std::uint64_t mark) const { return shared_.contains(mark); }
    void share(std::uint64_t mark) { is_changed_ = shared_.insert(mark).second || is_changed_; }

    // Remembers what is shared of `store`, and `since`, if that is anything new. Where the server does not allow for
    // it, nothing is remembered.
    void save(const SyncJson& store, const Json& since);

   private:
    [[nodiscard]] std::string local_name() const { return "zentadb-" + session_; }
    [[nodiscard]] bool is_valid(const Json& saved, const SyncJson& store);
    [[nodiscard]] bool note_on_server(const std::string& name);

    Database& database_;
    std::string path_;
    FileLock lock_;
    std::string session_;
    Json since_ = 0;
    std::unordered_set<std::uint64_t> shared_;
    bool is_changed_ = true;
};

}  // namespace zentadb
