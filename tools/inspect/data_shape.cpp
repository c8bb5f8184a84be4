#include "inspect/data_shape.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <zentadbpp_verify.hpp>

#include "store/json_text.h"

namespace zentadb {

using nlohmann::json;

namespace {

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    if (text.empty()) return parts;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(separator, begin), text.size());
        parts.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

// What a value adds to an id, if it can be part of one.
std::optional<std::string> id_part(const json& value) {
    if (value.is_string() && !value.get_ref<const std::string&>().empty()) return value.get<std::string>();
    if (value.is_number_integer()) return value.dump();
    if (!value.is_number()) return std::nullopt;
    constexpr double limit = 9223372036854775808.0;  // 2^63
    const double whole = std::trunc(value.get<double>());
    if (!(whole >= -limit && whole < limit)) return std::nullopt;
    return std::to_string(static_cast<long long>(whole));
}

std::optional<std::string> apply(const std::vector<std::string>& rule, const json& object) {
    std::string id;
    for (const std::string& path : rule) {
        const json* found = &object;
        if (path.empty()) return std::nullopt;
        for (const std::string& key : split(path, '.')) {
            if (!found->is_object() || !found->contains(key)) return std::nullopt;
            found = &(*found)[key];
        }
        const auto part = id_part(*found);
        if (!part) return std::nullopt;
        id += *part;
    }
    return id;
}

bool flag(const json& config, const char* key) {
    const auto found = config.find(key);
    return found != config.end() && *found == true;
}

bool is_array_of_objects(const json& value) {
    return value.is_array() && std::ranges::all_of(value, [](const json& element) { return element.is_object(); });
}

bool contains(const std::vector<std::string>& list, const std::string& text) {
    return std::ranges::find(list, text) != list.end();
}

// Finds the objects that are used as maps: most members are objects, or arrays, that look alike. To the eye, their keys
// are data, and what is below any of them lies in one kind of place.
class MapFinder {
   public:
    [[nodiscard]] std::unordered_set<const json*> maps_in(const json& data) && {
        visit(data);
        return std::move(maps_);
    }

   private:
    void visit(const json& value) {
        for (const json& inner : value) {
            if (inner.is_structured()) visit(inner);
        }
        if (value.is_object() && is_map(value)) maps_.insert(&value);
    }

    [[nodiscard]] bool is_map(const json& object) const {
        constexpr std::size_t fewest = 8;
        if (object.size() < fewest) return false;
        std::size_t structured = 0;
        std::size_t compared = 0;
        std::size_t keys = 0;
        std::unordered_set<std::string_view> all_keys;
        for (const json& value : object) {
            if (!value.is_structured()) continue;
            ++structured;
            const json& example = value.is_array() && !value.empty() ? value.front() : value;
            if (example.empty()) continue;
            ++compared;
            const auto add = [&](std::string_view key) {
                all_keys.insert(key);
                ++keys;
            };
            if (value.is_array()) add("[]");
            if (!example.is_object() || maps_.contains(&example)) {
                add("*");
                continue;
            }
            for (const auto& [key, inner] : example.items()) add(key);
        }
        // Each has at least half of what any of them has.
        return structured * 4 >= object.size() * 3 && keys * 2 >= all_keys.size() * compared;
    }

    std::unordered_set<const json*> maps_;
};

}  // namespace

DataShape::DataShape(const json& data, const json& config)
    : DataShape(data, config, std::make_shared<const Maps>(MapFinder().maps_in(data)), {}) {}

DataShape::DataShape(const json& data, const json& config, std::shared_ptr<const Maps> maps,
                     std::unordered_set<std::string> by_position, std::string wanted_path)
    : data_(&data),
      config_(config),
      maps_(std::move(maps)),
      fast_hash_(flag(config, "force_fast_hash_only")),
      by_position_(std::move(by_position)),
      wanted_path_(std::move(wanted_path)) {
    for (const std::string& rule : split(member_text(config, "id_generation_rules"), ';')) {
        rules_.push_back(rule.empty() ? Rule{""} : split(rule, ','));
    }
    for (std::string& domain : split(member_text(config, "indexed_array_paths"), ',')) {
        indexed_.insert(std::move(domain));
    }
    root_id_ = identity(data, {}).id;
    if (!data.contains("#nf")) visit_members(data, {}, root_id_);
}

std::string DataShape::hash(const std::string& text) const {
    return fast_hash_ ? zentadbpp::fast_hash(text) : zentadbpp::sha256(text);
}

DataShape::Identity DataShape::identity(const json& object, const std::string& path) const {
    if (const std::string* own = string_member(object, "_id")) return {*own, Source::own};
    for (const Rule& rule : rules_) {
        if (auto id = apply(rule, object)) return {std::move(*id), Source::rule};
    }
    return {path.empty() ? "root" : hash(path), Source::place};
}

void DataShape::visit_members(const json& object, const Position& at, const std::string& id) {
    const std::string inside = at.path.empty() ? "root->" : at.path + "o(" + id + ")->";
    const bool is_map = maps_->contains(&object);
    for (const auto& [key, value] : object.items()) {
        if (!value.is_structured()) continue;
        const std::string step = zentadbpp::member_step(key);
        std::string below = inside;
        below.append(key).append("-");
        visit_value(value, {std::move(below),
                            at.place + (!is_map            ? step
                                        : at.place.empty() ? ".[]"
                                                           : "[]"),
                            at.exact + step});
    }
}

void DataShape::visit_value(const json& value, const Position& at) {
    if (!wanted_path_.empty() && at.path == wanted_path_) found_places_.push_back(at.exact);
    if (value.is_object()) {
        if (!value.contains("#nf")) visit_members(value, at, identity(value, at.path).id);
    } else if (is_array_of_objects(value)) {
        visit_elements(value, at);
    } else if (value.is_array()) {
        std::size_t position = 0;
        for (const json& element : value) {
            const std::string step = zentadbpp::element_step(position++);
            if (element.is_structured()) visit_value(element, {at.path + "a(", at.place + "[]", at.exact + step});
        }
    }
}

void DataShape::visit_elements(const json& array, const Position& at) {
    const std::string domain = hash(at.path);
    const auto [entry, is_new] = by_path_.try_emplace(at.place, arrays_.size());
    const std::size_t number = entry->second;
    if (is_new) arrays_.push_back({at.place, {}, {}});
    arrays_[number].domains.push_back(domain);
    const bool indexed = indexed_.contains(domain) || by_position_.contains(at.place);
    std::size_t position = 0;
    for (const json& element : array) {
        std::string path = at.path;
        path.append("a(").append(domain).append(")->");
        if (indexed) path += std::to_string(position);
        const Identity identity = this->identity(element, path);
        ArrayPlace& found = arrays_[number];
        found.elements.push_back(&element);
        if (identity.source == Source::own) ++found.with_own_id;
        if (identity.source == Source::rule) ++found.with_rule_id;
        if (identity.source == Source::place && indexed) ++found.with_position;
        const auto [other, is_first] = seen_.try_emplace(identity.id, &element);
        if (!is_first) {
            if (identity.source != Source::place) ++found.repeated;
            if (*other->second != element) {
                ++found.lost;
            } else if (identity.source == Source::place) {
                ++found.shared;
            }
        }
        if (!element.contains("#nf")) {
            const std::string step = zentadbpp::element_step(position);
            visit_members(element, {std::move(path), at.place + "[]", at.exact + step}, identity.id);
        }
        ++position;
    }
}

bool DataShape::is_sound() const {
    return std::ranges::all_of(arrays_,
                               [](const ArrayPlace& array) { return array.all_have_ids() && array.lost == 0; });
}

std::vector<std::string> DataShape::places_of(const std::string& path) const {
    return DataShape(*data_, config_, maps_, {}, path).found_places_;
}

// A key, or two, that every element has and that distinguishes all of them. Names that speak of it come first.
std::string DataShape::rule_for(const ArrayPlace& place) const {
    constexpr std::size_t most_keys = 12;
    std::vector<std::string> keys;
    for (const char* key : {"id", "ID", "Id", "uuid", "guid", "key", "code", "slug", "number", "name"})
        keys.emplace_back(key);
    for (const auto& [key, value] : place.elements.front()->items()) {
        const bool is_plain = key.find_first_of(".,;") == std::string::npos;
        if (is_plain && !contains(keys, key)) keys.push_back(key);
    }
    std::erase_if(keys, [&](const std::string& key) {
        return !std::ranges::all_of(place.elements, [&](const json* element) {
            const auto value = element->find(key);
            return value != element->end() && (value->is_string() || value->is_number_integer()) && id_part(*value);
        });
    });
    if (keys.size() > most_keys) keys.resize(most_keys);
    const auto distinguishes = [&](const Rule& rule) {
        std::set<std::string> ids;
        return std::ranges::all_of(place.elements, [&](const json* element) {
            const auto id = apply(rule, *element);
            return id && ids.insert(*id).second;
        });
    };
    for (const std::string& key : keys) {
        if (distinguishes({key})) return key;
    }
    for (std::size_t first = 0; first < keys.size(); ++first) {
        for (std::size_t second = first + 1; second < keys.size(); ++second) {
            if (distinguishes({keys[first], keys[second]})) return keys[first] + "," + keys[second];
        }
    }
    return {};
}

// Takes rules that give elements without ids one, and no two elements the same. Each rule is tried once on all of
// the data, as a rule for one array may do harm to another.
json DataShape::with_rules() const {
    constexpr std::size_t most_rules = 8;
    std::map<std::string, std::size_t> wanted;  // by how many elements
    for (const ArrayPlace& array : arrays_) {
        if (array.elements.empty() || array.all_have_ids()) continue;
        if (const std::string rule = rule_for(array); !rule.empty()) wanted[rule] += array.elements.size();
    }
    std::vector<std::pair<std::string, std::size_t>> rules(wanted.begin(), wanted.end());
    std::ranges::stable_sort(rules, std::greater(), &std::pair<std::string, std::size_t>::second);
    if (rules.size() > most_rules) rules.resize(most_rules);

    const auto repeated = [](const DataShape& shape) {
        std::size_t count = 0;
        for (const ArrayPlace& array : shape.arrays_) count += array.repeated;
        return count;
    };
    const std::size_t repeated_before = repeated(*this);
    json config = config_;
    for (const auto& [rule, elements] : rules) {
        const std::string before = member_text(config, "id_generation_rules");
        if (contains(split(before, ';'), rule)) continue;
        json with_rule = config;
        std::string with_all = before;
        if (!with_all.empty()) with_all += ';';
        with_all += rule;
        with_rule["id_generation_rules"] = std::move(with_all);
        const DataShape after = under(with_rule);
        if (after.root_id_ == root_id_ && repeated(after) <= repeated_before) config = std::move(with_rule);
    }
    return config;
}

// The positions in all arrays that have elements without another id. The domain of an array inside of others depends on
// the ids there, so all are found in one walk from the outside.
json DataShape::with_positions(json config) const {
    std::unordered_set<std::string> places;
    for (const ArrayPlace& array : under(config).arrays_) {
        if (!array.all_have_ids()) places.insert(array.path);
    }
    if (places.empty()) return config;
    std::string domains = member_text(config, "indexed_array_paths");
    for (const ArrayPlace& array : DataShape(*data_, config, maps_, places).arrays_) {
        if (!places.contains(array.path)) continue;
        for (const std::string& domain : array.domains) {
            if (!indexed_.contains(domain)) domains.append(domains.empty() ? "" : ",").append(domain);
        }
    }
    config["indexed_array_paths"] = domains;
    return config;
}

}  // namespace zentadb
