#include "documents/document_merge.h"

#include <algorithm>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "documents/document_storage.h"
#include "json/error.h"

namespace libzentadbpp {

namespace {

// One of the two trees on its way into the merged one, and the position of each of its revisions there.
struct TreeToMerge {
    std::span<const TreeRevision> revisions;
    std::vector<std::uint32_t> merged;  // by position
    std::size_t next = 0;

    explicit TreeToMerge(std::span<const TreeRevision> tree) : revisions(tree), merged(tree.size()) {}

    [[nodiscard]] bool done() const { return next == revisions.size(); }
    [[nodiscard]] const TreeRevision& head() const { return revisions[next]; }
    TreeRevision take(std::size_t position) {
        TreeRevision revision = revisions[next];
        if (revision.parent != no_entry) revision.parent = merged[revision.parent];
        merged[next++] = static_cast<std::uint32_t>(position);
        return revision;
    }
};

// The tree under another, smaller first revision. What its own first revision began hangs there a generation later;
// what was grafted onto that one, as its suffix shows, then hangs beside it unchanged.
std::vector<TreeRevision> grafted(std::span<const TreeRevision> tree, const TreeRevision& root) {
    std::vector<TreeRevision> moved{root};
    moved.insert(moved.end(), tree.begin(), tree.end());
    std::vector<bool> is_graft(moved.size());
    for (std::uint32_t at = 1; at < moved.size(); ++at) {
        TreeRevision& revision = moved[at];
        const bool began_graft = revision.is_graft();
        is_graft[at] = began_graft || (revision.parent != no_entry && is_graft[revision.parent + 1]);
        revision.parent = revision.parent == no_entry || began_graft ? 0 : revision.parent + 1;
        if (!is_graft[at]) ++revision.index;
    }
    return in_order(moved, ParentOfEqual::lowest);
}

// For each revision the position of the content that a branch closed by it had last. An empty revision only avoids a
// name clash; it counts as a content if there is no other.
std::vector<std::uint32_t> last_contents(std::span<const TreeRevision> tree) {
    std::vector<std::uint32_t> contents(tree.size());
    for (std::uint32_t at = 0; at < tree.size(); ++at) {
        const std::uint32_t above = tree[at].parent == no_entry ? no_entry : contents[tree[at].parent];
        const bool is_content = !tree[at].is_resolved() && (tree[at].datahash() != empty_hash || above == no_entry);
        contents[at] = is_content ? at : above;
    }
    return contents;
}

// Takes out the leaves that earlier merges opened again. What the union needs is opened anew, so that nothing depends
// on which copies met first. Such a leaf is recognised by where it hangs, by its suffix, which a revision that a text
// merely puts there does not have, and by its content, which an earlier revision has: two branches can be closed under
// one name, so the branch above the leaf need not be the one that was opened. Returns whether there were any.
bool drop_reopened(std::vector<TreeRevision>& tree) {
    const std::vector<bool> is_parent = which_have_children(tree);
    const auto hangs_reopened = [&](std::uint32_t at) {
        const TreeRevision& revision = tree[at];
        return !is_parent[at] && revision.parent != no_entry && !revision.is_resolved() &&
               tree[revision.parent].is_resolved() && revision.suffix() == suffix_under(resolved_hash);
    };
    std::vector<std::pair<std::string_view, std::uint32_t>> earliest;  // generation by data hash
    for (std::uint32_t at = 0; at < tree.size(); ++at) {
        if (hangs_reopened(at)) earliest.emplace_back(tree[at].datahash(), tree[at].index);
    }
    if (earliest.empty()) return false;
    const auto hash_of = [](const auto& entry) { return entry.first; };
    std::ranges::sort(earliest);
    const auto find = [&](std::string_view hash) { return std::ranges::lower_bound(earliest, hash, {}, hash_of); };
    for (const TreeRevision& revision : tree) {
        const auto known = find(revision.datahash());
        if (known != earliest.end() && known->first == revision.datahash()) {
            known->second = std::min(known->second, revision.index);
        }
    }

    std::vector<std::uint32_t> position(tree.size());
    std::vector<TreeRevision> kept;
    kept.reserve(tree.size());
    for (std::uint32_t at = 0; at < tree.size(); ++at) {
        if (hangs_reopened(at) && find(tree[at].datahash())->second < tree[at].index) continue;
        position[at] = static_cast<std::uint32_t>(kept.size());
        kept.push_back(tree[at]);
        if (kept.back().parent != no_entry) kept.back().parent = position[kept.back().parent];
    }
    if (kept.size() == tree.size()) return false;
    tree = std::move(kept);
    return true;
}

void report_second_first_revision(const MultiVersionDocument& target, const TreeRevision& wannabe) {
    std::string lines = "Document ";
    lines.append(target.id()).append("\nActual root ").append(target.revision_string(0));
    lines.append("\nWannabe root ").append(wannabe.revision_string()).append("\n");
    if (target.has_winning()) lines.append(target.winning().revision_string());
    lines.append("\n");
    std::fputs(lines.c_str(), stderr);
    std::fflush(stderr);
}

}  // namespace

DocumentRef reopened(const MultiVersionDocument& document) {
    if (document.has_winning() || document.revisions().empty()) return nullptr;
    const auto revisions = document.revisions();
    const std::vector<bool> is_parent = which_have_children(revisions);
    const std::vector<std::uint32_t> contents = last_contents(revisions);
    // Every branch ends in a resolved revision; ascending order leaves the lowest of the longest first.
    std::uint32_t closing = no_entry;
    for (std::uint32_t at = 0; at < revisions.size(); ++at) {
        if (is_parent[at] || contents[at] == no_entry) continue;
        if (closing == no_entry || revisions[at].index > revisions[closing].index) closing = at;
    }
    return closing == no_entry ? nullptr : document.with_child(closing, revisions[contents[closing]].datahash());
}

DocumentRef merge_documents(const MultiVersionDocument& target, const MultiVersionDocument& source, Grafts grafts) {
    std::span<const TreeRevision> ours = target.revisions();
    std::span<const TreeRevision> theirs = source.revisions();
    std::vector<TreeRevision> moved;
    bool changed = false;
    if (!ours.empty() && !theirs.empty() && ours.front().text != theirs.front().text) {
        if (grafts == Grafts::never || !has_ordering_id(target.id())) {
            report_second_first_revision(target, theirs.front());
            throw SecondFirstRevision{std::string(target.id())};
        }
        changed = theirs.front().text < ours.front().text;
        moved = changed ? grafted(ours, theirs.front()) : grafted(theirs, ours.front());
        (changed ? ours : theirs) = moved;
    }

    TreeToMerge from_ours(ours);
    TreeToMerge from_theirs(theirs);
    std::vector<TreeRevision> merged;
    merged.reserve(ours.size() + theirs.size());
    bool follows_resolved = false;
    while (!from_ours.done() || !from_theirs.done()) {
        if (from_theirs.done() || (!from_ours.done() && precedes(from_ours.head(), from_theirs.head()))) {
            merged.push_back(from_ours.take(merged.size()));
        } else if (from_ours.done() || precedes(from_theirs.head(), from_ours.head())) {
            merged.push_back(from_theirs.take(merged.size()));
            changed = true;
        } else {
            // The merged tree is in revision order, so the smaller parent comes first.
            TreeRevision revision = from_ours.take(merged.size());
            const std::uint32_t their_parent = from_theirs.take(merged.size()).parent;
            if (their_parent < revision.parent) {
                revision.parent = their_parent;
                changed = true;
            }
            merged.push_back(revision);
        }
        const std::uint32_t parent = merged.back().parent;
        follows_resolved = follows_resolved || (parent != no_entry && merged[parent].is_resolved());
    }

    const bool dropped = follows_resolved && drop_reopened(merged);
    if (!changed && !dropped) return reopened(target);
    DocumentRef result = MultiVersionDocument::make(target.id(), merged);
    if (DocumentRef opened = reopened(*result)) result = std::move(opened);
    return dropped && result->history() == target.history() ? nullptr : result;
}

}  // namespace libzentadbpp
