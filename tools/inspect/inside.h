#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "inspect/revision_tree.h"
#include "store/store.h"

namespace zentadb {

// An entry of a store: a document and its history array, or a hash and its content, as it is written.
struct Entry {
    std::string key;
    std::string_view value;
};

// What is in a store, entry by entry; nothing is looked into before it is asked for.
class Inside {
   public:
    explicit Inside(const zentadbpp::Handle& handle);

    // The documents, ascending by id: their ids and history arrays.
    [[nodiscard]] const std::vector<Entry>& histories() const { return histories_; }
    [[nodiscard]] const std::vector<Entry>& contents() const { return contents_; }
    [[nodiscard]] std::size_t size() const { return text_.size(); }
    [[nodiscard]] std::string_view text() const { return text_; }

    [[nodiscard]] std::string_view root_id() const { return root_id_; }
    // The tree of a document. Throws Failure (input) where there is no such document.
    [[nodiscard]] RevisionTree tree(std::string_view id) const;

    // Whether the content of a revision is there: it may have been pruned.
    [[nodiscard]] bool has_content(const Revision& revision) const;
    // The content of a revision as it is stored; nothing where it is deleted or was pruned.
    [[nodiscard]] std::optional<std::string_view> stored(const Revision& revision) const;
    // The content of a revision, with strings as the host gave them; arrays that are kept apart are "[...]", objects
    // "{...}" with their id. Nothing where it was pruned.
    [[nodiscard]] std::optional<nlohmann::ordered_json> content(const Revision& revision) const;

   private:
    zentadbpp::Value text_;
    std::string root_id_;
    std::vector<Entry> histories_;
    std::vector<Entry> contents_;
};

[[nodiscard]] inline bool is_ordering(std::string_view id) { return id.starts_with("ord-"); }

// Where documents stand in the data, by id, as jq would be asked for them: ".list[2]". Empty where the data cannot be
// read.
[[nodiscard]] std::unordered_map<std::string, std::string> places_in(Store& store);
// One step of such a path.
[[nodiscard]] std::string member_step(const std::string& key);

// A value on one line, for people.
[[nodiscard]] std::string one_line(const nlohmann::ordered_json& value);
// An outcome as JSON, for programs.
[[nodiscard]] std::string pretty(const nlohmann::ordered_json& value);
// What the content of a revision says that its parent's does not: "text: "tea", -done".
[[nodiscard]] std::string change_line(const Inside& inside, const RevisionTree& tree, std::size_t index);

}  // namespace zentadb
