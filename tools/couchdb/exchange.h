#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "cli/arguments.h"
#include "cli/program.h"
#include "couchdb/checkpoint.h"
#include "couchdb/database.h"
#include "couchdb/progress.h"
#include "inspect/sync_json.h"
#include "store/settings.h"

namespace zentadb {

// The command lines of push and pull.
struct ExchangeOptions {
    std::string store;
    std::string url;
    std::uint32_t batch = 500;
    std::uint32_t retries = 5;
    std::uint32_t timeout = 600;
    bool create = false;
    bool afresh = false;
    bool force = false;  // of a pull
    bool quiet = false;
    bool json = false;
    Settings settings;  // of a push

    void declare(Arguments& arguments);
};

// What push and pull begin with. Throws Failure (unmergeable) if the database contains other data than the store.
class Exchange {
   public:
    Exchange(const ExchangeOptions& given, const zentadbpp::Handle& handle);

    // Notes in the database which data it holds, as the first push does. The store must not be empty.
    void note_data();
    // The id of the root document, if it was noted; else empty.
    [[nodiscard]] std::string noted_root();

    const ExchangeOptions& options;
    Progress progress;
    SyncJson store;
    Database database;
    Checkpoint checkpoint;

   private:
    void check_same_data();
};

// Runs an exchange. A malformed response ends it with Failure (network).
[[nodiscard]] ExitCode run_exchange(const ExchangeOptions& options, const std::function<void()>& run);

}  // namespace zentadb
