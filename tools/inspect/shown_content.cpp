#include "inspect/shown_content.h"

#include <algorithm>

#include "inspect/names.h"
#include "store/json_text.h"

namespace zentadb {

using nlohmann::ordered_json;

namespace {

// A content nests 256 levels at most.
ordered_json for_people(const ordered_json& value) {
    if (value.is_string()) {
        const auto& text = value.get_ref<const std::string&>();
        if (text.starts_with('!')) return text.substr(1);
        if (text.starts_with('A')) return ordered_json::array({"..."});
        return ordered_json::object({{"_id", text.substr(std::min<std::size_t>(1, text.size()))}});
    }
    if (value.is_object() && value.contains("#nf")) return value;
    if (!value.is_structured()) return value;
    ordered_json result = value.is_array() ? ordered_json::array() : ordered_json::object();
    for (const auto& [key, inner] : value.items()) {
        if (value.is_array()) {
            result.push_back(for_people(inner));
        } else {
            result[key] = key == "_id" ? inner : for_people(inner);
        }
    }
    return result;
}

}  // namespace

std::optional<ordered_json> shown_content(const SyncJson& sync_json, const Revision& revision) {
    if (is_reserved(revision.hash())) return ordered_json::object();
    const Entry* content = sync_json.content(revision.hash());
    if (content == nullptr) return std::nullopt;
    const ordered_json parsed = ordered_json::parse(content->value, nullptr, false);
    if (!parsed.is_object()) return ordered_json::object();
    const bool is_order = parsed.size() == 3 && parsed.contains("d") && parsed.contains("i") && parsed.contains("s");
    if (is_order || parsed.contains("#nf")) return parsed;
    return for_people(parsed);
}

std::string change_line(const SyncJson& sync_json, const RevisionTree& tree, std::size_t index) {
    const Revision& revision = tree[index];
    if (is_ended(revision.hash())) return {};
    const auto content = shown_content(sync_json, revision);
    if (!content) return "(its content was pruned)";
    std::optional<ordered_json> before;
    if (revision.parent != Revision::none) before = shown_content(sync_json, tree[revision.parent]);
    if (!before) before = ordered_json::object();
    std::string line;
    const auto add = [&line](const std::string& text) { line.append(line.empty() ? "" : ", ").append(text); };
    for (const auto& [key, value] : content->items()) {
        const auto old = before->find(key);
        if (old == before->end() || *old != value) add(key + ": " + one_line(value));
    }
    for (const auto& [key, value] : before->items()) {
        if (!content->contains(key)) add("-" + key);
    }
    return line;
}

}  // namespace zentadb
