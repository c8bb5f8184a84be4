#include "inspect/inside.h"

#include <algorithm>
#include <cctype>

#include "cli/failure.h"
#include "store/raw_json.h"
#include "store/settings.h"

namespace zentadb {

using nlohmann::ordered_json;

namespace {

const Entry* find_entry(const std::vector<Entry>& members, std::string_view key) {
    const auto found =
        std::ranges::lower_bound(members, key, {}, [](const Entry& member) -> std::string_view { return member.key; });
    return found != members.end() && found->key == key ? &*found : nullptr;
}

bool is_reserved(std::string_view hash) { return hash == "deleted" || hash == "resolved" || hash == "empty"; }

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

void collect_places(const ordered_json& value, std::string& path,
                    std::unordered_map<std::string, std::string>& places) {
    if (value.is_object()) {
        if (const auto id = value.find("_id"); id != value.end() && id->is_string()) {
            places.try_emplace(id->get<std::string>(), path.empty() ? "." : path);
        }
    }
    std::size_t position = 0;
    const std::size_t length = path.size();
    for (const auto& [key, inner] : value.items()) {
        if (!inner.is_structured()) {
            ++position;
            continue;
        }
        path += value.is_array() ? "[" + std::to_string(position) + "]" : member_step(key);
        collect_places(inner, path, places);
        path.resize(length);
        ++position;
    }
}

}  // namespace

Inside::Inside(const zentadbpp::Handle& handle) : text_(handle.dump()) {
    raw_json::for_each_member(text_, [this](std::string_view part, std::string_view entries) {
        if (part == "r") {
            root_id_ = raw_json::decoded(entries.substr(1, entries.size() - 2));
            return;
        }
        raw_json::for_each_member(entries, [&](std::string_view key, std::string_view value) {
            (part == "d" ? histories_ : contents_).push_back({raw_json::decoded(key), value});
        });
    });
    // They are in the order of how they are written, in which an escaped character comes elsewhere.
    std::ranges::sort(histories_, {}, &Entry::key);
}

RevisionTree Inside::tree(std::string_view id) const {
    if (const Entry* history = find_entry(histories_, id)) return RevisionTree(history->value);
    throw Failure(Outcome::input, std::string(id) + ": the store has no such document",
                  "zentadb docs STORE lists the documents.");
}

bool Inside::has_content(const Revision& revision) const {
    return is_reserved(revision.hash()) || find_entry(contents_, revision.hash()) != nullptr;
}

std::optional<std::string_view> Inside::stored(const Revision& revision) const {
    if (revision.hash() == "deleted") return std::nullopt;
    if (is_reserved(revision.hash())) return "{}";
    const Entry* content = find_entry(contents_, revision.hash());
    return content == nullptr ? std::nullopt : std::optional(content->value);
}

std::optional<ordered_json> Inside::content(const Revision& revision) const {
    const std::string_view hash = revision.hash();
    if (is_reserved(hash)) return ordered_json::object();
    const Entry* content = find_entry(contents_, hash);
    if (content == nullptr) return std::nullopt;
    const ordered_json parsed = ordered_json::parse(content->value, nullptr, false);
    if (!parsed.is_object()) return ordered_json::object();
    const bool is_order = parsed.size() == 3 && parsed.contains("d") && parsed.contains("i") && parsed.contains("s");
    if (is_order || parsed.contains("#nf")) return parsed;
    return for_people(parsed);
}

std::string member_step(const std::string& key) {
    const bool plain = !key.empty() && std::isdigit(static_cast<unsigned char>(key.front())) == 0 &&
                       std::ranges::all_of(key, [](unsigned char character) {
                           return std::isalnum(character) != 0 || character == '_';
                       });
    return plain ? "." + key : "[" + one_line(key) + "]";
}

std::unordered_map<std::string, std::string> places_in(Store& store) {
    std::unordered_map<std::string, std::string> places;
    ordered_json config = ordered_json::parse(Settings().config_for(store));
    config["preserve_old_ordering"] = true;
    std::optional<zentadbpp::Value> data;
    try {
        data = store.handle.read(config.dump());
    } catch (const zentadbpp::Error&) {
        return places;
    }
    const ordered_json parsed = ordered_json::parse(data->view(), nullptr, false);
    std::string path;
    if (parsed.is_object()) collect_places(parsed, path, places);
    return places;
}

std::string one_line(const ordered_json& value) {
    return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

std::string pretty(const ordered_json& value) {
    return value.dump(4, ' ', false, ordered_json::error_handler_t::replace);
}

std::string change_line(const Inside& inside, const RevisionTree& tree, std::size_t index) {
    const Revision& revision = tree[index];
    if (revision.hash() == "deleted" || revision.hash() == "resolved") return {};
    const auto content = inside.content(revision);
    if (!content) return "(its content was pruned)";
    std::optional<ordered_json> before;
    if (revision.parent != Revision::none) before = inside.content(tree[revision.parent]);
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
