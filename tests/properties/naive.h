#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "common/json_parser.h"

// Documents the naive way: every revision with its parent, and what merging is by its definition.
namespace libzentadbpp::naive {

using Revision = std::pair<std::uint32_t, std::string>;  // generation, and hash_suffix
using Tree = std::map<Revision, Revision>;               // the parent of each

inline std::string hash_of(const Revision& revision) { return revision.second.substr(0, revision.second.find('_', 1)); }
inline std::string text_of(const Revision& revision) { return std::to_string(revision.first) + "-" + revision.second; }

inline void unfold(const JsonValue& history, Revision above, Tree& tree) {
    for (const JsonValue& entry : history.elements()) {
        if (entry.is_string()) {
            const Revision revision(above.first + 1, entry.as_string());
            tree[revision] = above;
            above = revision;
        } else {
            for (const JsonValue& branch : entry.elements()) {
                if (branch.is_string()) {
                    tree[{above.first + 1, std::string(branch.as_string())}] = above;
                } else {
                    unfold(branch, above, tree);
                }
            }
        }
    }
}

inline Tree tree_of(std::string_view history) {
    Arena arena;
    Tree tree;
    unfold(parse_json(history, arena), {}, tree);
    return tree;
}

inline std::set<Revision> ends(const Tree& tree) {
    std::set<Revision> ends;
    for (const auto& [revision, parent] : tree) ends.insert(revision);
    for (const auto& [revision, parent] : tree) ends.erase(parent);
    return ends;
}

inline std::set<Revision> leafs(const Tree& tree) {
    std::set<Revision> open = ends(tree);
    std::erase_if(open, [](const Revision& end) { return hash_of(end) == "resolved"; });
    return open;
}

// The lowest of those with the longest history.
inline Revision longest(const std::set<Revision>& revisions) {
    return *revisions.lower_bound({revisions.rbegin()->first, ""});
}
inline Revision winner(const Tree& tree) { return longest(leafs(tree)); }

// What the branch that ends in a resolved revision held last.
inline std::string closed_by(const Tree& tree, Revision revision) {
    while (hash_of(revision) == "resolved" || hash_of(revision) == "empty") revision = tree.at(revision);
    return hash_of(revision);
}

struct Merge {
    Tree tree;
    std::size_t added = 0;
    bool names_met = false;  // one name, reached on two ways
};

// Puts the tree into the merge: what belongs to its root, and what to each first revision that hangs grafted under it,
// to be under `root` as it would be had they never met before.
inline void put(const Tree& tree, const Revision& root, Merge& merge, std::map<Revision, Revision>& firsts) {
    std::map<Revision, std::pair<Revision, Revision>> at;  // where each came to be, and its first revision
    for (const auto& [revision, parent] : tree) {
        const bool begins = parent.first == 0 || (revision.first == 2 && revision.second.ends_with("_first"));
        const Revision first = begins ? Revision(1, revision.second) : at.at(parent).second;
        const Revision above = !begins ? at.at(parent).first : first == root ? Revision() : root;
        const Revision placed(above.first + 1, revision.second);
        at[revision] = {placed, first};
        const auto [known, is_new] = merge.tree.try_emplace(placed, above);
        merge.names_met |= firsts.try_emplace(placed, first).first->second != first;
        merge.names_met |= known->second != above && hash_of(placed) == "resolved";
        known->second = std::min(known->second, above);
    }
}

inline Merge merged(const Tree& target, const Tree& source) {
    const Revision root = std::min(target.begin()->first, source.begin()->first);
    Merge ours;
    Merge merge;
    std::map<Revision, Revision> firsts;
    put(target, root, ours, firsts);
    merge = ours;
    put(source, root, merge, firsts);
    merge.tree.try_emplace(root);
    // The leaves that were opened again count as if they were not there.
    for (const Revision& end : leafs(merge.tree)) {
        const Revision above = merge.tree.at(end);
        if (above.first == 0 || hash_of(above) != "resolved") continue;
        if (closed_by(merge.tree, above) == hash_of(end)) merge.tree.erase(end);
    }
    Revision opened;
    if (leafs(merge.tree).empty()) {
        const Revision closing = longest(ends(merge.tree));
        opened = {closing.first + 1, closed_by(merge.tree, closing) + "_resolve"};
        merge.tree[opened] = closing;
    }
    Merge theirs;
    put(source, root, theirs, firsts);
    theirs.tree.try_emplace(root);
    for (const auto& [revision, parent] : theirs.tree) {
        merge.added += merge.tree.contains(revision) && !ours.tree.contains(revision) ? 1 : 0;
    }
    return merge;
}

}  // namespace libzentadbpp::naive
