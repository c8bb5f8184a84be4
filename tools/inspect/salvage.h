#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace zentadb {

// What can be saved of a damaged sync JSON: every history and every content that is whole. With it, merging another
// copy brings back what is missing, as revisions that are still named get their contents again.
struct Salvage {
    std::size_t histories = 0;
    std::size_t contents = 0;
    std::vector<std::string> damaged;  // what is left out, a line for each
    std::size_t stopped_at = 0;        // the byte at which the text stops being JSON; 0 if it does not
    std::string sync_json;             // empty if no history is whole
};

// `text` is JSON, or was; not compressed.
[[nodiscard]] Salvage salvage(const std::string& text);

}  // namespace zentadb
