#include "host/data_shape.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <set>
#include <zentadbpp_verify.hpp>

#include "host/inside.h"

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

// What a value adds to an id, where it can be part of one.
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

std::string member_text(const json& config, const char* key) {
    const auto found = config.find(key);
    return found != config.end() && found->is_string() ? found->get<std::string>() : "";
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

std::string joined(const std::string& before, char separator, const std::string& more) {
    return before.empty() ? more : before + separator + more;
}

}  // namespace

DataShape::DataShape(const json& data, const json& config)
    : data_(&data), config_(config), fast_hash_(flag(config, "force_fast_hash_only")) {
    for (const std::string& rule : split(member_text(config, "id_generation_rules"), ';')) {
        rules_.push_back(rule.empty() ? Rule{""} : split(rule, ','));
    }
    indexed_ = split(member_text(config, "indexed_array_paths"), ',');
    root_id_ = identity(data, {}).id;
    if (!data.contains("#nf")) visit_members(data, {}, root_id_, {});
}

std::string DataShape::hash(const std::string& text) const {
    return fast_hash_ ? zentadbpp::fast_hash(text) : zentadbpp::sha256(text);
}

DataShape::Identity DataShape::identity(const json& object, const std::string& path) const {
    if (const auto own = object.find("_id"); own != object.end() && own->is_string()) {
        return {own->get<std::string>(), Source::own};
    }
    for (const Rule& rule : rules_) {
        if (auto id = apply(rule, object)) return {std::move(*id), Source::rule};
    }
    return {path.empty() ? "root" : hash(path), Source::place};
}

void DataShape::visit_members(const json& object, const std::string& path, const std::string& id,
                              const std::string& place) {
    const std::string inside = path.empty() ? "root->" : path + "o(" + id + ")->";
    for (const auto& [key, value] : object.items()) {
        if (!value.is_structured()) continue;
        std::string below = inside;
        visit_value(value, below.append(key).append("-"), place + member_step(key));
    }
}

void DataShape::visit_value(const json& value, const std::string& path, const std::string& place) {
    if (value.is_object()) {
        if (!value.contains("#nf")) visit_members(value, path, identity(value, path).id, place);
    } else if (is_array_of_objects(value)) {
        visit_elements(value, path, place);
    } else if (value.is_array()) {
        for (const json& element : value) {
            if (element.is_structured()) visit_value(element, path + "a(", place + "[]");
        }
    }
}

void DataShape::visit_elements(const json& array, const std::string& path, const std::string& place) {
    const std::string domain = hash(path);
    const auto [entry, is_new] = by_path_.try_emplace(place, arrays_.size());
    const std::size_t number = entry->second;
    if (is_new) arrays_.push_back({place, {}, {}});
    arrays_[number].domains.push_back(domain);
    const bool indexed = contains(indexed_, domain);
    std::size_t position = 0;
    for (const json& element : array) {
        std::string element_path = path;
        element_path.append("a(").append(domain).append(")->");
        if (indexed) element_path += std::to_string(position);
        ++position;
        const Identity identity = this->identity(element, element_path);
        ArrayPlace& found = arrays_[number];
        found.elements.push_back(&element);
        if (identity.source == Source::own) ++found.with_own_id;
        if (identity.source == Source::rule) ++found.with_rule_id;
        if (identity.source == Source::place && indexed) ++found.with_position;
        const auto [other, is_first] = seen_.try_emplace(identity.id, &element);
        if (!is_first) {
            if (*other->second != element) {
                ++found.lost;
            } else if (identity.source == Source::place) {
                ++found.shared;
            }
        }
        if (!element.contains("#nf")) visit_members(element, element_path, identity.id, place + "[]");
    }
}

std::size_t DataShape::lost() const {
    std::size_t count = 0;
    for (const ArrayPlace& array : arrays_) count += array.lost;
    return count;
}

bool DataShape::is_sound() const {
    return std::ranges::all_of(arrays_,
                               [](const ArrayPlace& array) { return array.all_have_ids() && array.lost == 0; });
}

// A key, or two, that every element has and that tells all of them apart. Names that speak of it come first.
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
    const auto tells_apart = [&](const Rule& rule) {
        std::set<std::string> ids;
        return std::ranges::all_of(place.elements, [&](const json* element) {
            const auto id = apply(rule, *element);
            return id && ids.insert(*id).second;
        });
    };
    for (const std::string& key : keys) {
        if (tells_apart({key})) return key;
    }
    for (std::size_t first = 0; first < keys.size(); ++first) {
        for (std::size_t second = first + 1; second < keys.size(); ++second) {
            if (tells_apart({keys[first], keys[second]})) return keys[first] + "," + keys[second];
        }
    }
    return {};
}

bool DataShape::helps(const json& config, const std::string& path) const {
    const DataShape after(*data_, config);
    if (after.root_id_ != root_id_ || after.lost() > lost()) return false;
    return std::ranges::all_of(after.arrays_, [&](const ArrayPlace& array) {
        return array.path != path || (array.lost == 0 && array.all_have_ids());
    });
}

json DataShape::suggested_config() const {
    json config = config_;
    for (const ArrayPlace& array : arrays_) {
        if (array.elements.empty() || array.all_have_ids()) continue;
        if (const std::string rule = rule_for(array); !rule.empty()) {
            json with_rule = config;
            const std::string before = member_text(config, "id_generation_rules");
            if (contains(split(before, ';'), rule)) continue;
            with_rule["id_generation_rules"] = joined(before, ';', rule);
            if (helps(with_rule, array.path)) {
                config = std::move(with_rule);
                continue;
            }
        }
        // Domains inside other arrays depend on the ids there, so they are taken from the data under what was found so
        // far.
        const DataShape so_far(*data_, config);
        for (const std::string& domain : so_far.arrays_[so_far.by_path_.at(array.path)].domains) {
            const std::string before = member_text(config, "indexed_array_paths");
            if (contains(split(before, ','), domain)) continue;
            config["indexed_array_paths"] = joined(before, ',', domain);
        }
    }
    return config;
}

}  // namespace zentadb
