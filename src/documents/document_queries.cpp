#include "documents/document_queries.h"

#include <algorithm>

#include "json/error.h"

namespace libzentadbpp {

namespace {

// Whether a branch that ends in the revision was closed before: by a resolved revision right after it, or because no
// branch through it is open any more.
bool is_closed(const MultiVersionDocument& document, std::uint32_t position, std::span<const std::uint32_t> leaves) {
    const auto revisions = document.revisions();
    const auto closes = [&](const TreeRevision& child) { return child.parent == position && child.is_resolved(); };
    if (std::ranges::any_of(revisions, closes)) return true;
    std::vector<bool> leads_to_leaf(revisions.size());
    for (const std::uint32_t leaf : leaves) leads_to_leaf[leaf] = true;
    for (std::size_t at = revisions.size(); at-- > 0;) {
        if (leads_to_leaf[at] && revisions[at].parent != no_entry) leads_to_leaf[revisions[at].parent] = true;
    }
    return !leads_to_leaf[position];
}

std::uint32_t position_in_tree(const MultiVersionDocument& document, const Revision& revision) {
    const auto position = document.find(revision);
    if (!position) {
        raise<RevisionNotFoundException>(source::multiversiondocument, "ancestor_of", "revision_not_found_in_ancestor");
    }
    return *position;
}

std::vector<std::string> sorted_strings(const MultiVersionDocument& document,
                                        std::span<const std::uint32_t> positions) {
    std::vector<std::string> revisions;
    for (const std::uint32_t position : positions) revisions.push_back(document.revision_string(position));
    std::ranges::sort(revisions);
    return revisions;
}

}  // namespace

std::string ancestor(const MultiVersionDocument& document, const Revision& revision) {
    const std::uint32_t parent = document.revisions()[position_in_tree(document, revision)].parent;
    return parent == no_entry ? std::string() : document.revision_string(parent);
}

std::vector<std::string> history(const MultiVersionDocument& document, const Revision& revision) {
    std::vector<std::string> revisions;
    for (std::uint32_t at = position_in_tree(document, revision); at != no_entry;
         at = document.revisions()[at].parent) {
        revisions.push_back(document.revision_string(at));
    }
    return revisions;
}

std::vector<std::string> sibling_revisions(const MultiVersionDocument& document, const Revision& revision) {
    const auto position = document.find(revision);
    if (!position) {
        raise<RevisionNotFoundException>(source::multiversiondocument, "siblings", "revision_not_found",
                                         revision.revision_string());
    }
    // All children of one parent are of one generation, so their order by text is that of the tree.
    std::vector<std::string> revisions;
    const std::uint32_t parent = document.revisions()[*position].parent;
    for (std::uint32_t at = 0; at < document.revisions().size(); ++at) {
        if (at != *position && document.revisions()[at].parent == parent) {
            revisions.push_back(document.revision_string(at));
        }
    }
    return revisions;
}

std::vector<std::string> leaf_revisions(const MultiVersionDocument& document) {
    return sorted_strings(document, document.leaves());
}

std::vector<std::string> conflicting_revisions(const MultiVersionDocument& document) {
    const std::uint32_t winning = document.winning_position();
    std::vector<std::uint32_t> leaves = document.leaves();
    std::erase_if(leaves,
                  [&](std::uint32_t leaf) { return leaf == winning || document.revisions()[leaf].is_deleted(); });
    return sorted_strings(document, leaves);
}

DocumentStorage resolve(const DocumentStorage& storage, const DocumentRef& document, const Revision& revision) {
    const auto position = document->find(revision);
    if (!position) {
        raise<RevisionNotFoundException>(source::multiversiondocument, "resolve", "revision_not_found",
                                         revision.revision_string());
    }
    const auto leaves = document->leaves_or_none();
    if (std::ranges::find(leaves, *position) == leaves.end()) {
        if (is_closed(*document, *position, leaves)) return storage;
        raise<InvalidRevisionException>(source::multiversiondocument, "resolve", "revision_is_not_a_leaf",
                                        revision.revision_string());
    }
    const auto revisions = document->revisions();
    const bool is_deleted = revisions[*position].is_deleted();
    const auto is_live = [&](std::uint32_t leaf) { return !revisions[leaf].is_deleted(); };
    if (leaves.size() == 1 || (is_deleted && std::ranges::none_of(leaves, is_live))) return storage;

    DocumentChanges changes;
    changes.set(document->with_child(*position, resolved_hash));
    return DocumentStorage(std::move(changes).applied_to(storage.documents()), storage.data(), storage.root_or_empty(),
                           storage.contents_not_named(), storage.closed_documents());
}

}  // namespace libzentadbpp
