#include <iostream>
#include <map>
#include <vector>

#include "cli/activity.h"
#include "cli/explain.h"
#include "cli/library_silence.h"
#include "cli/terminal.h"
#include "commands.h"
#include "inspect/forgery.h"
#include "inspect/hidden_documents.h"
#include "inspect/summary.h"
#include "resolve/join.h"
#include "store/store.h"

namespace zentadb {

namespace {

struct Options {
    std::string store;
    std::vector<std::string> sources;
    std::string output;
    std::string name;
    bool force = false;
    bool join = false;
    bool quiet = false;
    bool exit_code = false;
};

// The store as messages call it: git merges in a temporary file.
std::string name_of(const Options& options) { return options.name.empty() ? options.store : options.name; }

ExitCode merge(const Options& options) {
    std::vector<std::string> inputs = options.sources;
    inputs.push_back(options.store);
    refuse_shared_input(inputs);
    // They may arrive slowly through a pipe, so the store is locked only after that.
    std::vector<Store> sources;
    for (const std::string& path : options.sources) sources.push_back(open_store(path));
    StoreChange change(options.store, options.output, StoreChange::Missing::is_empty);
    const zentadbpp::Handle& before = change.store().handle;
    Store merged{name_of(options), zentadbpp::Handle()};
    std::map<std::string, std::string> new_ids;
    for (Store& source : sources) {
        Activity::current().doing("merging " + source.path);
        if (!options.force) refuse_forged(source.handle, before, source.text, source.path);
        Store& target = merged.handle ? merged : change.store();
        try {
            const LibrarySilence silence;
            merged.handle = zentadbpp::replicate(source.handle, target.handle);
        } catch (const zentadbpp::Error& error) {
            if (error.key() != "cannot_replace_first_revision") throw;
            if (!options.join) refuse_shared_ids(target, source, error);
            Joined both = joined(target, source);
            new_ids.insert(both.new_ids.begin(), both.new_ids.end());
            merged.handle = std::move(both.store);
        }
    }
    change.commit(merged.handle);
    const std::string notice =
        conflict_notice(merged.handle, options.output.empty() ? name_of(options) : options.output);
    if (!options.quiet) {
        for (const auto& [id, new_id] : new_ids) {
            std::cerr << printable(id) << " of one copy is now " << printable(new_id) << '\n';
        }
        std::cerr << summary(before, merged.handle) << '\n';
        const std::string instances = instance_notice(before, merged.handle);
        if (!instances.empty()) std::cerr << painted(Paint::yellow, instances, std::cerr) << '\n';
        for (const std::string& hidden : hidden_notices(before, merged.handle, name_of(options))) {
            std::cerr << painted(Paint::yellow, hidden, std::cerr) << '\n';
        }
        if (!notice.empty()) std::cerr << painted(Paint::yellow, notice, std::cerr) << '\n';
    }
    return options.exit_code && !notice.empty() ? ExitCode::found : ExitCode::done;
}

// The same with the name of the store in messages of failures.
ExitCode merge_named(const Options& options) {
    const auto named = [&](const Failure& failure) {
        const std::string prefix = options.name.empty() ? "" : options.name + ": ";
        return Failure(failure.exit_code(), prefix + failure.what(), failure.advice());
    };
    try {
        return merge(options);
    } catch (const Failure& failure) {
        throw named(failure);
    } catch (const zentadbpp::Error& error) {
        throw named(explained(error));
    }
}

}  // namespace

void add_merge(Program& program) {
    auto [arguments, options] =
        program.command("merge", merge_named, daily_use, "Merge other copies into a store",
                        "zentadb merge laptop.sync phone.sync\n"
                        "ssh phone cat trip.sync | zentadb merge trip.sync -\n"
                        "git config merge.zentadb.driver 'zentadb merge --name %P %A %B'   # *.sync merge=zentadb");
    arguments.required("STORE", options.store, "The store; created if it is missing");
    arguments.required("FROM", options.sources, "The stores to merge, - for standard input");
    arguments.optional("-o,--output", options.output, "Write the result to this file and leave STORE unchanged");
    arguments.optional("--name", options.name, "Name of the store in messages, if STORE is a temporary file");
    arguments.flag("--force", options.force, "Merge contents even if they do not hash to their names");
    arguments.flag("--join", options.join, "Keep both objects if copies created them independently under one id");
    arguments.flag("-q,--quiet", options.quiet, "Do not print what changed");
    arguments.flag("--exit-code", options.exit_code, "Exit with 1 if there are conflicts after the merge");
}

}  // namespace zentadb
