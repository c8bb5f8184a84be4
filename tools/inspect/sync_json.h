#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>
#include <zentadbpp.hpp>

#include "inspect/revision_tree.h"

namespace zentadb {

// An entry of a sync JSON: a document and its history array, or a hash and its content, as they are written.
struct Entry {
    std::string key;
    std::string_view value;
};

// What is in a sync JSON, entry by entry; nothing is looked into before it is asked for.
class SyncJson {
   public:
    // `store` is the name of the file in messages.
    explicit SyncJson(const zentadbpp::Handle& handle, std::string store = {});
    // From a JSON text, which has to outlive this. A text that breaks off has the entries before the break.
    explicit SyncJson(std::string_view text);

    // Ascending by key. Entries with one key, which the library does not write, are in the order of the text.
    [[nodiscard]] const std::vector<Entry>& documents() const { return documents_; }
    [[nodiscard]] const std::vector<Entry>& contents() const { return contents_; }
    [[nodiscard]] const std::string& root_id() const { return root_id_; }
    [[nodiscard]] std::string_view text() const { return text_; }
    // The names of all members of the text, as they are written.
    [[nodiscard]] const std::vector<std::string_view>& members() const { return members_; }

    [[nodiscard]] const Entry* document(std::string_view id) const;
    [[nodiscard]] const Entry* content(std::string_view hash) const;

    // The tree of a document. Throws Failure (input) if the document is missing.
    [[nodiscard]] RevisionTree tree(std::string_view id) const;
    // Whether the content of a revision is there: it may have been pruned.
    [[nodiscard]] bool has_content(const Revision& revision) const;
    // The content of a revision as it is stored; nothing if it is deleted or was pruned.
    [[nodiscard]] std::optional<std::string_view> stored(const Revision& revision) const;

   private:
    void read();

    std::string store_;
    std::optional<zentadbpp::Value> owned_;
    std::string_view text_;
    std::string root_id_;
    std::vector<Entry> documents_;
    std::vector<Entry> contents_;
    std::vector<std::string_view> members_;
};

// Writes a sync JSON from entries.
class SyncJsonText {
   public:
    void add_document(std::string_view id, std::string_view history) { add(documents_, id, history); }
    void add_content(std::string_view hash, std::string_view content) { add(contents_, hash, content); }
    [[nodiscard]] std::string with_root(std::string_view id) const;

   private:
    static void add(std::string& part, std::string_view key, std::string_view value);

    std::string documents_;
    std::string contents_;
};

}  // namespace zentadb
