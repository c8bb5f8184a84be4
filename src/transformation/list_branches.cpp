#include "transformation/list_branches.h"

#include <algorithm>

namespace libzentadbpp {

namespace {

std::vector<bool> closed_revisions(std::span<const TreeRevision> revisions) {
    std::vector<bool> closed(revisions.size());
    for (const TreeRevision& revision : revisions) {
        if (revision.is_resolved() && revision.parent != no_entry) closed[revision.parent] = true;
    }
    return closed;
}

std::uint32_t find_base(std::span<const TreeRevision> revisions, const std::vector<bool>& closed,
                        std::span<const std::uint32_t> leaves) {
    std::vector<std::uint32_t> closed_above(revisions.size());
    for (std::uint32_t at = 0; at < revisions.size(); ++at) {
        const std::uint32_t parent = revisions[at].parent;
        if (parent != no_entry) closed_above[at] = closed_above[parent] + (closed[parent] ? 1 : 0);
    }
    return *std::ranges::min_element(leaves, [&](std::uint32_t a, std::uint32_t b) {
        if (closed_above[a] != closed_above[b]) return closed_above[a] < closed_above[b];
        if (revisions[a].index != revisions[b].index) return revisions[a].index > revisions[b].index;
        return a < b;
    });
}

}  // namespace

ListBranches list_branches(const MultiVersionDocument& document, std::span<const std::uint32_t> leaves) {
    const auto revisions = document.revisions();
    const std::vector<bool> closed = closed_revisions(revisions);
    ListBranches branches{find_base(revisions, closed, leaves), {}};

    std::vector<std::uint32_t> towards_base(revisions.size(), no_entry);  // above the base: the child on the way to it
    for (std::uint32_t at = branches.base; revisions[at].parent != no_entry; at = revisions[at].parent) {
        towards_base[revisions[at].parent] = at;
    }
    struct Start {
        std::uint32_t revision = no_entry;
        std::uint32_t child = no_entry;  // on the way to the leaf
    };
    std::vector<Start> starts(revisions.size());
    for (std::uint32_t at = 0; at < revisions.size(); ++at) {
        const std::uint32_t parent = revisions[at].parent;
        if (parent == no_entry) continue;
        const bool begins = closed[parent] || towards_base[parent] != no_entry;
        starts[at] = begins ? Start{parent, at} : starts[parent];
    }
    std::vector<std::uint32_t> with_content(revisions.size(), no_entry);  // the nearest one from here that is not empty
    for (std::uint32_t at = 0; at < revisions.size(); ++at) {
        if (revisions[at].datahash() != empty_hash) {
            with_content[at] = at;
        } else if (revisions[at].parent != no_entry) {
            with_content[at] = with_content[revisions[at].parent];
        }
    }
    for (const std::uint32_t leaf : leaves) {
        if (leaf == branches.base) continue;
        auto [start, child] = starts[leaf];
        const bool begins_empty = start == no_entry || branches.base == 0 || revisions[child].is_graft() ||
                                  (towards_base[start] != no_entry && revisions[towards_base[start]].is_graft());
        branches.others.push_back({leaf, begins_empty ? no_entry : with_content[start]});
    }
    return branches;
}

bool first_is_leaf(const MultiVersionDocument& document) {
    const auto revisions = document.revisions();
    if (revisions.size() < 2 || revisions.front().is_resolved()) return false;
    // The children of the first revision are the second generation, which comes right behind it.
    const auto children = revisions.subspan(1);
    return children.front().is_graft() && std::ranges::all_of(children, [](const TreeRevision& revision) {
               return revision.index != 2 || revision.is_graft();
           });
}

bool has_other_leaves(const MultiVersionDocument& document) {
    const auto revisions = document.revisions();
    const bool is_chain = document.has_winning() && document.winning().index == revisions.size();
    if (is_chain) return revisions.size() > 1 && revisions[1].is_graft();
    return !other_leaves(document).empty();
}

std::vector<std::uint32_t> other_leaves(const MultiVersionDocument& document) {
    std::vector<std::uint32_t> leaves;
    if (first_is_leaf(document)) leaves.push_back(0);
    for (const std::uint32_t leaf : document.leaves_or_none()) {
        if (leaf != document.winning_position()) leaves.push_back(leaf);
    }
    return leaves;
}

}  // namespace libzentadbpp
