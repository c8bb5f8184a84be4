#include "resolve/stored_content.h"

#include <algorithm>

namespace zentadb {

using zentadbpp::Json;

namespace {

// Calls `change` for every string that carries a marker, or that is to carry one.
template <class Change>
void for_each_text(Json& value, const Change& change) {
    if (value.is_string() || value.kind == Json::Kind::reference) change(value);
    if (value.is_object() && value.find("#nf") != nullptr) return;
    for (std::size_t at = 0; at < value.items.size(); ++at) {
        if (!value.is_object() || value.keys[at] != "_id") for_each_text(value.items[at], change);
    }
}

}  // namespace

std::optional<Json> content_of(const SyncJson& sync_json, const Revision& revision) {
    const auto stored = sync_json.stored(revision);
    if (!stored) return std::nullopt;
    Json content = Json::parse(*stored);
    for_each_text(content, [](Json& text) {
        if (text.text.starts_with('!')) {
            text.text.erase(0, 1);
        } else {
            text.kind = Json::Kind::reference;
        }
    });
    return content;
}

std::string stored_from(const Json& content) {
    Json stored = content;
    for_each_text(stored, [](Json& text) {
        if (text.is_string()) text.text.insert(0, 1, '!');
    });
    return stored.dump();
}

std::string line_from(const Json& value) {
    Json shown = value;
    for_each_text(shown, [](Json& text) {
        if (text.is_string()) return;
        const bool is_array = text.text.starts_with('A');
        Json object = Json::object();
        if (!is_array) object.set("_id", Json::of(text.text.substr(std::min<std::size_t>(1, text.text.size()))));
        text = is_array ? Json::array({Json::of("...")}) : object;
    });
    return shown.dump();
}

}  // namespace zentadb
