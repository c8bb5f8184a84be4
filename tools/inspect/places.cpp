#include "inspect/places.h"

#include <nlohmann/json.hpp>

#include "store/json_text.h"
#include "store/settings.h"

namespace zentadb {

using nlohmann::ordered_json;

namespace {

void collect_places(const ordered_json& value, std::string& path,
                    std::unordered_map<std::string, std::string>& places) {
    if (const std::string* id = string_member(value, "_id")) places.try_emplace(*id, path.empty() ? "." : path);
    std::size_t position = 0;
    const std::size_t length = path.size();
    for (const auto& [key, inner] : value.items()) {
        if (inner.is_structured()) {
            path += value.is_array() ? zentadbpp::element_step(position) : zentadbpp::member_step(key);
            collect_places(inner, path, places);
            path.resize(length);
        }
        ++position;
    }
}

}  // namespace

Places::Places(Store& store) {
    ordered_json config = ordered_json::parse(Settings().config_for(store));
    config["preserve_old_ordering"] = true;
    try {
        const zentadbpp::Value data = store.handle.read(config.dump());
        const ordered_json parsed = ordered_json::parse(data.view(), nullptr, false);
        std::string path;
        if (parsed.is_object()) collect_places(parsed, path, places_);
    } catch (const zentadbpp::Error&) {  // contents were pruned
    }
}

std::string Places::of(const std::string& id) const {
    const auto found = places_.find(id);
    return found == places_.end() ? "" : found->second;
}

}  // namespace zentadb
