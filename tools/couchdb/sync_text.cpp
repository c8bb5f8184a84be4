#include "couchdb/sync_text.h"

#include <nlohmann/json.hpp>

#include "store/raw_json.h"

namespace zentadb {

std::string quoted(const std::string& text) { return nlohmann::json(text).dump(); }

SyncText::SyncText(const zentadbpp::Handle& handle) : inside_(handle) {
    for (const Document& document : inside_.histories()) documents_.emplace(document.key, &document);
    for (const Entry& content : inside_.contents()) contents_.emplace(content.key, content.value);
    if (!documents().empty()) root_ = handle.root().str();
}

const SyncText::Document* SyncText::find(const std::string& id) const {
    const auto found = documents_.find(id);
    return found == documents_.end() ? nullptr : found->second;
}

std::optional<std::string_view> SyncText::content(std::string_view hash) const {
    const auto found = contents_.find(hash);
    return found == contents_.end() ? std::nullopt : std::optional(found->second);
}

std::string SyncText::rooted_at(const Document& document) const {
    const std::string root = quoted(document.key);
    std::string text = R"({"d": {)";
    const auto add = [&text](std::string_view key, std::string_view value) {
        if (text.back() != '{') text.append(", ");
        text.append(key).append(": ").append(value);
    };
    if (find(document.key) == nullptr) add(root, document.value);
    for (const Document& each : documents()) add(quoted(each.key), each.value);
    text.append(R"(}, "o": {)");
    for (const Entry& each : inside_.contents()) add(quoted(each.key), each.value);
    return text.append(R"(}, "r": )").append(root).append("}");
}

}  // namespace zentadb
