#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "documents/document_storage.h"

namespace libzentadbpp {

// The documents that an update must not delete: those that the data before it did not show, while an open conflicting
// revision leads to them, by references, by lists of its arrays, and so on through winning contents. Nobody who read
// that data can have deleted them, and whoever keeps that revision in the end gets all that it leads to.
class UnseenDocuments {
   public:
    UnseenDocuments(const DocumentStorage& storage, std::string_view instance)
        : storage_(&storage), instance_(instance) {}

    // By number in ascending order of id. The first call takes O(documents), and O(contents) if any document has a
    // conflict.
    [[nodiscard]] bool contains(std::uint32_t number);

   private:
    void collect();

    const DocumentStorage* storage_;
    std::string_view instance_;
    std::optional<std::vector<bool>> unseen_;  // empty if there is no conflict
};

}  // namespace libzentadbpp
