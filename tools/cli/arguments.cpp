#include "cli/arguments.h"

#include <CLI/CLI.hpp>

namespace zentadb {

namespace {

// "TEXT" is of no use to a reader; the description says what is expected.
void describe(CLI::Option& option, const std::string& group) {
    if (!option.get_positional()) option.type_name("VALUE");
    if (option.get_positional()) option.type_name("");
    if (!group.empty()) option.group(group);
}

}  // namespace

void Arguments::required(const std::string& name, std::string& value, const std::string& help) {
    describe(*command_->add_option(name, value, help)->required(), group_);
}

void Arguments::required(const std::string& name, std::vector<std::string>& values, const std::string& help) {
    describe(*command_->add_option(name, values, help)->required(), group_);
}

void Arguments::optional(const std::string& name, std::string& value, const std::string& help) {
    describe(*command_->add_option(name, value, help), group_);
}

void Arguments::optional(const std::string& name, std::vector<std::string>& values, const std::string& help) {
    CLI::Option* option = command_->add_option(name, values, help);
    describe(*option, group_);
    if (!option->get_positional()) option->allow_extra_args(false);  // one for each time it is given
}

void Arguments::optional(const std::string& name, std::uint32_t& value, const std::string& help) {
    describe(*command_->add_option(name, value, help), group_);
}

void Arguments::choice(const std::string& name, std::string& value, const std::vector<std::string>& choices,
                       const std::string& help) {
    CLI::Option* option = command_->add_option(name, value, help);
    describe(*option, group_);
    option->check(CLI::IsMember(choices).description(""));
}

void Arguments::flag(const std::string& name, bool& value, const std::string& help) {
    CLI::Option* option = command_->add_flag(name, value, help);
    if (!group_.empty()) option->group(group_);
}

}  // namespace zentadb
