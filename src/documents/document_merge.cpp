#include "documents/document_merge.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "common/error.h"
#include "documents/document_storage.h"

namespace libzentadbpp {

namespace {

// One of the two trees on its way into the merged one: all generations later by `shift` where it is grafted, and where
// each of its revisions came to stand.
struct Incoming {
    std::span<const TreeRevision> revisions;
    std::uint32_t shift;
    std::vector<std::uint32_t> merged;  // by position
    std::size_t next = 0;

    Incoming(const MultiVersionDocument& document, bool grafted)
        : revisions(document.revisions()), shift(grafted ? 1 : 0), merged(revisions.size()) {}

    [[nodiscard]] bool done() const { return next == revisions.size(); }
    [[nodiscard]] std::uint32_t index() const { return revisions[next].index + shift; }
    [[nodiscard]] std::string_view text() const { return revisions[next].text; }
    // The parent of the next revision in the merged tree; the first revision of a grafted tree hangs under the root.
    [[nodiscard]] std::uint32_t parent() const {
        const std::uint32_t own = revisions[next].parent;
        if (own != no_entry) return merged[own];
        return shift == 0 ? no_entry : 0;
    }
    TreeRevision take(std::size_t position) {
        TreeRevision revision = revisions[next];
        revision.index += shift;
        revision.parent = parent();
        merged[next++] = static_cast<std::uint32_t>(position);
        return revision;
    }
};

bool precedes(const Incoming& a, const Incoming& b) {
    return a.index() != b.index() ? a.index() < b.index() : a.text() < b.text();
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
    std::vector<bool> has_child(revisions.size());
    for (const TreeRevision& revision : revisions) {
        if (revision.parent != no_entry) has_child[revision.parent] = true;
    }
    // Every leafless branch ends in a resolved revision; ascending order leaves the lowest of the longest first.
    std::uint32_t closing = no_entry;
    for (std::uint32_t at = 0; at < revisions.size(); ++at) {
        if (has_child[at]) continue;
        if (closing == no_entry || revisions[at].index > revisions[closing].index) closing = at;
    }
    // An empty revision stands in for a taken name, not for a content, unless there is no other.
    std::uint32_t closed = no_entry;
    for (std::uint32_t at = revisions[closing].parent; at != no_entry; at = revisions[at].parent) {
        if (revisions[at].is_resolved()) continue;
        if (closed == no_entry || revisions[closed].datahash() == empty_hash) closed = at;
        if (revisions[closed].datahash() != empty_hash) break;
    }
    return closed == no_entry ? nullptr : document.with_child(closing, revisions[closed].datahash());
}

MergedDocument merge_documents(const MultiVersionDocument& target, const MultiVersionDocument& source) {
    bool graft_target = false;
    bool graft_source = false;
    if (!target.revisions().empty() && !source.revisions().empty()) {
        const TreeRevision& ours = target.revisions().front();
        const TreeRevision& theirs = source.revisions().front();
        if (ours.text != theirs.text) {
            if (!has_ordering_id(target.id())) {
                report_second_first_revision(target, theirs);
                throw SecondFirstRevision{std::string(target.id())};
            }
            graft_target = theirs.text < ours.text;
            graft_source = !graft_target;
        }
    }

    Incoming ours(target, graft_target);
    Incoming theirs(source, graft_source);
    std::vector<TreeRevision> merged;
    merged.reserve(ours.revisions.size() + theirs.revisions.size());
    MergedDocument result;
    bool changed = graft_target;
    while (!ours.done() || !theirs.done()) {
        if (theirs.done() || (!ours.done() && precedes(ours, theirs))) {
            merged.push_back(ours.take(merged.size()));
        } else if (ours.done() || precedes(theirs, ours)) {
            merged.push_back(theirs.take(merged.size()));
            ++result.added;
        } else {
            // The merged tree is in revision order, so the smaller parent is the one that stands first.
            TreeRevision revision = ours.take(merged.size());
            const std::uint32_t their_parent = theirs.take(merged.size()).parent;
            if (their_parent < revision.parent) {
                revision.parent = their_parent;
                changed = true;
            }
            merged.push_back(revision);
        }
    }

    if (changed || result.added != 0) {
        result.document = MultiVersionDocument::make(target.id(), merged);
        if (DocumentRef opened = reopened(*result.document)) result.document = std::move(opened);
    } else {
        result.document = reopened(target);
    }
    return result;
}

}  // namespace libzentadbpp
