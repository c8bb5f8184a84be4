#include <iostream>
#include <limits>
#include <memory>

#include "cli/arguments.h"
#include "cli/table.h"
#include "commands.h"
#include "inspect/inside.h"
#include "store/settings.h"
#include "store/store.h"

namespace zentadb {

namespace {

struct Options {
    std::string store;
    std::string output;
    std::vector<std::string> ids;
    std::uint32_t keep = 1;
    bool force = false;
    bool dry_run = false;
    Settings settings;
};

Outcome prune(const Options& options) {
    if (options.keep == 0 && !options.force) {
        throw Failure(Outcome::usage, "--keep 0 would drop the data itself", "Take --force if that is what you want.");
    }
    StoreChange change(options.store, options.output);
    Store& store = change.store();
    // The library passes over what is no document; here it is a slip of the pen.
    const Inside inside(store.handle);
    for (const std::string& id : options.ids) static_cast<void>(inside.tree(id));
    const std::size_t unresolved = store.handle.unresolved().size();
    if (unresolved > 0 && !options.force) {
        throw Failure(Outcome::input,
                      counted(unresolved, "document") + " in conflict: pruning would drop the losing versions",
                      "Settle them first (zentadb conflicts, zentadb resolve), or take --force.");
    }
    const std::size_t before = inside.size();
    if (!(store.handle.all_docs() == "[]")) {
        // Takes the order that other copies gave to arrays into this one's, before what says so is dropped.
        static_cast<void>(store.handle.read(options.settings.config_for(store)));
    }
    const zentadbpp::Handle pruned = options.ids.empty()
                                         ? store.handle.prune(options.keep)
                                         : store.handle.prune_ids(nlohmann::json(options.ids).dump(), options.keep);
    const std::size_t after = pruned.dump().size();
    if (!options.dry_run) change.commit(pruned);
    std::cerr << readable_size(before) << (options.dry_run ? " would become " : " became ") << readable_size(after)
              << '\n';
    return Outcome::done;
}

}  // namespace

void add_prune(Program& program) {
    const auto options = std::make_shared<Options>();
    CLI::App& command = program.command("prune", settling, "Drop the contents of old revisions",
                                        "zentadb prune trip.sync\n"
                                        "zentadb prune trip.sync --keep 3 --dry-run");
    Arguments arguments(command);
    arguments.required("STORE", options->store, "The store");
    arguments.optional("ID", options->ids, "Only these documents");
    arguments.optional("--keep", options->keep,
                       "How many revisions of each document keep their content; 1 if left out");
    arguments.flag("--dry-run", options->dry_run, "Only tell what it would save");
    arguments.flag("--force", options->force, "Also where conflicts, or with --keep 0 the data, lose their contents");
    arguments.optional("-o,--output", options->output, "Write the store into this file, and leave STORE as it is");
    options->settings.declare_reading(arguments);
    program.on(command, [options] { return prune(*options); });
}

}  // namespace zentadb
