#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace zentadb {

// The arrays of objects in one kind of place, such as all ".trips[].stops". The keys of an object that is used as a map
// count as one kind of place, too.
struct ArrayPlace {
    std::string path;
    std::vector<std::string> domains;  // of each, in the order of the data
    std::vector<const nlohmann::json*> elements;
    std::size_t with_own_id = 0;    // "_id"
    std::size_t with_rule_id = 0;   // from "id_generation_rules"
    std::size_t with_position = 0;  // from "indexed_array_paths"
    std::size_t lost = 0;           // those in whose place another one under the same id is kept
    std::size_t repeated = 0;       // those whose "_id" or id from a rule another one has, lost or equal
    std::size_t shared = 0;         // those that share a document with an equal one

    [[nodiscard]] bool all_have_ids() const { return with_own_id + with_rule_id + with_position == elements.size(); }
};

// What the arrays in host data come to under a configuration: the domains and ids that the library gives, as
// docs/format.md describes how they are made. The library refuses, or merges silently, elements without ids of their
// own; this finds where.
class DataShape {
   public:
    // Keeps pointers into the data, which must nest no deeper than `deepest_text`.
    DataShape(const nlohmann::json& data, const nlohmann::json& config);

    [[nodiscard]] const std::vector<ArrayPlace>& arrays() const { return arrays_; }
    // Whether every element has an id of its own that stays, and nothing is lost.
    [[nodiscard]] bool is_sound() const;

    // The configuration with what would give elements an id of their own that stays: a rule where the data has a key
    // for it, else the positions. Some data cannot be helped in this way; see is_sound of the outcome. Takes the time
    // of a few constructions, whatever the data.
    [[nodiscard]] nlohmann::json suggested_config() const { return with_positions(with_rules()); }
    // The same with positions only.
    [[nodiscard]] nlohmann::json positional_config() const { return with_positions(config_); }

    // Where the library's path of a member, such as "root->list-", leads in the data, as jq would be asked for it. Two
    // places may share a path.
    [[nodiscard]] std::vector<std::string> places_of(const std::string& path) const;

   private:
    using Maps = std::unordered_set<const nlohmann::json*>;  // objects that are used as maps
    using Rule = std::vector<std::string>;                   // key paths
    enum class Source { own, rule, place };
    struct Identity {
        std::string id;
        Source source;
    };
    // A value on the way through the data.
    struct Position {
        std::string path;   // the library's
        std::string place;  // with "[]" for any element or key of a map
        std::string exact;
    };

    // `by_position` are places whose elements get ids by their position, whatever the configuration says.
    DataShape(const nlohmann::json& data, const nlohmann::json& config, std::shared_ptr<const Maps> maps,
              std::unordered_set<std::string> by_position, std::string wanted_path = {});

    [[nodiscard]] Identity identity(const nlohmann::json& object, const std::string& path) const;
    [[nodiscard]] std::string hash(const std::string& text) const;
    void visit_members(const nlohmann::json& object, const Position& at, const std::string& id);
    void visit_value(const nlohmann::json& value, const Position& at);
    void visit_elements(const nlohmann::json& array, const Position& at);
    [[nodiscard]] std::string rule_for(const ArrayPlace& place) const;
    [[nodiscard]] nlohmann::json with_rules() const;
    [[nodiscard]] nlohmann::json with_positions(nlohmann::json config) const;
    [[nodiscard]] DataShape under(const nlohmann::json& config) const { return {*data_, config, maps_, {}}; }

    const nlohmann::json* data_;
    nlohmann::json config_;
    std::shared_ptr<const Maps> maps_;
    bool fast_hash_ = false;
    std::vector<Rule> rules_;
    std::unordered_set<std::string> indexed_;      // domains
    std::unordered_set<std::string> by_position_;  // places
    std::string wanted_path_;
    std::vector<std::string> found_places_;
    std::string root_id_;
    std::vector<ArrayPlace> arrays_;
    std::unordered_map<std::string, std::size_t> by_path_;
    std::unordered_map<std::string, const nlohmann::json*> seen_;
};

}  // namespace zentadb
