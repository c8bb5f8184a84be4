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
// server's changes, and a mark for every revision that both have. It only saves requests. It is used only if
// nothing can be missed because of it; otherwise everything is compared again, and still only what is missing is sent:
//
//   - The server must be in a later state. Each checkpoint has its own name, which a local document of the server
//     notes first. A recreated database, or one restored from a backup, does not have that name, even if other copies
//     of this store have continued there from the same checkpoint.
//   - The store must be in a later state as well. One that was restored from a backup lacks revisions of the marks.
//
// It is locked as long as it lives, so that two processes do not exchange the same.
class Checkpoint {
   public:
    using Json = nlohmann::json;

    Checkpoint(const std::string& store_path, Database& database);

    // Reads what was saved, and forgets it if it is not valid for these two, or if all is to be compared `afresh`.
    void recall(const SyncJson& store, bool afresh);

    [[nodiscard]] const Json& since() const { return since_; }
    // The name of what is saved; a journal that began after it continues after it.
    [[nodiscard]] const std::string& session() const { return session_; }
    [[nodiscard]] std::string journal_path() const { return path_ + "-pulled"; }

    [[nodiscard]] bool is_shared(std::uint64_t mark) const { return shared_.contains(mark); }
    void share(std::uint64_t mark) { is_changed_ = shared_.insert(mark).second || is_changed_; }

    // Saves what is shared of `store`, and `since`, if that is new. If the server does not allow it, nothing is saved.
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
