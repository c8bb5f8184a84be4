#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "inspect/sync_json.h"

namespace zentadb {

// The content of a revision for people, with strings as the host gave them; arrays with a list of their own are
// "[...]", objects "{...}" with their id. Nothing if it was pruned.
[[nodiscard]] std::optional<nlohmann::ordered_json> shown_content(const SyncJson& sync_json, const Revision& revision);

// What the content of a revision says that its parent's does not: "text: "tea", -done".
[[nodiscard]] std::string change_line(const SyncJson& sync_json, const RevisionTree& tree, std::size_t index);

}  // namespace zentadb
