#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/parser.h"
#include "json/writer.h"

// Documents and sets of them the naive way: every revision with its parent, and each operation by its definition.
namespace libzentadbpp::naive {

using Revision = std::pair<std::uint32_t, std::string>;  // generation, and hash_suffix
using Tree = std::map<Revision, Revision>;               // the parent of each

inline std::string hash_of(const Revision& revision) { return revision.second.substr(0, revision.second.find('_', 1)); }
inline std::string text_of(const Revision& revision) { return std::to_string(revision.first) + "-" + revision.second; }

// A chain ends at an array, of branches, and at what is neither; a revision that is met twice keeps its first parent.
inline void unfold(const JsonValue& history, Revision above, Tree& tree) {
    for (const JsonValue& entry : history.elements()) {
        if (entry.is_string()) {
            const Revision revision(above.first + 1, entry.as_string());
            tree.try_emplace(revision, above);
            above = revision;
            continue;
        }
        if (!entry.is_array()) return;
        for (const JsonValue& branch : entry.elements()) {
            if (branch.is_string()) tree.try_emplace({above.first + 1, std::string(branch.as_string())}, above);
            if (branch.is_array()) unfold(branch, above, tree);
        }
        return;
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

inline std::set<Revision> leaves(const Tree& tree) {
    std::set<Revision> open = ends(tree);
    std::erase_if(open, [](const Revision& end) { return hash_of(end) == "resolved"; });
    return open;
}

// The lowest of those with the longest history.
inline Revision longest(const std::set<Revision>& revisions) {
    return *revisions.lower_bound({revisions.rbegin()->first, ""});
}
inline Revision winner(const Tree& tree) { return longest(leaves(tree)); }

// What the branch that ends in a resolved revision held last.
inline std::string closed_by(const Tree& tree, Revision revision) {
    while (hash_of(revision) == "resolved" || hash_of(revision) == "empty") revision = tree.at(revision);
    return hash_of(revision);
}

// Adds a child, under an empty revision of its own where its name is taken; false where that is taken as well.
inline bool add(Tree& tree, const Revision& above, const std::string& hash) {
    const auto is_free = [&](const Revision& revision, const Revision& parent) {
        return !tree.contains(revision) || tree.at(revision) == parent;
    };
    const std::string suffix = above.first == 0 ? "first" : hash_of(above).substr(0, 7);
    const Revision child(above.first + 1, hash + "_" + suffix);
    if (is_free(child, above)) return tree.emplace(child, above), true;
    const Revision between(above.first + 1, "empty_" + suffix);
    const Revision below(between.first + 1, hash + "_empty");
    if (!is_free(between, above) || !is_free(below, between)) return false;
    tree.emplace(between, above);
    return tree.emplace(below, between), true;
}

// Whether all that follows the first revision was grafted there.
inline bool has_open_root(const Tree& tree) {
    bool is_open = false;
    for (const auto& [revision, parent] : tree) {
        if (parent != tree.begin()->first) continue;
        if (!revision.second.ends_with("_first")) return false;
        is_open = true;
    }
    return is_open;
}

// What is closed once somebody has read all lists.
inline void close_all_but_winner(Tree& tree) {
    std::set<Revision> open = leaves(tree);
    open.erase(winner(tree));
    if (has_open_root(tree)) open.insert(tree.begin()->first);
    for (const Revision& leaf : open) add(tree, leaf, "resolved");
}

struct Merge {
    Tree tree;
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
        known->second = std::min(known->second, above);
    }
}

inline Merge merged(const Tree& target, const Tree& source) {
    const Revision root = std::min(target.begin()->first, source.begin()->first);
    Merge merge;
    std::map<Revision, Revision> firsts;
    put(target, root, merge, firsts);
    put(source, root, merge, firsts);
    merge.tree.try_emplace(root);
    // The leaves that were opened again count as if they were not there.
    std::map<std::string, std::uint32_t> lowest;  // by hash
    for (const auto& [revision, parent] : merge.tree) lowest.try_emplace(hash_of(revision), revision.first);
    for (const Revision& end : leaves(merge.tree)) {
        const Revision above = merge.tree.at(end);
        if (above.first == 0 || hash_of(above) != "resolved") continue;
        if (lowest.at(hash_of(end)) < end.first) merge.tree.erase(end);
    }
    Revision opened;
    if (leaves(merge.tree).empty()) {
        const Revision closing = longest(ends(merge.tree));
        opened = {closing.first + 1, closed_by(merge.tree, closing) + "_resolve"};
        merge.tree[opened] = closing;
    }
    return merge;
}

// A sync JSON.
struct Storage {
    std::map<std::string, Tree> documents;
    std::map<std::string, std::string> contents;  // by hash
    bool names_met = false;                       // in the merge that made it

    bool operator==(const Storage& other) const { return documents == other.documents && contents == other.contents; }
};

inline Storage storage_of(std::string_view sync_json) {
    Arena arena;
    Storage storage;
    const JsonValue json = parse_json(sync_json, arena);
    for (const auto& [id, history] : json.find("d")->members()) unfold(history, {}, storage.documents[std::string(id)]);
    if (json.find("o") == nullptr) return storage;
    for (const auto& [hash, content] : json.find("o")->members()) {
        TextBuffer text;
        write_json(content, text);
        storage.contents.emplace(hash, text.view());
    }
    return storage;
}

// All that both know.
inline Storage merged(const Storage& target, const Storage& source) {
    Storage result{target.documents, target.contents};
    for (const auto& [id, tree] : source.documents) {
        const auto [known, is_new] = result.documents.try_emplace(id, tree);
        if (is_new) continue;
        Merge merge = merged(known->second, tree);
        known->second = std::move(merge.tree);
        result.names_met |= merge.names_met;
    }
    result.contents.insert(source.contents.begin(), source.contents.end());
    return result;
}

// The hashes on the path from the winner to the first revision, newest first.
inline std::vector<std::string> winning_hashes(const Tree& tree) {
    std::vector<std::string> hashes;
    for (Revision at = winner(tree); at.first != 0; at = tree.at(at)) hashes.push_back(hash_of(at));
    return hashes;
}

// Keeps the contents that `keeps` returns for each document.
template <class Keeps>
void retain(Storage& storage, const Keeps& keeps) {
    std::set<std::string> kept;
    for (const auto& [id, tree] : storage.documents) kept.merge(keeps(id, tree));
    std::erase_if(storage.contents, [&](const auto& content) { return !kept.contains(content.first); });
}

inline std::set<std::string> newest(const Tree& tree, std::size_t limit) {
    const std::vector<std::string> hashes = winning_hashes(tree);
    return {hashes.begin(), hashes.begin() + static_cast<std::ptrdiff_t>(std::min(limit, hashes.size()))};
}

inline std::set<std::string> all_hashes(const Tree& tree) {
    std::set<std::string> hashes;
    for (const auto& [revision, parent] : tree) hashes.insert(hash_of(revision));
    return hashes;
}

// The first revision of a grafted list is closed if another branch followed it.
inline Storage all_winning(Storage storage) {
    for (auto& [id, tree] : storage.documents) {
        Tree path;
        for (Revision at = winner(tree); at.first != 0; at = tree.at(at)) path[at] = tree.at(at);
        const bool is_grafted = path.size() > 1 && std::next(path.begin())->first.second.ends_with("_first");
        const Revision first = tree.begin()->first;
        const bool is_followed = std::ranges::any_of(tree, [&](const auto& revision) {
            return revision.second == first && !revision.first.second.ends_with("_first");
        });
        if (is_grafted && is_followed) add(path, first, "resolved");
        tree = std::move(path);
    }
    retain(storage, [](const std::string&, const Tree& tree) { return all_hashes(tree); });
    return storage;
}

// What comes back from a server that was sent the winners: their paths, named by the hashes alone.
inline Storage exchanged(Storage storage) {
    for (auto& [id, tree] : storage.documents) {
        const std::vector<std::string> hashes = winning_hashes(tree);
        tree.clear();
        Revision above;
        for (std::size_t at = hashes.size(); at-- != 0;) {
            const std::string suffix = above.first == 0 ? "first" : hash_of(above).substr(0, 7);
            const Revision revision(above.first + 1, hashes[at] + "_" + suffix);
            tree[revision] = above;
            above = revision;
        }
    }
    retain(storage, [](const std::string&, const Tree& tree) { return newest(tree, 1); });
    return storage;
}

}  // namespace libzentadbpp::naive
