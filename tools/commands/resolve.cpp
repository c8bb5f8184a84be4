#include <algorithm>
#include <iostream>
#include <vector>

#include "cli/table.h"
#include "commands.h"
#include "inspect/hidden_documents.h"
#include "inspect/sync_json.h"
#include "resolve/stored_content.h"
#include "resolve/version_merge.h"
#include "store/json_text.h"
#include "store/store.h"

namespace zentadb {

namespace {

using zentadbpp::Json;
using Place = zentadbpp::ThreeWayMerge::Place;

struct Options {
    std::string store;
    std::string id;
    std::string keep = "winner";
    std::vector<std::string> take;
    std::string output;
    bool all = false;
    bool merge = false;
    bool exit_code = false;
};

// Closes every branch of a document but the one that ends in `kept`.
zentadbpp::Handle resolved(const zentadbpp::Handle& handle, const std::string& id, const std::string& kept) {
    zentadbpp::Handle result;
    const auto latest = [&]() -> const zentadbpp::Handle& { return result ? result : handle; };
    for (const std::string_view loser : handle.conflicting(id)) {
        if (loser != kept) result = latest().resolve(id, loser);
    }
    // Then each revision that wins in its place; these may be several deletions.
    for (std::string winner = handle.winning(id).str(); winner != kept;) {
        result = latest().resolve(id, winner);
        std::string next = result.winning(id).str();
        if (next == winner) {
            throw Failure(ExitCode::input, std::string(id).append(": ").append(kept).append(" cannot be made to win"),
                          "The library does not close the deletion in which another branch ends.");
        }
        winner = std::move(next);
    }
    return result ? std::move(result) : handle.resolve(id, kept);  // its only leaf, which stays
}

// A document in conflict.
struct Conflict {
    std::string id;
    RevisionTree tree;
    std::vector<std::size_t> versions;  // the winning one first
    zentadbpp::MergedVersions merged;
};

std::string place_of(const Place& place) {
    std::string text;
    for (const std::string& key : place) text += zentadbpp::member_step(key);
    return text.empty() ? "." : text;
}

const Json* find(const Json* value, const Place& place) {
    for (const std::string& key : place) value = value != nullptr && value->is_object() ? value->find(key) : nullptr;
    return value;
}

// Both hold objects down to the last key.
void put(Json& content, const Place& place, const Json* value) {
    Json* object = &content;
    for (std::size_t at = 0; at + 1 < place.size(); ++at) {
        const auto key = std::ranges::lower_bound(object->keys, place[at]);
        object = &object->items[static_cast<std::size_t>(key - object->keys.begin())];
    }
    if (value != nullptr) {
        object->set(place.back(), *value);
    } else if (const auto key = std::ranges::find(object->keys, place.back()); key != object->keys.end()) {
        object->items.erase(object->items.begin() + (key - object->keys.begin()));
        object->keys.erase(key);
    }
}

// Takes what the user chose: ".text=2-9e01b7d".
void choose(Conflict& conflict, const SyncJson& sync_json, const std::vector<std::string>& choices) {
    for (const std::string& choice : choices) {
        const std::size_t equals = choice.rfind('=');
        const std::string place = choice.substr(0, equals);
        const auto clash = std::ranges::find(conflict.merged.clashes, place, place_of);
        if (equals == std::string::npos) throw Failure(ExitCode::usage, choice + ": not PLACE=REVISION");
        if (clash == conflict.merged.clashes.end() || clash->empty()) {
            throw Failure(ExitCode::input, place + ": nothing to choose here",
                          "Without --take, zentadb resolve --merge shows the places that need a choice.");
        }
        const std::string name = choice.substr(equals + 1);
        const std::size_t chosen = name == "winner" ? conflict.versions.front() : conflict.tree.find(name);
        const std::optional<Json> content = content_of(sync_json, conflict.tree[chosen]);
        if (!content)
            throw Failure(ExitCode::input, conflict.tree.place_of(name) + ": its content was deleted or pruned");
        put(*conflict.merged.merged, *clash, find(&*content, *clash));
        conflict.merged.clashes.erase(clash);
    }
}

// The places that need a choice, with what each version has there, and how to choose.
void print(const Conflict& conflict, const SyncJson& sync_json, const Options& options) {
    const std::vector<std::string> names = conflict.tree.short_names();
    std::cout << painted(Paint::bold, printable(conflict.id), std::cout) << '\n';
    Table table({});
    std::vector<Cell> heads{{""}};
    std::vector<std::optional<Json>> contents;
    const auto add = [&](const char* what, Paint paint, std::size_t revision) {
        heads.push_back({what + names[revision], paint});
        contents.push_back(content_of(sync_json, conflict.tree[revision]));
    };
    if (!conflict.merged.common.empty()) add("was   ", Paint::dim, conflict.tree.find(conflict.merged.common));
    for (const std::size_t version : conflict.versions) {
        const bool wins = version == conflict.versions.front();
        add(wins ? "wins  " : "loses ", wins ? Paint::green : Paint::yellow, version);
    }
    table.add(heads);
    const std::size_t width = (terminal_width(std::cout).value_or(120) - 20) / contents.size();
    std::string command = "zentadb resolve " + options.store + " " + conflict.id;
    for (const Place& place : conflict.merged.clashes) {
        std::vector<Cell> row{{place_of(place)}};
        for (const std::optional<Json>& content : contents) {
            const Json* value = content ? find(&*content, place) : nullptr;
            row.push_back({!content ? "(deleted or pruned)"
                           : !value ? "-"
                                    : cut(line_from(*value), std::max<std::size_t>(width, 12))});
        }
        table.add(row);
        if (place.empty()) {
            command += " " + names[conflict.versions.front()];
        } else {
            command += command.ends_with(conflict.id) ? " --merge" : "";
            command += " --take " + place_of(place) + "=" + names[conflict.versions.front()];
        }
    }
    table.print(std::cout, "  ");
    std::cout << "  " << printable(command) << '\n';
}

// `result` is null if nothing was resolved.
void report(std::size_t count, const std::string& more, const zentadbpp::Handle& before,
            const zentadbpp::Handle& result) {
    std::cerr << counted(count, "document") << " resolved" << more << '\n';
    const std::size_t back = result ? documents_back(before, result) : 0;
    if (back > 0) std::cerr << counted(back, "document") << (back == 1 ? " is" : " are") << " back in the data\n";
}

ExitCode resolve_by_merging(const Options& options) {
    StoreChange change(options.store, options.output);
    const zentadbpp::Handle& handle = change.store().handle;
    const SyncJson sync_json(handle, input_name(options.store));
    Resolution resolution(sync_json);
    std::size_t left = 0;
    const auto resolve_one = [&](const std::string& id) {
        Conflict conflict{id, sync_json.tree(id), {}, {}};
        conflict.versions = open_versions(handle, id, conflict.tree);
        if (conflict.versions.size() < 2) return;
        conflict.merged = merge_of(sync_json, conflict.tree, conflict.versions);
        choose(conflict, sync_json, options.take);
        if (conflict.merged.clashes.empty()) {
            resolution.add(id, conflict.tree, conflict.versions.front(), *conflict.merged.merged);
        } else {
            ++left;
            print(conflict, sync_json, options);
        }
    };
    if (options.all) {
        for (const std::string_view id : handle.unresolved()) resolve_one(std::string(id));
    } else {
        resolve_one(options.id);
    }
    const zentadbpp::Handle result = resolution.size() > 0 ? resolution.apply(handle) : zentadbpp::Handle();
    change.commit(result ? result : handle);
    std::string more;
    if (left > 0) more = ", " + std::to_string(left) + (left == 1 ? " needs" : " need") + " a choice";
    report(resolution.size(), more, handle, result);
    return options.exit_code && left > 0 ? ExitCode::found : ExitCode::done;
}

ExitCode resolve(const Options& options) {
    if (options.all != options.id.empty()) throw Failure(ExitCode::usage, "give an ID or --all");
    if (options.merge && options.keep != "winner")
        throw Failure(ExitCode::usage, "KEEP and --merge exclude each other");
    if (!options.take.empty() && (!options.merge || options.all)) {
        throw Failure(ExitCode::usage, "--take needs --merge and one document");
    }
    if (options.merge) return resolve_by_merging(options);
    StoreChange change(options.store, options.output);
    const zentadbpp::Handle& handle = change.store().handle;
    const SyncJson sync_json(handle, input_name(options.store));
    zentadbpp::Handle result;
    std::size_t count = 0;
    for (const Entry& document : sync_json.documents()) {
        if (options.all ? is_ordering(document.key) : document.key != options.id) continue;
        if (handle.conflicting(document.key).empty() && options.all) continue;
        ++count;
        std::string kept = handle.winning(document.key).str();
        if (options.keep != "winner") {
            const RevisionTree tree = sync_json.tree(document.key);
            const Revision& revision = tree[tree.find(options.keep)];
            if (!revision.is_leaf()) {
                throw Failure(ExitCode::input, tree.place_of(options.keep) + ": not the end of a branch",
                              "zentadb conflicts " + options.store + " " + document.key + " shows what can be kept.");
            }
            kept = revision.name;
        }
        result = resolved(result ? result : handle, document.key, kept);
    }
    if (!options.all && count == 0) static_cast<void>(sync_json.tree(options.id));
    change.commit(result ? result : handle);
    report(count, {}, handle, result);
    return ExitCode::done;
}

}  // namespace

void add_resolve(Program& program) {
    auto [arguments, options] =
        program.command("resolve", resolve, maintenance, "Resolve conflicts: keep one version or merge them",
                        "zentadb resolve trip.sync t1                      # keep the winner\n"
                        "zentadb resolve trip.sync t1 2-9e01b7d            # keep another version\n"
                        "zentadb resolve trip.sync --all --merge           # what only one version changed\n"
                        "zentadb resolve trip.sync t1 --merge --take .text=2-9e01b7d\n"
                        "zentadb resolve trip.sync --all");
    arguments.required("STORE", options.store, "The store");
    arguments.optional("ID", options.id, "Id of the document");
    arguments.optional("KEEP", options.keep, "The revision to keep, or its beginning (default: the winner)");
    arguments.flag("--all", options.all, "All documents: keep each winner, or merge what can be merged");
    arguments.flag("--merge", options.merge, "Merge the versions member by member, texts line by line");
    arguments.optional("--take", options.take, "PLACE=REVISION: the version to take if --merge needs a choice");
    arguments.optional("-o,--output", options.output, "Write the store to this file and leave STORE unchanged");
    arguments.flag("--exit-code", options.exit_code, "Exit with 1 if --merge needs a choice");
}

}  // namespace zentadb
