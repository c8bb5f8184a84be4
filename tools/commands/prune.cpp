#include <iostream>
#include <nlohmann/json.hpp>

#include "cli/table.h"
#include "commands.h"
#include "inspect/sync_json.h"
#include "store/json_text.h"
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

ExitCode prune(const Options& options) {
    if (options.keep == 0 && !options.force) {
        throw Failure(ExitCode::usage, "--keep 0 would drop the data itself", "Use --force if you want that.");
    }
    StoreChange change(options.store, options.output);
    Store& store = change.store();
    // The library ignores ids without a document; here they are typing errors.
    const SyncJson sync_json(store.handle, input_name(store.path));
    for (const std::string& id : options.ids) static_cast<void>(sync_json.tree(id));
    const std::size_t unresolved = store.handle.unresolved().size();
    if (unresolved > 0 && !options.force) {
        throw Failure(ExitCode::input,
                      counted(unresolved, "document") + " in conflict: pruning would drop the losing versions",
                      "Resolve them first (zentadb conflicts, zentadb resolve), or use --force.");
    }
    const std::size_t before = sync_json.text().size();
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
    return ExitCode::done;
}

}  // namespace

void add_prune(Program& program) {
    auto [arguments, options] = program.command("prune", prune, maintenance, "Drop the contents of old revisions",
                                                "zentadb prune trip.sync\n"
                                                "zentadb prune trip.sync --keep 3 --dry-run");
    arguments.required("STORE", options.store, "The store");
    arguments.optional("ID", options.ids, "Only these documents");
    arguments.optional("--keep", options.keep, "Revisions of each document that keep their content (default: 1)");
    arguments.flag("--dry-run", options.dry_run, "Only print what it would save");
    arguments.flag("--force", options.force, "Prune even if conflicts, or with --keep 0 the data, lose their contents");
    arguments.optional("-o,--output", options.output, "Write the store to this file and leave STORE unchanged");
    options.settings.declare_reading(arguments);
}

}  // namespace zentadb
