#pragma once

#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "inspect/sync_json.h"

namespace zentadb {

// The documents that are not deleted and that the data, as it was read from the handle, does not show anywhere.
[[nodiscard]] std::set<std::string> hidden_in(const zentadbpp::Handle& handle, const zentadbpp::Value& data);

// What lies below a version of a document: the documents that its content refers to, those in the lists of its arrays,
// and so on through winning contents. Data does not show what only a losing version leads to.
class Below {
   public:
    Below(const zentadbpp::Handle& handle, const SyncJson& sync_json);

    // The ids of those that are not deleted, without the document itself.
    [[nodiscard]] std::set<std::string> of(const std::string& id, const Revision& version) const;

   private:
    [[nodiscard]] std::vector<std::string> next_of(std::string_view hash) const;

    const zentadbpp::Handle& handle_;
    const SyncJson& sync_json_;
    std::unordered_map<std::string, std::vector<std::string>> lists_;  // by domain
};

// What a merge left out of the data, in words, a line each: what only losing versions hold, and what it brought into
// something that was removed, or removed around what is live. `name` is what people call the store.
[[nodiscard]] std::vector<std::string> hidden_notices(const zentadbpp::Handle& before, zentadbpp::Handle& after,
                                                      const std::string& name);

// How many documents the data shows again that it did not show before.
[[nodiscard]] std::size_t documents_back(const zentadbpp::Handle& before, const zentadbpp::Handle& after);

}  // namespace zentadb
