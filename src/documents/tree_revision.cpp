#include "documents/tree_revision.h"

#include <algorithm>
#include <numeric>

#include "json/error.h"

namespace libzentadbpp {

TreeRevision TreeRevision::make(std::string_view text, std::uint32_t index, std::uint32_t parent) {
    const auto mark = text.find('_', 1);
    if (mark == std::string_view::npos || text.find('_', mark + 1) != std::string_view::npos) {
        raise<InvalidRevisionException>(source::revision, "Revision", "invalid_revision_string_format", text);
    }
    return {text, mark, index, parent};
}

std::string TreeRevision::revision_string() const { return std::to_string(index).append("-").append(text); }

std::vector<TreeRevision> in_order(std::span<const TreeRevision> revisions, ParentOfEqual parent) {
    std::vector<std::uint32_t> order(revisions.size());
    std::iota(order.begin(), order.end(), 0U);
    std::ranges::sort(order, [&](std::uint32_t a, std::uint32_t b) {
        if (precedes(revisions[a], revisions[b])) return true;
        return a < b && !precedes(revisions[b], revisions[a]);
    });
    std::vector<std::uint32_t> position(revisions.size());
    std::vector<TreeRevision> sorted;
    sorted.reserve(revisions.size());
    for (const std::uint32_t old : order) {
        TreeRevision revision = revisions[old];
        if (revision.parent != no_entry) revision.parent = position[revision.parent];
        if (sorted.empty() || precedes(sorted.back(), revision)) {
            sorted.push_back(revision);
        } else if (parent == ParentOfEqual::lowest) {
            sorted.back().parent = std::min(sorted.back().parent, revision.parent);
        }
        position[old] = static_cast<std::uint32_t>(sorted.size() - 1);
    }
    return sorted;
}

std::vector<bool> which_have_children(std::span<const TreeRevision> tree) {
    std::vector<bool> has_children(tree.size());
    for (const TreeRevision& revision : tree) {
        if (revision.parent != no_entry) has_children[revision.parent] = true;
    }
    return has_children;
}

}  // namespace libzentadbpp
