#pragma once

#include <map>
#include <string>

#include "store/store.h"

namespace zentadb {

// Throws Failure (unmergeable) for two stores that created documents independently under the same ids, which the
// library does not merge. The message names all of them with their places. `error` is the library's error.
[[noreturn]] void refuse_shared_ids(Store& target, Store& source, const zentadbpp::Error& error);

struct Joined {
    zentadbpp::Handle store;
    std::map<std::string, std::string> new_ids;  // by the ids before
};

// Merges the source into the target after giving one side's document of each such id another id, and updating the
// references to it. The root, and an object that both have at one member of one document, become one document: both
// versions are branches of it, in conflict. The first revisions determine which side changes, and how, so every join of
// the two copies has the same result.
[[nodiscard]] Joined joined(Store& target, Store& source);

}  // namespace zentadb
