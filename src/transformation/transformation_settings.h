#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "contents/vocabulary.h"
#include "data/data_hash.h"
#include "json/value.h"

namespace libzentadbpp {

using KeyPath = std::vector<std::string>;
using IdGenerationRule = std::vector<KeyPath>;

[[nodiscard]] std::vector<IdGenerationRule> parse_id_generation_rules(std::string_view text);
[[nodiscard]] std::set<std::string, std::less<>> parse_indexed_array_paths(std::string_view text);

// What a host's configuration object asks for. A value made for one call and passed down; nothing is remembered from
// call to call. A member counts only when it has the expected kind, and only for the operations that read it.
struct TransformationSettings {
    std::string instance_id = "default";
    bool flatten_objects = false;
    std::vector<IdGenerationRule> id_generation_rules;
    std::set<std::string, std::less<>> indexed_array_paths;  // domains of arrays
    bool discard_id = false;
    bool force_fast_hash_only = false;
    bool preserve_old_ordering = false;

    [[nodiscard]] HashKind hash_kind() const { return force_fast_hash_only ? HashKind::fast : HashKind::sha256; }

    // Flatten, unflatten an array, update.
    [[nodiscard]] static TransformationSettings for_flattening(const JsonValue& configuration);
    // Read, and the content of one revision.
    [[nodiscard]] static TransformationSettings for_reading(const JsonValue& configuration);
};

}  // namespace libzentadbpp
