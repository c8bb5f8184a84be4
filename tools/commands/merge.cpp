#include <iostream>
#include <memory>
#include <vector>

#include "commands.h"
#include "host/arguments.h"
#include "host/store.h"

namespace zentadb {

namespace {

struct Options {
    std::string store;
    std::vector<std::string> sources;
    std::string output;
};

Outcome merge(const Options& options) {
    StoreChange change(options.store, options.output, StoreChange::Missing::is_empty);
    zentadbpp::Handle merged;
    for (const std::string& path : options.sources) {
        const Store source = open_store(path);
        merged = zentadbpp::replicate(source.handle, merged ? merged : change.store().handle);
    }
    change.commit(merged);
    return Outcome::done;
}

}  // namespace

void add_merge(Program& program) {
    const auto options = std::make_shared<Options>();
    CLI::App& command = program.command("merge", daily_use, "Merge other copies into a store",
                                        "zentadb merge laptop.sync phone.sync\n"
                                        "ssh phone cat trip.sync | zentadb merge trip.sync -");
    Arguments arguments(command);
    arguments.required("STORE", options->store, "The store; it is made if there is none");
    arguments.required("FROM", options->sources, "The stores to learn from, - for standard input");
    arguments.optional("-o,--output", options->output, "Write the result into this file, and leave STORE as it is");
    program.on(command, [options] { return merge(*options); });
}

}  // namespace zentadb
