#include <iostream>
#include <memory>

#include "commands.h"
#include "host/arguments.h"
#include "host/settings.h"
#include "host/store.h"

namespace zentadb {

namespace {

struct Options {
    std::string store;
    std::string data;
    std::string output;
    bool compress = false;
    Settings settings;
};

Outcome update(const Options& options) {
    if (options.store == "-" && options.data == "-") {
        throw Failure(Outcome::usage, "the store and the data cannot both come from standard input");
    }
    const std::string data = read_file(options.data);
    StoreChange change(options.store, options.output, StoreChange::Missing::is_empty);
    if (options.compress) change.compress(true);
    const std::string config = options.settings.config_for(change.store());
    change.commit(change.store().handle.update(data, config));
    return Outcome::done;
}

}  // namespace

void add_update(Program& program) {
    const auto options = std::make_shared<Options>();
    CLI::App& command = program.command("update", daily_use, "Bring a store up to date with data",
                                        "zentadb update trip.sync trip.json\n"
                                        "curl -s https://example.org/trip.json | zentadb update trip.sync -");
    Arguments arguments(command);
    arguments.required("STORE", options->store, "The store; it is made if there is none");
    arguments.required("DATA", options->data, "A JSON object, - for standard input");
    arguments.optional("-o,--output", options->output, "Write the store into this file, and leave STORE as it is");
    arguments.flag("--compress", options->compress, "Keep the store compressed from now on");
    options->settings.declare_writing(arguments);
    program.on(command, [options] { return update(*options); });
}

}  // namespace zentadb
