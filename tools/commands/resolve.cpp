#include <iostream>
#include <memory>

#include "commands.h"
#include "host/arguments.h"
#include "host/inside.h"
#include "host/store.h"
#include "host/table.h"

namespace zentadb {

namespace {

struct Options {
    std::string store;
    std::string id;
    std::string keep = "winner";
    std::string output;
    bool all = false;
};

// Closes every branch of a document but the one that ends in `kept`.
zentadbpp::Handle settled(const zentadbpp::Handle& handle, const std::string& id, const std::string& kept) {
    zentadbpp::Handle result;
    const zentadbpp::Value winner = handle.winning(id);
    const auto close = [&](std::string_view revision) {
        if (revision != kept) result = (result ? result : handle).resolve(id, revision);
    };
    for (const std::string_view loser : handle.conflicting(id)) close(loser);
    close(winner);
    if (!result) return handle.resolve(id, kept);  // its only leaf, which stays
    if (result.winning(id) == kept) return result;
    throw Failure(
        Outcome::input, id + ": " + kept + " cannot be made to win",
        "Another branch of the document ends in a deletion, which cannot be closed. To bring the content back, put it "
        "into the data under a new id.");
}

Outcome resolve(const Options& options) {
    if (options.all != options.id.empty()) throw Failure(Outcome::usage, "name a document, or take --all");
    StoreChange change(options.store, options.output);
    const zentadbpp::Handle& handle = change.store().handle;
    const Inside inside(handle);
    zentadbpp::Handle result;
    std::size_t count = 0;
    for (const Entry& document : inside.histories()) {
        if (options.all ? is_ordering(document.key) : document.key != options.id) continue;
        if (handle.conflicting(document.key).empty() && options.all) continue;
        ++count;
        std::string kept = handle.winning(document.key).str();
        if (options.keep != "winner") {
            const RevisionTree tree = inside.tree(document.key);
            const Revision& revision = tree[tree.find(options.keep)];
            if (!revision.is_leaf()) {
                throw Failure(Outcome::input, options.keep + ": this is not the end of a branch",
                              "zentadb conflicts " + options.store + " " + document.key + " shows what can be kept.");
            }
            kept = revision.name;
        }
        result = settled(result ? result : handle, document.key, kept);
    }
    if (!options.all && count == 0) static_cast<void>(inside.tree(options.id));
    if (result) {
        change.commit(result);
    } else {
        change.commit(handle);
    }
    std::cerr << counted(count, "document") << " settled\n";
    return Outcome::done;
}

}  // namespace

void add_resolve(Program& program) {
    const auto options = std::make_shared<Options>();
    CLI::App& command = program.command("resolve", settling, "Settle conflicts by keeping one version",
                                        "zentadb resolve trip.sync t1                      # keep the winner\n"
                                        "zentadb resolve trip.sync t1 2-9e01b7d            # keep another version\n"
                                        "zentadb resolve trip.sync --all");
    Arguments arguments(command);
    arguments.required("STORE", options->store, "The store");
    arguments.optional("ID", options->id, "Id of the document");
    arguments.optional("KEEP", options->keep, "The revision to keep, or how it begins; the winner if left out");
    arguments.flag("--all", options->all, "Keep the winner of every document");
    arguments.optional("-o,--output", options->output, "Write the store into this file, and leave STORE as it is");
    program.on(command, [options] { return resolve(*options); });
}

}  // namespace zentadb
