#include <array>
#include <iostream>
#include <memory>

#include "commands.h"
#include "host/arguments.h"
#include "host/data_shape.h"
#include "host/settings.h"
#include "host/store.h"
#include "host/summary.h"
#include "host/table.h"

namespace zentadb {

namespace {

struct Options {
    std::string store;
    std::string data;
    std::string output;
    bool compress = false;
    bool force = false;
    bool quiet = false;
    Settings settings;
};

// Elements under one id are one document. Where they say different things, all but the last would be gone.
void refuse_losses(const Options& options, const std::string& data, const std::string& config) {
    if (options.force) return;
    const auto parsed = nlohmann::json::parse(data, nullptr, false);
    if (!parsed.is_object()) return;
    const std::size_t lost = DataShape(parsed, nlohmann::json::parse(config)).lost();
    if (lost == 0) return;
    throw Failure(Outcome::input, counted(lost, "element") + " would be lost, as others have the same id",
                  "zentadb arrays " + options.data + " shows where, and what to do. --force keeps the last of each.");
}

Outcome update(const Options& options) {
    refuse_shared_input(std::array{options.store, options.data});
    const std::string data = read_file(options.data);
    StoreChange change(options.store, options.output, StoreChange::Missing::is_empty);
    if (options.compress) change.compress(true);
    const std::string config = options.settings.config_for(change.store());
    refuse_losses(options, data, config);
    const zentadbpp::Handle& before = change.store().handle;
    const zentadbpp::Handle updated = before.update(data, config);
    change.commit(updated);
    if (!options.quiet) std::cerr << summary(before, updated) << '\n';
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
    arguments.flag("--force", options->force, "Even if elements are lost that share an id");
    arguments.flag("-q,--quiet", options->quiet, "Do not tell what changed");
    options->settings.declare_writing(arguments);
    program.on(command, [options] { return update(*options); });
}

}  // namespace zentadb
