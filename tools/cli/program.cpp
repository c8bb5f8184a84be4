#include "cli/program.h"

#include <zentadbpp.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <optional>
#include <regex>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "cli/activity.h"
#include "cli/explain.h"
#include "cli/terminal.h"

namespace zentadb {

namespace {

// Its texts may contain parts of the data.
int report(const Failure& failure) {
    std::cout.flush();
    std::cerr << painted(Paint::red, "zentadb: ", std::cerr);
    std::istringstream lines(std::string(failure.what()) + '\n' + failure.advice());
    for (std::string line; std::getline(lines, line);) std::cerr << printable(line) << '\n';
    return static_cast<int>(failure.exit_code());
}

// Leaves out what is before the host in every URL of a text, such as an argument in the wrong place.
std::string without_passwords(const std::string& text) {
    return std::regex_replace(text, std::regex("://[^/@ ]*@"), "://");
}

}  // namespace

Program::Program()
    : app_(std::make_unique<CLI::App>(
          "Keeps JSON data as versioned documents. Copies can be edited independently and merged.", "zentadb")) {
    app_->set_version_flag("--version",
                           std::string("zentadb " ZENTADB_VERSION ", interface ") + sync_json_lib_version());
    app_->add_option_function<std::string>("--color", choose_colours, "auto (the default), always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->type_name("WHEN");
    app_->get_formatter()->label("SUBCOMMAND", "COMMAND");
    app_->require_subcommand(1);
    app_->fallthrough();
    app_->footer("zentadb COMMAND --help describes a command. STORE and DATA may be - for standard input and output.");
}

Program::~Program() = default;

Arguments Program::add(const std::string& name, std::function<ExitCode()> act, const std::string& group,
                       const std::string& does, const std::string& examples) {
    CLI::App* command = app_->add_subcommand(name, does);
    command->group(group);
    command->fallthrough();
    std::string footer = "Examples:\n";
    std::istringstream lines(examples);
    for (std::string line; std::getline(lines, line);) footer.append("  ").append(line).append("\n");
    command->footer(footer);
    command->callback([this, act = std::move(act)] { exit_code_ = act(); });
    return Arguments(*command);
}

std::vector<CommandOutline> Program::outline() const {
    std::vector<CommandOutline> commands;
    for (const CLI::App* command : std::as_const(*app_).get_subcommands({})) {
        CommandOutline& outline = commands.emplace_back();
        outline.name = command->get_name();
        outline.does = command->get_description();
        for (const CLI::Option* option : command->get_options()) {
            for (const std::string& name : option->get_snames()) outline.options.push_back("-" + name);
            for (const std::string& name : option->get_lnames()) outline.options.push_back("--" + name);
        }
    }
    return commands;
}

// The parser would only say that a command is missing.
void Program::refuse_unknown(int count, char** arguments) const {
    if (count < 2 || arguments[1][0] == '-') return;
    const std::string name = arguments[1];
    if (!app_->get_subcommands([&](CLI::App* command) { return command->check_name(name); }).empty()) return;
    throw Failure(ExitCode::usage, name + ": no such command", "zentadb --help lists the commands.");
}

int Program::run(int count, char** arguments) {
    std::optional<TerminalBuffer> output, messages;
    Activity& activity = Activity::current();
    const auto make_room = [&activity] { activity.yield(); };
    if (is_terminal(std::cout)) output.emplace(std::cout, make_room);
    if (is_terminal(std::cerr)) messages.emplace(std::cerr, make_room);
    const std::vector<std::string_view> words(arguments + 1, arguments + count);
    const bool is_quiet = std::ranges::count(words, "-q") + std::ranges::count(words, "--quiet") > 0;
    if (!words.empty() && !is_quiet) activity.start(std::string(words.front()));
    const int code = run_command(count, arguments);
    activity.stop();
    return code;
}

int Program::run_command(int count, char** arguments) {
    try {
        refuse_unknown(count, arguments);
        app_->parse(count, arguments);
        if (!std::cout.flush()) return report({ExitCode::system, "cannot write standard output"});
        return static_cast<int>(exit_code_);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app_->exit(error);  // help
        const std::vector<CLI::App*> commands = app_->get_subcommands();
        return report({ExitCode::usage, without_passwords(error.what()),
                       "See zentadb " + (commands.empty() ? "" : commands.front()->get_name() + " ") + "--help."});
    } catch (const Failure& failure) {
        return report(failure);
    } catch (const zentadbpp::Error& error) {
        return report(explained(error));
    } catch (const std::bad_alloc&) {
        return report({ExitCode::system, "out of memory"});
    } catch (const std::exception& error) {
        return report({ExitCode::system, error.what()});
    }
}

}  // namespace zentadb
