#include <algorithm>
#include <array>
#include <iostream>

#include "cli/activity.h"
#include "cli/table.h"
#include "cli/terminal.h"
#include "cli/warning.h"
#include "commands.h"
#include "inspect/explain_data.h"
#include "inspect/summary.h"
#include "store/json_text.h"
#include "store/settings.h"
#include "store/store.h"

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

std::string why(const zentadbpp::Difference& found) {
    constexpr std::size_t longest = 40;  // ids made from places mean nothing to users
    const std::string id = found.id.size() > longest ? "" : printable(found.id);
    if (found.reason == "deleted") return (id.empty() ? "this" : id) + " was deleted before and stays deleted";
    if (found.reason == "shared_id") {
        return "another object with the same id" + (id.empty() ? "" : ", " + id + ",") + " is kept in its place";
    }
    if (found.reason == "number") return "the number has too many digits";
    return "the value would change";
}

std::string described(const std::string& path, const std::vector<zentadbpp::Difference>& found) {
    constexpr std::size_t most = 10;
    std::string text = printable(path) + ": " + counted(found.size(), "place") + " would not read back as given";
    for (std::size_t at = 0; at < std::min(found.size(), most); ++at) {
        text.append("\n  ").append(printable(found[at].place)).append("  ").append(why(found[at]));
    }
    if (found.size() > most) text.append("\n  and ").append(std::to_string(found.size() - most)).append(" more");
    return text;
}

std::string what_helps(const std::string& path, const std::vector<zentadbpp::Difference>& found) {
    const auto has = [&](std::string_view reason) {
        return std::ranges::find(found, reason, &zentadbpp::Difference::reason) != found.end();
    };
    std::string advice;
    if (has("deleted")) advice += "To restore a deleted object, give it another \"_id\".\n";
    if (has("shared_id")) advice += "zentadb arrays " + path + " shows which elements need ids, and what to do.\n";
    if (has("number")) advice += "Write long numbers as strings.\n";
    return advice + "--force stores the data anyway.";
}

// The store must give back what was given: the library takes any object, but one id is one document, and what was
// deleted stays deleted.
void refuse_losses(const Options& options, const std::string& data, const std::string& config,
                   zentadbpp::Handle& updated) {
    const std::vector<zentadbpp::Difference> found = zentadbpp::check_stored(data, config, updated);
    if (found.empty()) return;
    const std::string path = input_name(options.data);
    if (!options.force)
        throw Failure(ExitCode::input, described(path, found), what_helps(options.data == "-" ? "DATA" : path, found));
    warn(described(path, found));
}

ExitCode update(const Options& options) {
    refuse_shared_input(std::array{options.store, options.data});
    const std::string data = read_file(options.data);
    StoreChange change(options.store, options.output, StoreChange::Missing::is_empty);
    if (options.compress) change.compress(true);
    const std::string config = options.settings.config_for(change.store());
    const zentadbpp::Handle& before = change.store().handle;
    Activity::current().doing("updating " + options.store);
    zentadbpp::Handle updated = [&] {
        try {
            return before.update(data, config);
        } catch (const zentadbpp::Error& error) {
            throw explained(error, options.data, data, nlohmann::json::parse(config));
        }
    }();
    refuse_losses(options, data, config, updated);
    change.commit(updated);
    if (!options.quiet) std::cerr << summary(before, updated) << '\n';
    return ExitCode::done;
}

}  // namespace

void add_update(Program& program) {
    auto [arguments, options] = program.command("update", update, daily_use, "Update a store with data",
                                                "zentadb update trip.sync trip.json\n"
                                                "curl -s https://example.org/trip.json | zentadb update trip.sync -");
    arguments.required("STORE", options.store, "The store; created if it is missing");
    arguments.required("DATA", options.data, "A JSON object, - for standard input");
    arguments.optional("-o,--output", options.output, "Write the store to this file and leave STORE unchanged");
    arguments.flag("--compress", options.compress, "Keep the store compressed from now on");
    arguments.flag("--force", options.force, "Store the data even if some of it would not read back as given");
    arguments.flag("-q,--quiet", options.quiet, "Do not print what changed");
    options.settings.declare_writing(arguments);
}

}  // namespace zentadb
