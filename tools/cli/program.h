#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cli/failure.h"

namespace CLI {
class App;
}

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
//     void add_read(Program& program) {
//         struct Options { std::string store; };
//         const auto options = std::make_shared<Options>();
//         CLI::App& command = program.command("read", daily_use, "Print the data of a store", "zentadb read my.sync");
//         Arguments(command).required("STORE", options->store, "The store");
//         program.on(command, [options] { return read(*options); });
//     }
class Program {
   public:
    Program();
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // A command under the headline `group` in the help. `examples` are lines of a shell.
    CLI::App& command(const std::string& name, const std::string& group, const std::string& does,
                      const std::string& examples);
    // What a command does. It may throw Failure, and whatever the library's wrapper throws.
    void on(CLI::App& command, std::function<Outcome()> run);

    [[nodiscard]] std::vector<CommandOutline> outline() const;

    int run(int count, char** arguments);

   private:
    int run_command(int count, char** arguments);
    void refuse_unknown(int count, char** arguments) const;

    std::unique_ptr<CLI::App> app_;
    Outcome outcome_ = Outcome::done;
};

}  // namespace zentadb
