#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>
#include <zentadbpp.hpp>

#include "inspect/revision_tree.h"
#include "inspect/sync_json.h"

namespace zentadb {

// The versions of a document that are open, the winning one first.
[[nodiscard]] std::vector<std::size_t> open_versions(const zentadbpp::Handle& handle, const std::string& id,
                                                     const RevisionTree& tree);

// Merges versions of a document, with their contents as content_of returns them.
[[nodiscard]] zentadbpp::MergedVersions merge_of(const SyncJson& sync_json, const RevisionTree& tree,
                                                 const std::vector<std::size_t>& versions);

// New versions of documents that resolve their conflicts. Their names follow from the versions that they merge and from
// what they contain, so every copy that resolves these conflicts in this way gets the same ones.
class Resolution {
   public:
    explicit Resolution(const SyncJson& sync_json) : sync_json_(&sync_json) {}

    // The content as one version more after the winning one.
    void add(const std::string& id, const RevisionTree& tree, std::size_t winner, const zentadbpp::Json& content);
    [[nodiscard]] std::size_t size() const { return winners_.size(); }

    // The new versions win, and every other open version is closed.
    [[nodiscard]] zentadbpp::Handle apply(const zentadbpp::Handle& handle) const;

   private:
    const SyncJson* sync_json_;
    std::map<std::string, std::string> winners_;
    zentadbpp::Json histories_ = zentadbpp::Json::object();
    zentadbpp::Json contents_ = zentadbpp::Json::object();
};

}  // namespace zentadb
