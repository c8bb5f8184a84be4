#include "store/settings.h"

#include <cstdlib>
#include <nlohmann/json.hpp>

#include "cli/failure.h"
#include "cli/table.h"
#include "cli/warning.h"
#include "store/json_text.h"

namespace zentadb {

namespace {

using nlohmann::json;

json given_config(const std::string& option) {
    const char* environment = std::getenv("ZENTADB_CONFIG");
    const std::string given = !option.empty() ? option : environment != nullptr ? environment : "";
    if (given.empty()) return json::object();
    const bool inline_text = given.starts_with('{');
    const std::string name = inline_text ? "the configuration" : given;
    const std::string text = inline_text ? given : read_file(given);
    const bool too_deep = is_nested_deeper(text, deepest_text);
    json config = too_deep ? json() : json::parse(text, nullptr, false);
    if (!config.is_object()) {
        const auto problem = too_deep ? std::nullopt : json_problem(name, text);
        throw Failure(ExitCode::usage, problem ? *problem : name + ": not a JSON object",
                      R"(A configuration looks like {"instance_id": "anna", "id_generation_rules": "code"}.)");
    }
    return config;
}

// Without a name, a writer would add an instance, with its own order of arrays.
void warn_of_instances(const zentadbpp::List& instances) {
    warn("the store was written by " + counted(instances.size(), "instance") + ": " + comma_list(instances) +
         R"(; without --instance, "default" orders the arrays)");
}

}  // namespace

void Settings::declare_reading(Arguments& arguments) {
    is_declared_ = true;
    arguments.group("Configuration");
    arguments.optional("--config", config_, "Configuration: a JSON object or a file with one (or: ZENTADB_CONFIG)");
    arguments.optional("--instance", instance_, "Name of the writer; all copies of one user's data share it");
    arguments.flag("--discard-id", discard_id_, "Leave \"_id\" out of the data");
}

void Settings::declare_writing(Arguments& arguments) {
    declare_reading(arguments);
    arguments.optional("--ids", id_rules_, "Rules for ids, such as \"code\" or \"user.id;name,year\"");
    arguments.optional("--indexed", indexed_, "Domains of arrays whose elements get ids by position");
    arguments.flag("--flatten-objects", flatten_objects_, "Store every object as a document");
    arguments.flag("--fast-hash", fast_hash_, "Short hashes, for small data of one trusted writer");
}

std::string Settings::config() const {
    json config = given_config(config_);
    for (const std::string& key : zentadbpp::unknown_settings(config.dump())) {
        if (is_declared_) warn("unknown configuration key: " + key);
    }
    if (!instance_.empty()) config["instance_id"] = instance_;
    if (!id_rules_.empty()) config["id_generation_rules"] = id_rules_;
    if (!indexed_.empty()) config["indexed_array_paths"] = indexed_;
    if (discard_id_) config["discard_id"] = true;
    if (flatten_objects_) config["flatten_objects"] = true;
    if (fast_hash_) config["force_fast_hash_only"] = true;
    return config.dump();
}

std::string Settings::config_for(const Store& store) const {
    json config = json::parse(this->config());
    const zentadbpp::Handle& handle = store.handle;
    if (!config.contains("instance_id")) {
        const zentadbpp::List instances = handle.instances();
        if (instances.size() == 1) config["instance_id"] = instances[0];
        if (instances.size() > 1 && is_declared_) warn_of_instances(instances);
    }
    if (!config.contains("force_fast_hash_only") && !(handle.all_docs() == "[]")) {
        const zentadbpp::Value winning = handle.winning(handle.root());
        if (winning.view().find("-x") != std::string_view::npos) config["force_fast_hash_only"] = true;
    }
    return config.dump();
}

}  // namespace zentadb
