#include <iostream>

#include "commands.h"

namespace zentadb {

namespace {

struct Options {
    const Program* program = nullptr;
    std::string shell;
};

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text.append(text.empty() ? "" : " ").append(word);
    return text;
}

// For bash, and for zsh through its bashcompinit. Anything but a command or an option is a file.
std::string bash_text(const std::vector<CommandOutline>& commands) {
    std::vector<std::string> names;
    std::string cases;
    for (const CommandOutline& command : commands) {
        names.push_back(command.name);
        cases += "        " + command.name + ") words='" + joined(command.options) + "' ;;\n";
    }
    return "_zentadb() {\n"
           "    local word=${COMP_WORDS[COMP_CWORD]} words=\n"
           "    case ${COMP_WORDS[1]} in\n" +
           cases +
           "    esac\n"
           "    COMPREPLY=()\n"
           "    if [[ $COMP_CWORD -eq 1 ]]; then\n"
           "        COMPREPLY=($(compgen -W '" +
           joined(names) +
           "' -- \"$word\"))\n"
           "    elif [[ $word == -* ]]; then\n"
           "        COMPREPLY=($(compgen -W \"$words\" -- \"$word\"))\n"
           "    fi\n"
           "}\n"
           "complete -o default -F _zentadb zentadb\n";
}

std::string fish_text(const std::vector<CommandOutline>& commands) {
    std::string text;
    for (const CommandOutline& command : commands) {
        text += "complete -c zentadb -n __fish_use_subcommand -f -a " + command.name + " -d '" + command.does + "'\n";
        for (const std::string& option : command.options) {
            const bool is_long = option.starts_with("--");
            text += "complete -c zentadb -n '__fish_seen_subcommand_from " + command.name + "' " +
                    (is_long ? "-l " + option.substr(2) : "-s " + option.substr(1)) + "\n";
        }
    }
    return text;
}

ExitCode complete(const Options& options) {
    const std::vector<CommandOutline> commands = options.program->outline();
    if (options.shell.empty()) throw Failure(ExitCode::usage, "SHELL is required", "Give bash, zsh or fish.");
    if (options.shell == "zsh") std::cout << "autoload -U +X bashcompinit && bashcompinit\n";
    std::cout << (options.shell == "fish" ? fish_text(commands) : bash_text(commands));
    return ExitCode::done;
}

}  // namespace

void add_completion(Program& program) {
    auto [arguments, options] =
        program.command("completion", complete, texts, "Print a script that completes commands and options in a shell",
                        "zentadb completion bash > ~/.local/share/bash-completion/completions/zentadb\n"
                        "source <(zentadb completion zsh)                     # in ~/.zshrc\n"
                        "zentadb completion fish > ~/.config/fish/completions/zentadb.fish");
    options.program = &program;
    arguments.choice("SHELL", options.shell, {"bash", "zsh", "fish"}, "bash, zsh or fish");
}

}  // namespace zentadb
