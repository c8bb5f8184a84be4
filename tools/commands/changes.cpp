#include <array>
#include <iostream>
#include <unordered_set>

#include "cli/table.h"
#include "commands.h"
#include "inspect/names.h"
#include "inspect/places.h"
#include "store/files.h"
#include "store/json_text.h"
#include "store/store.h"

namespace zentadb {

namespace {

struct Options {
    std::string older;
    std::string newer;
    bool all = false;
    bool json = false;
    bool exit_code = false;
};

ExitCode changes(const Options& options) {
    refuse_shared_input(std::array{options.older, options.newer});
    Store older = open_store(options.older);
    Store newer = open_store(options.newer);
    const Places places(newer);
    auto result = nlohmann::ordered_json::object();
    Table table({});
    std::size_t count = 0;
    const zentadbpp::List deleted = newer.handle.deleted(older.handle);
    const std::unordered_set<std::string_view> gone(deleted.begin(), deleted.end());
    const auto add = [&](const char* kind, Paint paint, const zentadbpp::List& ids) {
        auto& list = result[kind] = nlohmann::ordered_json::array();
        for (const std::string_view id : ids) {
            if (is_ordering(id) && !options.all) continue;
            // A deletion is an update as well, to the library.
            if (&ids != &deleted && gone.contains(id)) continue;
            list.push_back(id);
            ++count;
            table.add({{kind, paint}, {std::string(id)}, {places.of(std::string(id)), Paint::cyan}});
        }
    };
    add("created", Paint::green, newer.handle.created(older.handle));
    add("updated", Paint::yellow, newer.handle.updated(older.handle));
    add("deleted", Paint::red, deleted);
    if (options.json) {
        std::cout << pretty(result) << '\n';
    } else {
        table.print(std::cout);
    }
    return options.exit_code && count > 0 ? ExitCode::found : ExitCode::done;
}

}  // namespace

void add_changes(Program& program) {
    auto [arguments, options] =
        program.command("changes", changes, looking, "List the documents that differ from an older state",
                        "zentadb changes yesterday.sync trip.sync\n"
                        "git show HEAD:trip.sync | zentadb changes - trip.sync");
    arguments.required("OLD", options.older, "The older store, - for standard input");
    arguments.required("NEW", options.newer, "The newer store, - for standard input");
    arguments.flag("-a,--all", options.all, "Include the documents that store the order of arrays");
    arguments.flag("--json", options.json, "Print JSON");
    arguments.flag("--exit-code", options.exit_code, "Exit with 1 if there are changes");
}

}  // namespace zentadb
