#include <iostream>
#include <memory>

#include "commands.h"
#include "host/arguments.h"
#include "host/inside.h"
#include "host/store.h"

namespace zentadb {

namespace {

struct Options {
    std::string store;
    std::string other;
    std::string output;
};

// The id of the root as a last member of an object: neither the library's diff nor its patch keep it.
std::string with_root(std::string object, const std::string& root) {
    if (root.empty()) return object;
    object.pop_back();
    return object + ", \"r\": " + nlohmann::json(root).dump() + "}";
}

std::string root_of(const zentadbpp::Handle& handle) { return handle.all_docs() == "[]" ? "" : handle.root().str(); }

Outcome diff(const Options& options) {
    const Store before = open_store(options.store);
    const Store after = open_store(options.other);
    const zentadbpp::Value difference = zentadbpp::diff(before.handle.dump(), after.handle.dump());
    write_output(options.output.empty() ? "-" : options.output,
                 with_root(difference.str(), root_of(after.handle)) + "\n");
    return Outcome::done;
}

Outcome patch(const Options& options) {
    const std::string operations = read_file(options.other);
    const auto parsed = nlohmann::json::parse(operations, nullptr, false);
    if (!parsed.is_object() || (!parsed.contains("d") && !parsed.contains("o"))) {
        throw Failure(Outcome::input, options.other + ": this is no patch", "zentadb diff OLD NEW makes one.");
    }
    StoreChange change(options.store, options.output, StoreChange::Missing::is_empty);
    const zentadbpp::Handle& before = change.store().handle;
    const zentadbpp::Value patched = zentadbpp::patch(before.dump(), operations);
    const auto root = parsed.find("r");
    const std::string text = with_root(
        patched.str(), root != parsed.end() && root->is_string() ? root->get<std::string>() : root_of(before));
    try {
        change.commit(zentadbpp::Handle(text));
    } catch (const zentadbpp::Error& error) {
        throw Failure(Outcome::input, options.other + ": the patch does not fit " + options.store + ": " + error.what(),
                      "Nothing was changed. Patch the very store that the patch was made from; for all others, merge.");
    }
    return Outcome::done;
}

}  // namespace

void add_diff(Program& program) {
    const auto options = std::make_shared<Options>();
    CLI::App& command = program.command("diff", texts, "What makes one store of another, entry by entry",
                                        "zentadb diff sent.sync trip.sync > trip.patch");
    Arguments arguments(command);
    arguments.required("OLD", options->store, "The store before");
    arguments.required("NEW", options->other, "The store after");
    arguments.optional("-o,--output", options->output, "Write the patch into this file");
    program.on(command, [options] { return diff(*options); });
}

void add_patch(Program& program) {
    const auto options = std::make_shared<Options>();
    CLI::App& command = program.command("patch", texts, "Apply what diff told",
                                        "zentadb patch sent.sync trip.patch\n"
                                        "zentadb diff sent.sync trip.sync | ssh server zentadb patch trip.sync -");
    Arguments arguments(command);
    arguments.required("STORE", options->store, "The store before; it is made if there is none");
    arguments.required("PATCH", options->other, "The patch, - for standard input");
    arguments.optional("-o,--output", options->output, "Write the store into this file, and leave STORE as it is");
    program.on(command, [options] { return patch(*options); });
}

}  // namespace zentadb
