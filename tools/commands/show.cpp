#include <iostream>

#include "commands.h"
#include "inspect/sync_json.h"
#include "store/json_text.h"
#include "store/settings.h"
#include "store/store.h"

namespace zentadb {

namespace {

struct Options {
    std::string store;
    std::string id;
    std::string revision;
    Settings settings;
};

ExitCode show(const Options& options) {
    const Store store = open_store(options.store);
    const RevisionTree tree = SyncJson(store.handle, input_name(store.path)).tree(options.id);
    const std::string revision =
        options.revision.empty() ? store.handle.winning(options.id).str() : tree[tree.find(options.revision)].name;
    std::cout << store.handle.data(options.id, revision, options.settings.config_for(store)) << '\n';
    return ExitCode::done;
}

}  // namespace

void add_show(Program& program) {
    auto [arguments, options] = program.command("show", show, looking, "Print one document, current or old",
                                                "zentadb show trip.sync root\n"
                                                "zentadb show trip.sync t1 2-5a8f3c2");
    arguments.required("STORE", options.store, "The store");
    arguments.required("ID", options.id, "Id of the document");
    arguments.optional("REV", options.revision, "A revision or its beginning (default: the winning one)");
    options.settings.declare_reading(arguments);
}

}  // namespace zentadb
