#include "inspect/homeless.h"

#include <nlohmann/json.hpp>
#include <vector>

#include "inspect/sync_json.h"

namespace zentadb {

namespace {

using Json = nlohmann::json;

void remove_shown(const Json& data, std::set<std::string>& ids) {
    std::vector<const Json*> left{&data};
    while (!left.empty() && !ids.empty()) {
        const Json& value = *left.back();
        left.pop_back();
        if (!value.is_structured()) continue;
        if (const auto id = value.is_object() ? value.find("_id") : value.end(); id != value.end() && id->is_string()) {
            ids.erase(id->get<std::string>());
        }
        for (const Json& each : value) left.push_back(&each);
    }
}

}  // namespace

std::set<std::string> homeless(const zentadbpp::Handle& handle, const zentadbpp::Value& data) {
    std::set<std::string> ids;
    const SyncJson sync_json(handle);
    for (const Entry& document : sync_json.documents()) {
        if (is_ordering(document.key)) continue;
        if (!is_deletion(handle.winning(document.key))) ids.insert(document.key);
    }
    remove_shown(Json::parse(data.view(), nullptr, false), ids);
    return ids;
}

}  // namespace zentadb
