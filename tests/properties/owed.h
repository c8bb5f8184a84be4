#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "json/parser.h"
#include "properties/items.h"
#include "properties/naive.h"

// What has to be shown, found from all revisions the naive way.
namespace libzentadbpp::items {

using Path = std::vector<std::string>;

// The references at members, also of inline objects.
inline void references(const JsonValue& content, const Path& path, std::map<Path, std::string>& found) {
    if (content.find("#nf") != nullptr) return;
    for (const auto& [key, value] : content.members()) {
        if (key == "_id") continue;
        Path inside = path;
        inside.emplace_back(key);
        if (value.is_object()) references(value, inside, found);
        if (!value.is_string()) continue;
        const std::string_view text = value.as_string();
        if (text.starts_with('A') || text.starts_with('O')) found[inside] = text;
    }
}

class Owed {
   public:
    Owed(const naive::Storage& storage, const View& view) : storage_(storage), view_(view) {
        std::map<std::string, std::set<std::pair<std::string, Path>>> places_of;  // of each domain
        for (const auto& [id, tree] : storage.documents) {
            if (id.starts_with("ord-")) continue;
            for (const auto& [revision, parent] : tree) {
                for (const auto& [path, to] : references_of(revision)) {
                    if (to[0] == 'A') places_of[to.substr(1)].emplace(id, path);
                }
            }
            add_members(id, tree);
        }
        for (const auto& [id, tree] : storage.documents) {
            if (!id.starts_with("ord-")) continue;
            for (const auto& [revision, parent] : tree) {
                const auto list = storage.contents.find(naive::hash_of(revision));
                if (list == storage.contents.end()) continue;
                Arena arena;
                const JsonValue content = parse_json(list->second, arena);
                for (const auto& [holder, path] : places_of[std::string(content.find("d")->as_string())]) {
                    if (!shows_array(holder, path)) continue;
                    for (const JsonValue& element : content.find("s")->elements()) ids_.emplace(element.as_string());
                }
            }
        }
        // A part that came back into an object that holds its parts inline is read as one of those.
        std::erase_if(ids_, [&](const std::string& id) { return !is_live(id) || view.times.contains(id); });
    }

    [[nodiscard]] const Ids& ids() const { return ids_; }

   private:
    [[nodiscard]] bool is_live(const std::string& id) const {
        const auto known = storage_.documents.find(id);
        return known != storage_.documents.end() && naive::hash_of(naive::winner(known->second)) != "deleted";
    }

    [[nodiscard]] std::map<Path, std::string> references_of(const naive::Revision& revision) const {
        std::map<Path, std::string> found;
        const auto content = storage_.contents.find(naive::hash_of(revision));
        Arena arena;
        if (content != storage_.contents.end()) references(parse_json(content->second, arena), {}, found);
        return found;
    }

    [[nodiscard]] bool shows_array(const std::string& id, const Path& path) const {
        if (!view_.documents.contains(id)) return false;
        const auto now = references_of(naive::winner(storage_.documents.at(id)));
        const auto there = now.find(path);
        return there != now.end() && there->second[0] == 'A';
    }

    // What was a part of a document that is shown, where this has nothing now.
    void add_members(const std::string& id, const naive::Tree& tree) {
        if (!view_.documents.contains(id)) return;
        const naive::Revision winner = naive::winner(tree);
        const auto now = storage_.contents.find(naive::hash_of(winner));
        if (now == storage_.contents.end()) return;
        Arena arena;
        const JsonValue content = parse_json(now->second, arena);
        for (naive::Revision at = tree.at(winner); at.first != 0; at = tree.at(at)) {
            for (const auto& [path, to] : references_of(at)) {
                if (to[0] != 'O') continue;
                const JsonValue* owner = &content;
                for (std::size_t i = 0; owner != nullptr && i + 1 < path.size(); ++i) {
                    owner = owner->is_object() ? owner->find(path[i]) : nullptr;
                }
                if (owner == nullptr || !owner->is_object() || owner->find("#nf") != nullptr) continue;
                if (owner->find(path.back()) != nullptr) continue;
                const std::string owner_id =
                    path.size() == 1 ? id : std::string(owner->find("_id")->as_string().substr(1));
                bool is_taken = false;
                for (const auto& [other, places] : view_.places) {
                    is_taken = is_taken || places.contains({owner_id, path.back()});
                }
                if (!is_taken) ids_.insert(to.substr(1));
            }
        }
    }

    const naive::Storage& storage_;
    const View& view_;
    Ids ids_;
};

inline Ids owed(const naive::Storage& storage, const View& view) { return Owed(storage, view).ids(); }

}  // namespace libzentadbpp::items
