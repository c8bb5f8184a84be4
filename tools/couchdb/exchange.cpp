#include "couchdb/exchange.h"

#include "cli/failure.h"
#include "cli/terminal.h"
#include "cli/warning.h"
#include "couchdb/names.h"

namespace zentadb {

namespace {

using Json = Database::Json;

// The local document of the server that says which data the database holds.
constexpr const char* data_note = "zentadb";

// Data is known by its root document and that document's first revision.
Json data_of(const SyncJson& store) {
    const RevisionTree tree = store.tree(store.root_id());
    return {{"root", store.root_id()}, {"first", server_rev(tree[0])}};
}

Database connected(const ExchangeOptions& options, Progress& progress) {
    HttpClient client(options.url,
                      {options.retries, options.timeout, [&progress](const std::string& why) { progress.waits(why); }});
    if (client.exposes_credentials()) warn("the password is sent unencrypted; use https");
    Database database(std::move(client));
    database.open(options.create);
    return database;
}

}  // namespace

void ExchangeOptions::declare(Arguments& arguments) {
    arguments.required("STORE", store, "The store, a file");
    arguments.required("URL", url, "The database, such as https://couch.example.org/trip");
    arguments.flag("--afresh", afresh, "Compare everything, whatever earlier exchanges have recorded");
    arguments.optional("--batch", batch, "Documents in one request (default: 500)");
    arguments.optional("--retries", retries, "Retries of a request that fails temporarily (default: 5)");
    arguments.optional("--timeout", timeout, "Seconds that a request may take, with its retries (default: 600)");
    arguments.flag("-q,--quiet", quiet, "Print problems only");
    arguments.flag("--json", json, "Print the result as JSON");
}

Exchange::Exchange(const ExchangeOptions& given, const zentadbpp::Handle& handle)
    : options(given),
      progress(!options.quiet),
      store(handle),
      database(connected(options, progress)),
      checkpoint(options.store, database) {
    if (!store.documents().empty()) check_same_data();
    checkpoint.recall(store, options.afresh);
}

void Exchange::check_same_data() {
    const auto note = database.local(data_note);
    const Json data = data_of(store);
    const Json noted =
        note ? Json{{"root", note->value("root", data["root"])}, {"first", note->value("first", data["first"])}} : data;
    if (noted == data) return;
    throw Failure(ExitCode::unmergeable, database.url() + ": the database contains other data than the store",
                  "Its root document is \"" + printable(noted["root"].get<std::string>()) +
                      "\", with the first revision " + printable(noted["first"].get<std::string>()) +
                      ". Use another database for this store.");
}

void Exchange::note_data() {
    if (database.local(data_note)) return;
    if (!database.put_local(data_note, data_of(store))) check_same_data();
}

std::string Exchange::noted_root() {
    const auto note = database.local(data_note);
    return note ? note->value("root", std::string()) : std::string();
}

ExitCode run_exchange(const ExchangeOptions& options, const std::function<void()>& run) {
    if (options.store == "-") {
        throw Failure(ExitCode::usage, "the store must be a file", "The state of the exchange is kept beside it.");
    }
    // No message that names a file may name a password.
    if (options.store.find("://") != std::string::npos) {
        throw Failure(ExitCode::usage, "the store comes first, then the URL");
    }
    if (options.batch == 0 || options.batch > 10000) throw Failure(ExitCode::usage, "--batch must be from 1 to 10000");
    constexpr std::uint32_t day = 86400;
    if (options.timeout == 0 || options.timeout > day)
        throw Failure(ExitCode::usage, "--timeout must be from 1 to 86400");
    try {
        run();
        return ExitCode::done;
    } catch (const Json::exception& error) {
        throw Failure(ExitCode::network, std::string("not a response of a CouchDB server: ") + error.what());
    }
}

}  // namespace zentadb
