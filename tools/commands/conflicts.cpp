#include <algorithm>
#include <iostream>
#include <set>

#include "cli/table.h"
#include "commands.h"
#include "inspect/hidden_documents.h"
#include "inspect/places.h"
#include "inspect/revision_marks.h"
#include "inspect/shown_content.h"
#include "resolve/version_merge.h"
#include "store/json_text.h"
#include "store/store.h"

namespace zentadb {

namespace {

using nlohmann::ordered_json;

struct Options {
    std::string store;
    std::string id;
    bool json = false;
    bool exit_code = false;
};

// One version of a document in conflict, the winning one first.
struct Version {
    std::size_t revision;
    bool deleted;
    std::optional<ordered_json> content;
    std::size_t below = 0;  // documents that the data does not show, and that come back with it
};

struct Conflict {
    std::string id;
    std::string place;
    RevisionTree tree;
    std::vector<Version> versions;
    std::optional<Version> common;  // the last that all versions have in common
    bool can_merge = false;
};

std::vector<Conflict> conflicts_of(Store& store, const std::string& only) {
    const SyncJson sync_json(store.handle, input_name(store.path));
    if (!only.empty()) static_cast<void>(sync_json.tree(only));
    const Places places(store);
    std::optional<Below> below;
    std::vector<Conflict> conflicts;
    for (const Entry& document : sync_json.documents()) {
        if (!only.empty() ? document.key != only : is_ordering(document.key)) continue;
        // A history without branches has no conflict.
        if (document.value.find('[', 1) == std::string_view::npos) continue;
        if (store.handle.conflicting(document.key).empty()) continue;
        Conflict conflict{document.key, places.of(document.key), RevisionTree(document.value), {}, {}};
        const auto version_of = [&](std::size_t index) {
            const Revision& revision = conflict.tree[index];
            if (!below) below.emplace(store.handle, sync_json);
            const std::set<std::string> ids = below->of(document.key, revision);
            const auto hidden = std::ranges::count_if(
                ids, [&](const std::string& id) { return !places.empty() && places.of(id).empty(); });
            return Version{index, revision.hash() == "deleted", shown_content(sync_json, revision),
                           static_cast<std::size_t>(hidden)};
        };
        const std::vector<std::size_t> revisions = open_versions(store.handle, document.key, conflict.tree);
        for (const std::size_t index : revisions) conflict.versions.push_back(version_of(index));
        const zentadbpp::MergedVersions merged = merge_of(sync_json, conflict.tree, revisions);
        conflict.can_merge = merged.clashes.empty();
        if (!merged.common.empty()) conflict.common = version_of(conflict.tree.find(merged.common));
        conflicts.push_back(std::move(conflict));
    }
    return conflicts;
}

// Keys that not all versions have with the same value, in order.
std::set<std::string> differing_keys(const std::vector<Version>& versions) {
    std::set<std::string> keys;
    for (const Version& version : versions) {
        if (!version.content) continue;
        for (const auto& [key, value] : version.content->items()) keys.insert(key);
    }
    std::erase_if(keys, [&](const std::string& key) {
        const auto has_key = [&](const Version& version) { return version.content && version.content->contains(key); };
        return std::ranges::all_of(versions, has_key) && std::ranges::all_of(versions, [&](const Version& version) {
                   return version.content->at(key) == versions.front().content->at(key);
               });
    });
    return keys;
}

void print(const Conflict& conflict) {
    constexpr std::size_t side_by_side = 3;  // versions, beside what was before them
    const std::vector<std::string> names = conflict.tree.short_names();
    const std::set<std::string> keys = differing_keys(conflict.versions);
    std::cout << painted(Paint::bold, printable(conflict.id), std::cout);
    std::cout << (conflict.place.empty() ? "  not in the data"
                                         : "  at " + painted(Paint::cyan, printable(conflict.place), std::cout));
    std::cout << '\n';
    // What was before, and the winner, beside every group of losers.
    for (std::size_t begin = 1; begin < conflict.versions.size(); begin += side_by_side - 1) {
        std::vector<const Version*> group{&conflict.versions.front()};
        for (std::size_t at = begin; at < std::min(begin + side_by_side - 1, conflict.versions.size()); ++at) {
            group.push_back(&conflict.versions[at]);
        }
        if (conflict.common) group.insert(group.begin(), &*conflict.common);
        const std::size_t width = (terminal_width(std::cout).value_or(120) - 20) / group.size();
        Table table({});
        std::vector<Cell> heads{{""}};
        for (const Version* version : group) {
            const bool wins = version == &conflict.versions.front();
            const bool is_common = conflict.common && version == &*conflict.common;
            const char* const what = is_common ? "was   " : wins ? "wins  " : "loses ";
            const Paint paint = is_common ? Paint::dim : wins ? Paint::green : Paint::yellow;
            heads.push_back({what + names[version->revision], paint});
        }
        table.add(heads);
        for (const std::string& key : keys) {
            std::vector<Cell> row{{key}};
            for (const Version* version : group) {
                const bool has = version->content && version->content->contains(key);
                row.push_back({has ? cut(one_line(version->content->at(key)), std::max<std::size_t>(width, 12))
                               : version->deleted ? "(deleted)"
                               : version->content ? "-"
                                                  : "(pruned)"});
            }
            table.add(row);
        }
        table.print(std::cout, "  ");
        for (const Version* version : group) {
            if (version == group.front() || version->below == 0) continue;
            std::cout << "  " << painted(Paint::yellow, names[version->revision], std::cout) << " has "
                      << counted(version->below, "document") << " below it that the data does not show; "
                      << (version->below == 1 ? "it comes" : "they come") << " back if you keep it\n";
        }
    }
    std::cout << '\n';
}

ordered_json as_json(const Conflict& conflict) {
    ordered_json versions = ordered_json::array();
    for (const Version& version : conflict.versions) {
        versions.push_back({{"revision", conflict.tree[version.revision].name},
                            {"wins", &version == &conflict.versions.front()},
                            {"deleted", version.deleted},
                            {"content", version.content ? *version.content : ordered_json()},
                            {"documents_below", version.below}});
    }
    ordered_json common;
    if (conflict.common) {
        common = {{"revision", conflict.tree[conflict.common->revision].name},
                  {"content", conflict.common->content ? *conflict.common->content : ordered_json()}};
    }
    return {{"id", conflict.id},
            {"place", conflict.place.empty() ? ordered_json() : ordered_json(conflict.place)},
            {"common", common},
            {"versions", versions},
            {"can_merge", conflict.can_merge}};
}

ExitCode show_conflicts(const Options& options) {
    Store store = open_store(options.store);
    const std::vector<Conflict> conflicts = conflicts_of(store, options.id);
    if (options.json) {
        ordered_json list = ordered_json::array();
        for (const Conflict& conflict : conflicts) list.push_back(as_json(conflict));
        std::cout << pretty(list) << '\n';
    } else {
        for (const Conflict& conflict : conflicts) print(conflict);
        std::cout << (conflicts.empty() ? "no conflicts" : counted(conflicts.size(), "document") + " in conflict")
                  << '\n';
        const auto mergeable = std::ranges::count_if(conflicts, &Conflict::can_merge);
        if (mergeable > 0) {
            std::cout << "zentadb resolve " << printable(options.store) << " --all --merge resolves " << mergeable
                      << " of them\n";
        }
    }
    return options.exit_code && !conflicts.empty() ? ExitCode::found : ExitCode::done;
}

}  // namespace

void add_conflicts(Program& program) {
    auto [arguments, options] =
        program.command("conflicts", show_conflicts, maintenance, "Show the documents with conflicting edits",
                        "zentadb conflicts trip.sync\n"
                        "zentadb conflicts trip.sync --exit-code > /dev/null || echo conflicts");
    arguments.required("STORE", options.store, "The store");
    arguments.optional("ID", options.id, "Only this document");
    arguments.flag("--json", options.json, "Print JSON, the winning version first");
    arguments.flag("--exit-code", options.exit_code, "Exit with 1 if there are conflicts");
}

}  // namespace zentadb
