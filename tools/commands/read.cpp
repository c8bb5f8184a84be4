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
    std::string output = "-";
    Settings settings;
};

Outcome read(const Options& options) {
    Store store = open_store(options.store);
    const std::string config = options.settings.config_for(store);
    write_output(options.output, store.handle.read(config).str() + "\n");
    return Outcome::done;
}

}  // namespace

void add_read(Program& program) {
    const auto options = std::make_shared<Options>();
    CLI::App& command = program.command("read", daily_use, "Print the data of a store",
                                        "zentadb read trip.sync > trip.json\n"
                                        "zentadb read trip.sync --discard-id -o trip.json");
    Arguments arguments(command);
    arguments.required("STORE", options->store, "The store, - for standard input");
    arguments.optional("-o,--output", options->output, "Write the data into this file");
    options->settings.declare_reading(arguments);
    program.on(command, [options] { return read(*options); });
}

}  // namespace zentadb
