#include "couchdb/exchange.h"

#include <iostream>

#include "cli/failure.h"
#include "cli/terminal.h"

namespace zentadb {

namespace {

constexpr const char* data_note = "zentadb";

}  // namespace

void ExchangeOptions::declare(Arguments& arguments) {
    arguments.required("STORE", store, "The store, a file");
    arguments.required("URL", url, "The database, such as https://couch.example.org/trip");
    arguments.flag("--afresh", afresh, "Compare everything, whatever is remembered of earlier exchanges");
    arguments.optional("--batch", batch, "Documents in one request, 500 if left out");
    arguments.optional("--retries", retries,
                       "How often a request is repeated that fails for the moment; 5 if left out");
    arguments.optional("--timeout", timeout, "Seconds that a request may take, with its repetitions; 600 if left out");
    arguments.flag("-q,--quiet", quiet, "Tell only of problems");
    arguments.flag("--json", json, "Tell the outcome as JSON");
}

Database connect(const ExchangeOptions& options, Progress& progress) {
    HttpClient client(options.url,
                      {options.retries, options.timeout, [&progress](const std::string& why) { progress.waits(why); }});
    if (client.exposes_credentials()) warn("the password travels unencrypted; use https");
    Database database(std::move(client));
    database.open(options.create);
    return database;
}

void check_same_data(Database& database, const std::string& root, const std::string& first) {
    const auto note = database.local(data_note);
    if (!note || (note->value("root", root) == root && note->value("first", first) == first)) return;
    throw Failure(Outcome::unmergeable, database.url() + ": the database holds other data than the store",
                  "Its root document is \"" + printable(note->value("root", root)) + "\", begun as " +
                      printable(note->value("first", first)) + ". Take another database for this store.");
}

void note_data(Database& database, const std::string& root, const std::string& first) {
    if (database.local(data_note)) return;
    if (!database.put_local(data_note, {{"root", root}, {"first", first}})) check_same_data(database, root, first);
}

std::string noted_root(Database& database) {
    const auto note = database.local(data_note);
    return note ? note->value("root", std::string()) : std::string();
}

Outcome run_exchange(const ExchangeOptions& options, Outcome (*run)(const ExchangeOptions&)) {
    if (options.store == "-") {
        throw Failure(Outcome::usage, "the store has to be a file", "What was exchanged is remembered beside it.");
    }
    // No message that names a file may name a password.
    if (options.store.find("://") != std::string::npos) {
        throw Failure(Outcome::usage, "the store comes first, and then the URL");
    }
    if (options.batch == 0 || options.batch > 10000) throw Failure(Outcome::usage, "--batch is from 1 to 10000");
    constexpr std::uint32_t day = 86400;
    if (options.timeout == 0 || options.timeout > day) throw Failure(Outcome::usage, "--timeout is from 1 to 86400");
    try {
        return run(options);
    } catch (const Database::Json::exception& error) {
        throw Failure(Outcome::network, std::string("the answer is not one of a CouchDB server: ") + error.what());
    }
}

}  // namespace zentadb
