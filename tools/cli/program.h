#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cli/arguments.h"
#include "cli/failure.h"

namespace zentadb {

// The headlines of the help.
inline constexpr const char* daily_use = "Daily use";
inline constexpr const char* looking = "Looking into a store";
inline constexpr const char* maintenance = "Conflicts and maintenance";
inline constexpr const char* exchange = "Exchange with servers";
inline constexpr const char* texts = "Sync JSONs as texts";

// A command for the completion of a shell.
struct CommandOutline {
    std::string name;
    std::string does;
    std::vector<std::string> options;  // "-o", "--output"
};

// The whole command line. Commands register themselves; run() runs the one that the user names.
//
//     struct Options { std::string store; };
//     ExitCode read(const Options& options);
//
//     void add_read(Program& program) {
//         auto [arguments, options] =
//             program.command("read", read, daily_use, "Print the data of a store", "zentadb read my.sync");
//         arguments.required("STORE", options.store, "The store");
//     }
class Program {
   public:
    Program();
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // A command under the headline `group` in the help. `examples` are lines of a shell. Returns its arguments, still
    // to be declared, and its options, with which `act` is called. `act` may throw Failure, and whatever the library's
    // wrapper throws.
    template <class Options>
    std::pair<Arguments, Options&> command(const std::string& name, ExitCode (*act)(const Options&),
                                           const std::string& group, const std::string& does,
                                           const std::string& examples) {
        const auto options = std::make_shared<Options>();
        return {add(
                    name, [act, options] { return act(*options); }, group, does, examples),
                *options};
    }

    [[nodiscard]] std::vector<CommandOutline> outline() const;

    int run(int count, char** arguments);

   private:
    Arguments add(const std::string& name, std::function<ExitCode()> act, const std::string& group,
                  const std::string& does, const std::string& examples);
    int run_command(int count, char** arguments);
    void refuse_unknown(int count, char** arguments) const;

    std::unique_ptr<CLI::App> app_;
    ExitCode exit_code_ = ExitCode::done;
};

}  // namespace zentadb
