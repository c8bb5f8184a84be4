#include <array>
#include <iostream>
#include <memory>
#include <optional>

#include "commands.h"
#include "host/activity.h"
#include "host/arguments.h"
#include "host/data_shape.h"
#include "host/inside.h"
#include "host/json_text.h"
#include "host/settings.h"
#include "host/store.h"
#include "host/summary.h"
#include "host/table.h"
#include "host/warning.h"

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
void refuse_losses(const Options& options, const DataShape& shape) {
    const std::size_t lost = shape.lost();
    if (options.force || lost == 0) return;
    throw Failure(Outcome::input, counted(lost, "element") + " would be lost, as others have the same id",
                  "zentadb arrays " + options.data + " shows where, and what to do. --force keeps the last of each.");
}

// A document whose deletion won stays deleted, also where data holds it again.
void warn_of_deleted(const DataShape& shape, const zentadbpp::Handle& updated) {
    Warning deleted{"element was deleted before, and stays so as long as it has the same id",
                    "elements were deleted before, and stay so as long as they have the same id"};
    const Inside inside(updated);
    for (const Entry& document : inside.histories()) {
        if (document.value.find("\"deleted_") == std::string_view::npos || !shape.has_element(document.key)) continue;
        const zentadbpp::Value winner = updated.winning(document.key);
        if (winner.view().find("-deleted_") != std::string_view::npos) deleted.add(document.key);
    }
    deleted.tell();
}

Outcome update(const Options& options) {
    refuse_shared_input(std::array{options.store, options.data});
    const std::string data = read_file(options.data);
    StoreChange change(options.store, options.output, StoreChange::Missing::is_empty);
    if (options.compress) change.compress(true);
    const std::string config = options.settings.config_for(change.store());
    const auto parsed = nlohmann::json::parse(data, nullptr, false);
    std::optional<DataShape> shape;
    if (parsed.is_object()) shape.emplace(parsed, nlohmann::json::parse(config));
    if (shape) refuse_losses(options, *shape);
    const zentadbpp::Handle& before = change.store().handle;
    Activity::current().doing("updating " + options.store);
    const zentadbpp::Handle updated = [&] {
        try {
            return before.update(data, config);
        } catch (const zentadbpp::Error& error) {
            throw explained(error, options.data, data, nlohmann::json::parse(config));
        }
    }();
    change.commit(updated);
    if (!options.quiet) std::cerr << summary(before, updated) << '\n';
    if (shape) warn_of_deleted(*shape, updated);
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
