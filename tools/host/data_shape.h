#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <unordered_map>
#include <vector>

namespace zentadb {

// The arrays of objects that stand in one kind of place, such as all ".trips[].stops".
struct ArrayPlace {
    std::string path;
    std::vector<std::string> domains;  // of each, in the order of the data
    std::vector<const nlohmann::json*> elements;
    std::size_t with_own_id = 0;    // "_id"
    std::size_t with_rule_id = 0;   // from "id_generation_rules"
    std::size_t with_position = 0;  // from "indexed_array_paths"
    std::size_t lost = 0;           // those in whose place another one under the same id is kept
    std::size_t shared = 0;         // those that are the same document as an equal one without being told so

    [[nodiscard]] bool all_have_ids() const { return with_own_id + with_rule_id + with_position == elements.size(); }
};

// What the arrays in host data come to under a configuration: the domains and ids that the library gives, as
// docs/format.md tells how they are made. The library refuses, or merges silently, what has no ids of its own; this
// tells where.
class DataShape {
   public:
    // Keeps pointers into the data, which must nest no deeper than `deepest`.
    DataShape(const nlohmann::json& data, const nlohmann::json& config);

    [[nodiscard]] const std::vector<ArrayPlace>& arrays() const { return arrays_; }
    [[nodiscard]] const std::string& root_id() const { return root_id_; }
    [[nodiscard]] std::size_t lost() const;
    [[nodiscard]] bool has_element(const std::string& id) const { return seen_.contains(id); }
    // Whether every element has an id of its own that stays, and nothing is lost.
    [[nodiscard]] bool is_sound() const;

    // The configuration with what would give every element an id of its own that stays: a rule where the data has a key
    // for it, else the positions. Some data
    // cannot be helped in this way; see is_sound of the outcome.
    [[nodiscard]] nlohmann::json suggested_config() const;

   private:
    enum class Source { own, rule, place };
    struct Identity {
        std::string id;
        Source source;
    };
    using Rule = std::vector<std::string>;  // key paths

    [[nodiscard]] Identity identity(const nlohmann::json& object, const std::string& path) const;
    [[nodiscard]] std::string hash(const std::string& text) const;
    void visit_members(const nlohmann::json& object, const std::string& path, const std::string& id,
                       const std::string& place);
    void visit_value(const nlohmann::json& value, const std::string& path, const std::string& place);
    void visit_elements(const nlohmann::json& array, const std::string& path, const std::string& place);
    [[nodiscard]] std::string rule_for(const ArrayPlace& place) const;
    [[nodiscard]] bool helps(const nlohmann::json& config, const std::string& path) const;

    const nlohmann::json* data_;
    nlohmann::json config_;
    bool fast_hash_ = false;
    std::vector<Rule> rules_;
    std::vector<std::string> indexed_;
    std::string root_id_;
    std::vector<ArrayPlace> arrays_;
    std::unordered_map<std::string, std::size_t> by_path_;
    std::unordered_map<std::string, const nlohmann::json*> seen_;
};

}  // namespace zentadb
