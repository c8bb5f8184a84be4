#include "transformation/transformation_settings.h"

#include "text/text_split.h"

namespace libzentadbpp {

namespace {

void apply(const JsonValue& configuration, std::string_view key, bool& setting) {
    const JsonValue* value = configuration.find(key);
    if (value != nullptr && value->is_boolean()) setting = value->as_boolean();
}

// The text of a member, or the empty one.
std::string_view text_of(const JsonValue& configuration, std::string_view key) {
    const JsonValue* value = configuration.find(key);
    return value == nullptr ? std::string_view{} : value->as_string();
}

void apply_instance_id(const JsonValue& configuration, std::string& instance_id) {
    const JsonValue* value = configuration.find("instance_id");
    if (value != nullptr && value->is_string()) instance_id = value->as_string();
}

}  // namespace

std::vector<IdGenerationRule> parse_id_generation_rules(std::string_view text) {
    std::vector<IdGenerationRule> rules;
    if (text.empty()) return rules;
    for (const auto rule_text : split(text, ';')) {
        IdGenerationRule& rule = rules.emplace_back();
        for (const auto path_text : split(rule_text, ',')) {
            KeyPath& path = rule.emplace_back();
            if (path_text.empty()) continue;  // a path without keys, which never yields a value
            for (const auto key : split(path_text, '.')) path.emplace_back(key);
        }
    }
    return rules;
}

std::set<std::string, std::less<>> parse_indexed_array_paths(std::string_view text) {
    std::set<std::string, std::less<>> paths;
    if (text.empty()) return paths;
    for (const auto path : split(text, ',')) paths.emplace(path);
    return paths;
}

TransformationSettings TransformationSettings::for_flattening(const JsonValue& configuration) {
    TransformationSettings settings;
    apply_instance_id(configuration, settings.instance_id);
    apply(configuration, "flatten_objects", settings.flatten_objects);
    settings.id_generation_rules = parse_id_generation_rules(text_of(configuration, "id_generation_rules"));
    settings.indexed_array_paths = parse_indexed_array_paths(text_of(configuration, "indexed_array_paths"));
    apply(configuration, "discard_id", settings.discard_id);
    apply(configuration, "force_fast_hash_only", settings.force_fast_hash_only);
    return settings;
}

TransformationSettings TransformationSettings::for_reading(const JsonValue& configuration) {
    TransformationSettings settings;
    apply_instance_id(configuration, settings.instance_id);
    apply(configuration, "discard_id", settings.discard_id);
    apply(configuration, "preserve_old_ordering", settings.preserve_old_ordering);
    return settings;
}

}  // namespace libzentadbpp
