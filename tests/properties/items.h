#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/parser.h"
#include "properties/seeds.h"

// A host's data for scripts: items with lists of items, and with parts, which are documents if the item splits. Every
// object has an id.
namespace libzentadbpp::items {

using Ids = std::set<std::string>;
using List = std::vector<std::string>;
using Place = std::pair<std::string, std::string>;  // the id of an item, and the key of a list or part of it

struct Item {
    std::string id;
    std::int32_t value = 0;
    bool splits = false;
    std::map<std::string, std::vector<Item>> lists = {};
    std::map<std::string, Item> parts = {};

    static Item parse(const JsonValue& json) {
        Item item{std::string(json.find("_id")->as_string()), static_cast<std::int32_t>(json.find("v")->as_real()),
                  json.find("#df") != nullptr};
        for (const auto& [key, member] : json.members()) {
            if (member.is_object()) item.parts.emplace(key, parse(member));
            if (!member.is_array()) continue;
            std::vector<Item>& list = item.lists[std::string(key)];
            for (const JsonValue& element : member.elements()) list.push_back(parse(element));
        }
        return item;
    }

    [[nodiscard]] std::string text() const {
        std::string text = R"({"_id": ")" + id + R"(", "v": )" + std::to_string(value);
        if (splits) text += R"(, "#df": true)";
        for (const auto& [key, list] : lists) {
            std::string inside;
            for (const Item& item : list) inside += (inside.empty() ? "" : ", ") + item.text();
            text += ", \"" + key + "\": [" + inside + "]";
        }
        for (const auto& [key, part] : parts) text += ", \"" + key + "\": " + part.text();
        return text + "}";
    }

    // For people.
    [[nodiscard]] std::string sketch() const {
        std::string inside;
        for (const auto& [key, list] : lists) {
            std::string items;
            for (const Item& item : list) items += (items.empty() ? "" : " ") + item.sketch();
            inside += ' ' + key + '[' + items + ']';
        }
        for (const auto& [key, part] : parts) inside += ' ' + key + '=' + part.sketch();
        return id + (splits ? "#" : ":") + std::to_string(value) + (inside.empty() ? "" : "{" + inside.substr(1) + "}");
    }

    // This item and all inside.
    template <class Self, class Visit>
    static void visit(Self& item, const Visit& see) {
        see(item);
        for (auto& [key, list] : item.lists) {
            for (auto& element : list) visit(element, see);
        }
        for (auto& [key, part] : item.parts) visit(part, see);
    }

    [[nodiscard]] bool has(const std::string& wanted) const {
        bool found = false;
        visit(*this, [&](const Item& item) { found = found || item.id == wanted; });
        return found;
    }
    [[nodiscard]] bool has_parts() const {
        bool found = false;
        visit(*this, [&](const Item& item) { found = found || !item.parts.empty(); });
        return found;
    }
};

// Whether it is the id of an object at a member, not of an element.
inline bool is_part(std::string_view id) { return id.starts_with('w') || id.starts_with("root-"); }

// What some data shows.
struct View {
    std::map<std::string, std::set<Place>> places;  // of each document but the root
    std::map<std::string, Ids> owners;              // of each item but the root
    std::map<std::string, int> times;
    std::map<Place, List> lists;
    std::map<std::string, Ids> paths;               // of each item that has lists inside itself or inside its parts
    std::map<std::string, Ids> own;                 // what an item is besides its lists, at each place
    std::map<std::string, std::int32_t> documents;  // their values
    bool splits_all = false;

    explicit View(const Item& root = {}, bool flatten_objects = false) : splits_all(flatten_objects) {
        documents[root.id] = root.value;
        add(root, "");
    }

    // Everything that is in two places, or twice in one list.
    [[nodiscard]] bool is_doubled(const std::string& id) const {
        const auto found = places.find(id);
        if (found == places.end()) return false;
        if (found->second.size() > 1) return true;
        const auto list = lists.find(*found->second.begin());
        return list != lists.end() && std::ranges::count(list->second, id) > 1;
    }

   private:
    void add(const Item& item, const std::string& above) {
        ++times[item.id];
        const std::string path = above + "/" + item.id;
        paths[item.id].insert(path);
        own[item.id].insert(content(item, path));
        for (const auto& [key, list] : item.lists) {
            const Place place(item.id, key);
            List ids;
            for (const Item& element : list) {
                ids.push_back(element.id);
                add_document(element, place);
                add(element, path + "/" + key);
            }
            lists[place] = std::move(ids);
        }
        for (const auto& [key, part] : item.parts) {
            if (splits_all || item.splits) add_document(part, {item.id, key});
            owners[part.id].insert(item.id);
            add(part, path + "/" + key);
        }
    }

    void add_document(const Item& item, const Place& place) {
        documents[item.id] = item.value;
        places[item.id].insert(place);
        owners[item.id].insert(place.first);
    }

    [[nodiscard]] std::string content(const Item& item, const std::string& path) const {
        std::string text = std::to_string(item.value) + (item.splits ? "#" : "");
        for (const auto& [key, list] : item.lists) text += " " + key + "=" + path;
        for (const auto& [key, part] : item.parts) {
            const bool is_document = splits_all || item.splits;
            text += " " + key + "=" + part.id + (is_document ? "" : "(" + content(part, path + "/" + key) + ")");
        }
        return text;
    }
};

// Random changes of a host's data. What is shown in several places is changed in all of them, so that the data means
// one thing, with one exception.
class Editor {
   public:
    Editor(Random& random, Item& root, std::string writer, bool flatten_objects, int& last_id)
        : random_(random), root_(root), writer_(std::move(writer)), splits_all_(flatten_objects), last_id_(last_id) {}

    void change() {
        switch (random_.below(20)) {
            case 0:
            case 1:
            case 2:
                return set_value(one_of(ids()));
            case 3:
            case 4:
            case 5:
                return insert(new_item(random_.below(6)), one_of(list_places()));
            case 6:
            case 7:
                return remove(one_of(element_ids()));
            case 8:
            case 9:
            case 10:
                return reorder(one_of(list_places()));
            case 11:
            case 12:
            case 13:
            case 14:
                return move(one_of(element_ids()));
            case 15:
                return random_.one_in(3) ? copy(one_of(element_ids())) : move(one_of(element_ids()));
            case 16:
                return change_members(one_of(ids()));
            case 17:
                return split_or_join(one_of(ids()));
            default:
                return move_part(one_of(part_ids()));
        }
    }

    // What a script begins with.
    void fill() {
        for (const char* key : {"p", "q", "r"}) root_.lists[key];
        root_.splits = random_.one_in(2);
        for (const char* key : {"x", "y"}) root_.parts[key] = {std::string("root-") + key, 0, random_.one_in(2)};
        if (random_.one_in(4)) return;
        for (std::size_t i = 3 + random_.below(6); i-- != 0;) insert(new_item(random_.below(6)), one_of(list_places()));
    }

   private:
    template <class T>
    T one_of(const std::vector<T>& from) {
        return from.empty() ? T() : from[random_.below(from.size())];
    }

    [[nodiscard]] bool splits(const Item& item) const { return splits_all_ || item.splits; }

    std::vector<Item*> all(const std::string& id) {
        std::vector<Item*> found;
        Item::visit(root_, [&](Item& item) {
            if (item.id == id) found.push_back(&item);
        });
        return found;
    }
    List ids() {
        List found;
        Item::visit(root_, [&](const Item& item) { found.push_back(item.id); });
        return found;
    }
    List element_ids() {
        List found;
        Item::visit(root_, [&](const Item& item) {
            for (const auto& [key, list] : item.lists) {
                for (const Item& element : list) found.push_back(element.id);
            }
        });
        return found;
    }
    List part_ids() {
        List found;
        Item::visit(root_, [&](const Item& item) {
            for (const auto& [key, part] : item.parts) found.push_back(part.id);
        });
        return found;
    }
    std::vector<Place> list_places() {
        std::vector<Place> found;
        Item::visit(root_, [&](const Item& item) {
            for (const auto& [key, list] : item.lists) found.emplace_back(item.id, key);
        });
        return found;
    }

    std::string new_id(char kind) { return kind + writer_ + std::to_string(++last_id_); }
    // Tasks never have anything inside.
    static bool is_task(const Item& item) { return item.id.starts_with('t'); }

    Item new_item(std::size_t kind) {
        Item item{new_id(kind < 3 ? 't' : 'l'), static_cast<std::int32_t>(random_.below(3))};
        if (kind < 3) return item;
        auto& inside = item.lists["in"];
        for (std::size_t i = random_.below(3); i-- != 0;) inside.push_back(new_item(0));
        if (kind == 5) {
            item.splits = random_.one_in(2);
            item.parts["x"] = {new_id('w'), 0, false, {{"in", {new_item(0)}}}};
        }
        return item;
    }

    void set_value(const std::string& id) {
        const auto found = all(id);
        auto value = static_cast<std::int32_t>(random_.below(3));
        if (found.size() > 1 && is_task(*found[0]) && random_.one_in(2)) {
            found[random_.below(found.size())]->value = 1000 + ++last_id_;  // in one place only
            return;
        }
        for (Item* item : found) item->value = value;
    }

    void insert(const Item& item, const Place& to) {
        const auto owners = all(to.first);
        if (item.has(to.first) || (owners.size() > 1 && item.has_parts())) return;
        const std::size_t at = random_.below(1000);
        for (Item* owner : owners) {
            auto& list = owner->lists[to.second];
            list.insert(list.begin() + static_cast<std::ptrdiff_t>(at % (list.size() + 1)), item);
        }
    }

    void erase(const std::string& id) {
        Item::visit(root_, [&](Item& item) {
            for (auto& [key, list] : item.lists) {
                std::erase_if(list, [&](const Item& element) { return element.id == id; });
            }
            std::erase_if(item.parts, [&](const auto& part) { return part.second.id == id; });
        });
    }

    void remove(const std::string& id) {
        if (id.empty()) return;
        const auto found = all(id);
        if (found.size() > 1 && random_.one_in(2)) {  // from one list only
            const Place from = one_of(list_places());
            for (Item* owner : all(from.first)) {
                std::erase_if(owner->lists[from.second], [&](const Item& element) { return element.id == id; });
            }
            return;
        }
        erase(id);
    }

    void reorder(const Place& place) {
        const std::uint64_t seed = random_.below(1000000);
        for (Item* owner : all(place.first)) {
            auto& list = owner->lists[place.second];
            if (list.size() < 2) return;
            const Item item = list[seed % list.size()];
            list.erase(list.begin() + static_cast<std::ptrdiff_t>(seed % list.size()));
            list.insert(list.begin() + static_cast<std::ptrdiff_t>(seed / 1000 % (list.size() + 1)), item);
        }
    }

    void move(const std::string& id) {
        if (id.empty()) return;
        const Item before = root_;
        const Item item = *all(id)[0];
        erase(id);
        const Place to = one_of(list_places());
        insert(item, to);
        if (all(id).empty()) root_ = before;
    }

    // Puts an element into one more list; tasks also into the same.
    void copy(const std::string& id) {
        if (id.empty()) return;
        const Item item = *all(id)[0];
        const Place to = one_of(list_places());
        if (item.has_parts()) return;
        bool is_there = false;
        for (const Item& element : all(to.first)[0]->lists[to.second]) is_there = is_there || element.id == id;
        if (!is_there || is_task(item)) insert(item, to);
    }

    // Another list or part, or without it.
    void change_members(const std::string& id) {
        const auto found = all(id);
        if (found.size() != 1 || is_task(*found[0]) || id == root_.id) return;
        Item& item = *found[0];
        if (random_.one_in(2)) {
            if (item.lists.erase("more") == 0) item.lists["more"].push_back(new_item(random_.below(3)));
        } else if (item.parts.erase("y") == 0) {
            item.parts["y"] = {new_id('w'), 0, false, {{"in", {}}}};
        }
    }

    // A document that became a part of another is deleted, and stays so: split off again, it is a new one.
    void set_splits(Item& item, bool splits) {
        if (splits && !splits_all_ && !item.splits) {
            for (auto& [key, part] : item.parts) part.id = new_id('w');
        }
        item.splits = splits;
    }

    void split_or_join(const std::string& id) {
        const auto found = all(id);
        if (found.size() == 1) set_splits(*found[0], !found[0]->splits);
    }

    void move_part(const std::string& id) {
        if (id.empty() || all(id).size() != 1) return;
        const Item before = root_;
        Item part = *all(id)[0];
        bool was_document = false;
        Item::visit(root_, [&](const Item& item) {
            for (const auto& [key, each] : item.parts) was_document = was_document || (each.id == id && splits(item));
        });
        erase(id);
        const auto owners = all(one_of(ids()));
        const char* key = random_.one_in(2) ? "x" : "y";
        if (owners.size() != 1 || is_task(*owners[0]) || part.has(owners[0]->id) || owners[0]->parts.contains(key)) {
            root_ = before;
            return;
        }
        if (!was_document && splits(*owners[0])) part.id = new_id('w');
        owners[0]->parts[key] = part;
    }

    Random& random_;
    Item& root_;
    std::string writer_;
    bool splits_all_;
    int& last_id_;
};

}  // namespace libzentadbpp::items
