#pragma once

#include <algorithm>
#include <string_view>
#include <vector>

namespace libzentadbpp {

// The objects of one content that have a member which the flattener looks for: such a member does not always come
// first, and whether there is one decides how the members before it are read. One pass finds all objects of a content;
// looking in each object would skip the same members again at every level.
class MarkedObjects {
   public:
    MarkedObjects() = default;
    explicit MarkedObjects(std::string_view content);

    [[nodiscard]] bool have_no_flatten(const char* object) const {
        return std::ranges::binary_search(no_flatten_, object);
    }
    [[nodiscard]] bool have_do_flatten(const char* object) const {
        return std::ranges::binary_search(do_flatten_, object);
    }

   private:
    void add(const char* object, std::string_view key);

    std::vector<const char*> no_flatten_;
    std::vector<const char*> do_flatten_;
};

}  // namespace libzentadbpp
