#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "documents/multiversion_document.h"

namespace libzentadbpp {

// The revisions of a document and what is added to them. Positions are those in `revisions`.
class GrowingTree {
   public:
    // So many more are expected. The document must outlive this.
    GrowingTree(const MultiVersionDocument& document, std::size_t more);

    // The child of a revision that carries the data hash, added if it is not there. Its name may be taken by a revision
    // under another parent: then others come in between. Nothing if no name is left, which takes a tree
    // that was made for that.
    [[nodiscard]] std::optional<std::uint32_t> add_child(std::uint32_t parent, std::string_view datahash);

    // Those of the document, then what was added. Valid as long as this, and the next change.
    [[nodiscard]] std::span<const TreeRevision> revisions() const { return revisions_; }

   private:
    using Position = std::optional<std::uint32_t>;

    [[nodiscard]] Position add(std::uint32_t parent, std::string_view datahash);
    [[nodiscard]] Position add_below(std::uint32_t parent, std::string_view datahash, std::size_t most_between,
                                     std::size_t& steps);
    [[nodiscard]] Position add_below_empty(std::uint32_t parent, std::string_view datahash, std::size_t& steps);
    [[nodiscard]] Position add_below_own_name(std::uint32_t parent, std::string_view datahash);
    void take_back(std::size_t count);

    const MultiVersionDocument* document_;
    std::vector<TreeRevision> revisions_;
    std::map<std::pair<std::uint32_t, std::string>, std::uint32_t> added_;  // holds the texts
};

}  // namespace libzentadbpp
