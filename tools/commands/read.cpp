
#include "commands.h"
#include "store/json_text.h"
#include "store/settings.h"
#include "store/store.h"

namespace zentadb {

namespace {

struct Options {
    std::string store;
    std::string output = "-";
    bool pretty = false;
    Settings settings;
};

ExitCode read(const Options& options) {
    Store store = open_store(options.store);
    const std::string config = options.settings.config_for(store);
    const zentadbpp::Value data = store.handle.read(config);
    write_output(options.output, (options.pretty ? indented(data) : data.str()) + "\n");
    return ExitCode::done;
}

}  // namespace

void add_read(Program& program) {
    auto [arguments, options] =
        program.command("read", read, daily_use, "Print the data of a store",
                        "zentadb read trip.sync > trip.json\n"
                        "zentadb read trip.sync --discard-id -o trip.json\n"
                        "git config diff.zentadb.textconv 'zentadb read --pretty'   # *.sync diff=zentadb");
    arguments.required("STORE", options.store, "The store, - for standard input");
    arguments.optional("-o,--output", options.output, "Write the data to this file");
    arguments.flag("--pretty", options.pretty, "Print each member and element on its own line");
    options.settings.declare_reading(arguments);
}

}  // namespace zentadb
