#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace zentadb {

// Declares the arguments of a command by name: "STORE" is a positional argument, "-o,--output" an option. Parsing the
// command line sets the variables of the arguments that are present; the others keep their values.
//
// It keeps the command line parser, which is large, out of all but two files.
class Arguments {
   public:
    explicit Arguments(CLI::App& command) : command_(&command) {}

    // The headline in the help for those that follow.
    void group(const std::string& headline) { group_ = headline; }

    void required(const std::string& name, std::string& value, const std::string& help);
    void required(const std::string& name, std::vector<std::string>& values, const std::string& help);
    void optional(const std::string& name, std::string& value, const std::string& help);
    void optional(const std::string& name, std::vector<std::string>& values, const std::string& help);
    void optional(const std::string& name, std::uint32_t& value, const std::string& help);
    void choice(const std::string& name, std::string& value, const std::vector<std::string>& choices,
                const std::string& help);
    void flag(const std::string& name, bool& value, const std::string& help);

   private:
    CLI::App* command_;
    std::string group_;
};

}  // namespace zentadb
