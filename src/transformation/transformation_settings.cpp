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

TransformationSettings::TransformationSettings(const JsonValue& configuration) {
    const JsonValue* instance = configuration.find("instance_id");
    if (instance != nullptr && instance->is_string()) instance_id = instance->as_string();
    apply(configuration, "flatten_objects", flatten_objects);
    id_generation_rules = parse_id_generation_rules(text_of(configuration, "id_generation_rules"));
    const std::string_view paths = text_of(configuration, "indexed_array_paths");
    if (!paths.empty()) {
        for (const auto path : split(paths, ',')) indexed_array_paths.emplace(path);
    }
    apply(configuration, "discard_id", discard_id);
    apply(configuration, "force_fast_hash_only", force_fast_hash_only);
    apply(configuration, "preserve_old_ordering", preserve_old_ordering);
}

}  // namespace libzentadbpp
