#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/arguments.h"
#include "cli/program.h"
#include "cli/warning.h"
#include "couchdb/database.h"
#include "couchdb/progress.h"
#include "store/settings.h"

namespace zentadb {

// What push and pull have in common.
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

[[nodiscard]] Database connect(const ExchangeOptions& options, Progress& progress);

// Ends the run where the database holds other data than the store with this root, whose first revision has this name.
// What a database holds is noted there once, by the first push.
void check_same_data(Database& database, const std::string& root, const std::string& first);
void note_data(Database& database, const std::string& root, const std::string& first);
// The id of the root document, where it was noted; else empty.
[[nodiscard]] std::string noted_root(Database& database);

// Runs an exchange; an answer of the wrong shape ends it with a failure that says so.
[[nodiscard]] Outcome run_exchange(const ExchangeOptions& options, Outcome (*run)(const ExchangeOptions&));

}  // namespace zentadb
