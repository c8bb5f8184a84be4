#include <iostream>

#include "cli/table.h"
#include "commands.h"
#include "inspect/places.h"
#include "inspect/sync_json.h"
#include "store/json_text.h"
#include "store/store.h"

namespace zentadb {

namespace {

struct Options {
    std::string store;
    bool all = false;
    bool json = false;
};

ExitCode docs(const Options& options) {
    Store store = open_store(options.store);
    const SyncJson sync_json(store.handle);
    const Places places(store);
    auto list = nlohmann::ordered_json::array();
    Table table({"ID", "REVISIONS", "WINNING", "STATE", "PLACE"});
    for (const Entry& history : sync_json.documents()) {
        if (is_ordering(history.key) && !options.all) continue;
        const RevisionTree tree(history.value);
        const std::string winning = store.handle.winning(history.key).str();
        const auto conflicts = store.handle.conflicting(history.key).size();
        const std::string place = places.of(history.key);
        const bool deleted = tree[tree.find(winning)].hash() == "deleted";
        std::string state = deleted ? "deleted" : is_ordering(history.key) ? "order of an array" : "";
        if (conflicts > 0 && !is_ordering(history.key)) state += (state.empty() ? "" : ", ") + std::string("conflict");
        if (options.json) {
            list.push_back({{"id", history.key},
                            {"revisions", tree.revisions().size()},
                            {"winning", winning},
                            {"deleted", deleted},
                            {"conflicts", conflicts},
                            {"place", place.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(place)}});
            continue;
        }
        table.add({{history.key},
                   {std::to_string(tree.revisions().size())},
                   {tree.short_names()[tree.find(winning)]},
                   {state, deleted ? Paint::dim : Paint::yellow},
                   {place, Paint::cyan}});
    }
    if (options.json) {
        std::cout << pretty(list) << '\n';
    } else if (!table.empty()) {
        table.print(std::cout);
    }
    return ExitCode::done;
}

}  // namespace

void add_docs(Program& program) {
    auto [arguments, options] = program.command("docs", docs, looking, "List the documents of a store",
                                                "zentadb docs trip.sync\n"
                                                "zentadb docs trip.sync --json | jq '.[] | select(.deleted) | .id'");
    arguments.required("STORE", options.store, "The store");
    arguments.flag("-a,--all", options.all, "Include the documents that store the order of arrays");
    arguments.flag("--json", options.json, "Print JSON");
}

}  // namespace zentadb
