#include <array>
#include <unordered_map>
#include <zentadbpp_verify.hpp>

#include "cli/explain.h"
#include "commands.h"
#include "inspect/sync_json.h"
#include "store/files.h"
#include "store/json_text.h"
#include "store/store.h"

namespace zentadb {

namespace {

struct Options {
    std::string store;
    std::string other;
    std::string output;
};

using Json = nlohmann::json;

// What a patch says beside the library's operations: the id of the root, which those do not keep, and the hashes of the
// stores before and after, by which it is known that it is for this one and came through whole.
constexpr const char* root_member = "r";
constexpr const char* from_member = "from";
constexpr const char* to_member = "to";

std::string with_members(std::string object, const Json& members) {
    if (members.empty()) return object;
    object.pop_back();
    return object + (object.ends_with('{') ? "" : ", ") + members.dump().substr(1);
}

Json root_of(const zentadbpp::Handle& handle) {
    return handle.all_docs() == "[]" ? Json::object() : Json{{root_member, handle.root().str()}};
}

ExitCode diff(const Options& options) {
    refuse_shared_input(std::array{options.store, options.other});
    const Store older = open_store(options.store);
    const Store newer = open_store(options.other);
    const zentadbpp::Value before = older.handle.dump();
    const zentadbpp::Value after = newer.handle.dump();
    Json members = root_of(newer.handle);
    members[from_member] = zentadbpp::sha256(before);
    members[to_member] = zentadbpp::sha256(after);
    write_output(options.output.empty() ? "-" : options.output,
                 with_members(zentadbpp::diff(before, after).str(), members) + "\n");
    return ExitCode::done;
}

// Whether a store has all that the operations take away or replace, and nothing that they add otherwise: for patches of
// the library, which do not name what they were made from.
bool has_what_changes(const SyncJson& store, const Json& patch) {
    for (const char* part : {"d", "o"}) {
        std::unordered_map<std::string_view, std::string_view> entries;
        const bool is_histories = *part == 'd';
        for (const Entry& entry : is_histories ? store.documents() : store.contents()) {
            entries.emplace(entry.key, entry.value);
        }
        for (const Json& operation : patch.value(part, Json::array())) {
            const auto entry = entries.find(operation.at("key").get_ref<const std::string&>());
            const bool is_there = entry != entries.end();
            const Json& kind = operation.at("op");
            const Json& expected = operation.at(operation.contains("before") ? "before" : "value");
            if (!is_there ? kind != "add" : Json::parse(entry->second, nullptr, false) != expected) return false;
        }
    }
    return true;
}

[[noreturn]] void refuse(const Options& options, const std::string& why) {
    throw Failure(ExitCode::input, input_name(options.other) + ": the patch does not fit " + options.store + ": " + why,
                  "Nothing was changed. Apply it to the store that it was made from; merge any other store.");
}

ExitCode patch(const Options& options) {
    refuse_shared_input(std::array{options.store, options.other});
    const std::string operations = read_file(options.other);
    const Json parsed = Json::parse(operations, nullptr, false);
    if (const auto problem = json_problem(options.other, operations)) throw Failure(ExitCode::input, *problem);
    if (!parsed.is_object() || (!parsed.contains("d") && !parsed.contains("o"))) {
        throw Failure(ExitCode::input, input_name(options.other) + ": not a patch", "zentadb diff OLD NEW makes one.");
    }
    StoreChange change(options.store, options.output, StoreChange::Missing::is_empty);
    const zentadbpp::Handle& before = change.store().handle;
    const std::string from = member_text(parsed, from_member);
    const std::string to = member_text(parsed, to_member);
    try {
        const zentadbpp::Value text = before.dump();
        const std::string found = zentadbpp::sha256(text);
        if (found == to) {  // it was applied already
            change.commit(before);
            return ExitCode::done;
        }
        if (from.empty() ? !has_what_changes(SyncJson(before), parsed) : found != from) {
            refuse(options, "it was made from another store");
        }
        const Json root = parsed.contains(root_member) ? Json{{root_member, parsed[root_member]}} : root_of(before);
        const zentadbpp::Handle after(with_members(zentadbpp::patch(text, operations).str(), root));
        if (!to.empty() && zentadbpp::sha256(after.dump()) != to)
            refuse(options, "the result is not the store that it was made for");
        change.commit(after);
    } catch (const zentadbpp::Error& error) {
        refuse(options, explained(error).what());
    } catch (const Json::exception&) {
        refuse(options, "its operations are not what zentadb diff makes");
    }
    return ExitCode::done;
}

}  // namespace

void add_diff(Program& program) {
    auto [arguments, options] =
        program.command("diff", diff, texts, "Show the changes from one store to another, entry by entry",
                        "zentadb diff sent.sync trip.sync > trip.patch");
    arguments.required("OLD", options.store, "The store before");
    arguments.required("NEW", options.other, "The store after");
    arguments.optional("-o,--output", options.output, "Write the patch to this file");
}

void add_patch(Program& program) {
    auto [arguments, options] =
        program.command("patch", patch, texts, "Apply a patch made by diff",
                        "zentadb patch sent.sync trip.patch\n"
                        "zentadb diff sent.sync trip.sync | ssh server zentadb patch trip.sync -");
    arguments.required("STORE", options.store, "The store before; created if it is missing");
    arguments.required("PATCH", options.other, "The patch, - for standard input");
    arguments.optional("-o,--output", options.output, "Write the store to this file and leave STORE unchanged");
}

}  // namespace zentadb
