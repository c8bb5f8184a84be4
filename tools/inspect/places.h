#pragma once

#include <string>
#include <unordered_map>

#include "store/store.h"

namespace zentadb {

// Where documents are in the data, as jq would be asked for them: ".list[2]".
class Places {
   public:
    // Without any if the data cannot be read.
    explicit Places(Store& store);

    [[nodiscard]] bool empty() const { return places_.empty(); }
    // Empty if the data does not show the document.
    [[nodiscard]] std::string of(const std::string& id) const;

   private:
    std::unordered_map<std::string, std::string> places_;  // by id
};

}  // namespace zentadb
