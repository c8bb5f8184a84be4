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

// What a host's configuration object asks for. A value made for one call and passed down; nothing is remembered from
// call to call. A member counts only when it has the expected kind.
struct TransformationSettings {
    TransformationSettings() = default;
    explicit TransformationSettings(const JsonValue& configuration);

    std::string instance_id = "default";
    bool flatten_objects = false;
    std::vector<IdGenerationRule> id_generation_rules;
    std::set<std::string, std::less<>> indexed_array_paths;  // domains of arrays
    bool discard_id = false;
    bool force_fast_hash_only = false;
    bool preserve_old_ordering = false;

    [[nodiscard]] HashKind hash_kind() const { return force_fast_hash_only ? HashKind::fast : HashKind::sha256; }
};

}  // namespace libzentadbpp
