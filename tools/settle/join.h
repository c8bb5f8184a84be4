#pragma once

#include <map>
#include <string>

#include "store/store.h"

namespace zentadb {

// Throws Failure (unmergeable) for two stores that made documents on their own under the same ids, which the library
// does not merge; it names all of them with their places. `error` is what the library said.
[[noreturn]] void refuse_shared_ids(Store& target, Store& source, const zentadbpp::Error& error);

struct Joined {
    zentadbpp::Handle store;
    std::map<std::string, std::string> new_ids;  // by the ids before
};

// Merges the source into the target after giving one side's document of each such id another id; what leads to it
// follows. The root, and an object that both have at one member of one document, are the same to people: both sides'
// versions become branches of one document, and a conflict. Which side is changed, and how, follows from the first
// revisions, so that both copies, and whoever joins them, come to the same documents.
[[nodiscard]] Joined joined(Store& target, Store& source);

}  // namespace zentadb
