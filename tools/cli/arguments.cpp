#include "cli/arguments.h"

#include <CLI/CLI.hpp>

namespace zentadb {

namespace {

// "TEXT" is of no use to a reader; the description says what is expected.
template <class Value>
CLI::Option& add(CLI::App& command, const std::string& group, const std::string& name, Value& value,
                 const std::string& help) {
    CLI::Option& option = *command.add_option(name, value, help);
    option.type_name(option.get_positional() ? "" : "VALUE");
    if (!group.empty()) option.group(group);
    return option;
}

}  // namespace

void Arguments::required(const std::string& name, std::string& value, const std::string& help) {
    add(*command_, group_, name, value, help).required();
}

void Arguments::required(const std::string& name, std::vector<std::string>& values, const std::string& help) {
    add(*command_, group_, name, values, help).required();
}

void Arguments::optional(const std::string& name, std::string& value, const std::string& help) {
    add(*command_, group_, name, value, help);
}

void Arguments::optional(const std::string& name, std::vector<std::string>& values, const std::string& help) {
    CLI::Option& option = add(*command_, group_, name, values, help);
    if (!option.get_positional()) option.allow_extra_args(false);  // one for each time it is given
}

void Arguments::optional(const std::string& name, std::uint32_t& value, const std::string& help) {
    add(*command_, group_, name, value, help);
}

void Arguments::choice(const std::string& name, std::string& value, const std::vector<std::string>& choices,
                       const std::string& help) {
    add(*command_, group_, name, value, help).check(CLI::IsMember(choices).description(""));
}

void Arguments::flag(const std::string& name, bool& value, const std::string& help) {
    CLI::Option* option = command_->add_flag(name, value, help);
    if (!group_.empty()) option->group(group_);
}

}  // namespace zentadb
