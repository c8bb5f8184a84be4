#include <optional>

#include "cli/explain.h"
#include "commands.h"
#include "store/files.h"
#include "store/json_text.h"

namespace zentadb {

namespace {

struct Options {
    std::string file;
    std::string output;
    zentadbpp::Value (*conversion)(const zentadbpp::Text&) = nullptr;
};

ExitCode convert(const Options& options) {
    const bool in_place = options.output.empty() && options.file != "-";
    std::optional<FileLock> lock;
    if (in_place) lock.emplace(options.file);
    const std::string text = read_file(options.file);
    // The library takes anything but an object for an empty one.
    const std::size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos || text[begin] != '@') {
        if (const auto problem = json_problem(options.file, text)) throw Failure(ExitCode::damaged, *problem);
        if (text[begin] != '{') throw Failure(ExitCode::input, input_name(options.file) + ": not a JSON object");
    }
    const zentadbpp::Value converted = [&] {
        try {
            return options.conversion(text);
        } catch (const zentadbpp::Error& error) {
            throw Failure(ExitCode::damaged, input_name(options.file) + ": " + explained(error).what(),
                          explained(error).advice());
        }
    }();
    if (!in_place) {
        write_output(options.output.empty() ? "-" : options.output, converted.view());
    } else if (!(converted == text)) {
        replace_file(options.file, converted.view());
    }
    return ExitCode::done;
}

void add(Program& program, const char* name, const char* does, const char* examples,
         zentadbpp::Value (*conversion)(const zentadbpp::Text&)) {
    auto [arguments, options] = program.command(name, convert, texts, does, examples);
    options.conversion = conversion;
    arguments.required("FILE", options.file, "A store, or any other JSON object; - for standard input and output");
    arguments.optional("-o,--output", options.output, "Write the result to this file and leave FILE unchanged");
}

}  // namespace

void add_compress(Program& program) {
    add(program, "compress", "Compress a store; all commands read it as well",
        "zentadb compress trip.sync\n"
        "zentadb compress - < trip.sync | ssh server 'cat > trip.sync'",
        zentadbpp::compress);
}

void add_uncompress(Program& program) {
    add(program, "uncompress", "Uncompress a store",
        "zentadb uncompress trip.sync\n"
        "zentadb uncompress trip.sync -o - | jq .",
        zentadbpp::uncompress);
}

}  // namespace zentadb
