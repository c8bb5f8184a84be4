#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "inspect/inside.h"

namespace zentadb {

// A store taken apart for the exchange, which needs the revisions and contents of all branches as they are stored.
class SyncText {
   public:
    using Document = Entry;  // an id and a history array

    explicit SyncText(const zentadbpp::Handle& handle);

    [[nodiscard]] const std::vector<Document>& documents() const { return inside_.histories(); }
    [[nodiscard]] const Document* find(const std::string& id) const;
    [[nodiscard]] std::optional<std::string_view> content(std::string_view hash) const;
    [[nodiscard]] const std::string& root() const { return root_; }
    [[nodiscard]] std::string_view text() const { return inside_.text(); }

    // What a merge into a set with another root accepts: this set with `document` as its root.
    [[nodiscard]] std::string rooted_at(const Document& document) const;

   private:
    Inside inside_;
    std::unordered_map<std::string_view, const Document*> documents_;
    std::unordered_map<std::string_view, std::string_view> contents_;
    std::string root_;
};

// A text as a JSON string. Throws nlohmann::json::exception for what is no UTF-8.
[[nodiscard]] std::string quoted(const std::string& text);

}  // namespace zentadb
