#include <iostream>
#include <memory>

#include "commands.h"
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
    command.add_option("STORE", options->store, "The store; it is made if there is none")->required();
    command.add_option("DATA", options->data, "A JSON object, - for standard input")->required();
    command.add_option("-o,--output", options->output, "Write the store into this file, and leave STORE as it is");
    command.add_flag("--compress", options->compress, "Keep the store compressed from now on");
    options->settings.declare_writing(command);
    program.on(command, [options] { return update(*options); });
}

}  // namespace zentadb
