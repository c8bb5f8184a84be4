#pragma once

#include <optional>
#include <string>
#include <zentadbpp.hpp>

#include "inspect/sync_json.h"

namespace zentadb {

// The content of a revision in the form in which versions are merged: strings as in host data, links to other documents
// as references. Nothing if the revision is deleted or its content was pruned.
[[nodiscard]] std::optional<zentadbpp::Json> content_of(const SyncJson& sync_json, const Revision& revision);
// The same as it is stored.
[[nodiscard]] std::string stored_from(const zentadbpp::Json& content);

// The value of a content for users: a reference to an array is "[...]", a reference to an object its id.
[[nodiscard]] std::string line_from(const zentadbpp::Json& value);

}  // namespace zentadb
