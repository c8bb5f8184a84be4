#include "replication/replicator.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "contents/ordering_content.h"
#include "documents/document_merge.h"
#include "json/error.h"
#include "text/first_bytes.h"

namespace libzentadbpp {

namespace {

// The documents of the target, those opened again of which every branch is closed, as merging opens those that the
// source has: so all copies have the same, whichever of them knew such a document.
DocumentStorage::Documents opened(const DocumentStorage& target) {
    if (target.closed_documents() == Closed::none) return target.documents();
    DocumentChanges changes;
    for (const auto& entry : target.documents()) {
        if (DocumentRef document = reopened(*entry.value)) changes.set(std::move(document));
    }
    return std::move(changes).applied_to(target.documents());
}

// Whether any document is still closed: one that never had a content.
Closed still_closed(const DocumentStorage::Documents& documents) {
    const auto is_closed = [](const auto& entry) { return !entry.value->has_winning(); };
    return std::any_of(documents.begin(), documents.end(), is_closed) ? Closed::possible : Closed::none;
}

DocumentRef taken_over(const DocumentRef& document, SharedMemory& memory) {
    if (DocumentRef opened = reopened(*document)) return opened;
    if (memory.is_arena()) return document;
    return MultiVersionDocument::make(document->id(), document->revisions(), memory);
}

// The contents that the source has and the target lacks. Those are taken over that a revision of the source names.
class MissingContents {
   public:
    MissingContents(const DataStorage::Map& source, const DataStorage::Map& target) {
        const auto take = [&](const auto& entry, const auto* in_target) {
            if (in_target != nullptr) return;
            if (missing_.empty()) may_be_missing_.resize(std::size_t{1} << filter_bits);
            may_be_missing_[filter_place(entry.key)] = true;
            missing_.push_back({&entry, false});
        };
        visit_beside(source, target, take);
        unnamed_ = missing_.size();
    }

    // Whether there is any that no document has named so far.
    [[nodiscard]] bool waits_for_names() const { return unnamed_ > 0; }

    // O(1) for nearly all hashes whose contents are not missing.
    void name(const MultiVersionDocument& document) {
        if (!waits_for_names()) return;
        for (const TreeRevision& revision : document.revisions()) {
            const std::string_view hash = revision.datahash();
            if (!may_be_missing_[filter_place(hash)]) continue;
            const auto at = std::ranges::lower_bound(missing_, hash, {}, [](const Missing& m) { return m.entry->key; });
            if (at == missing_.end() || at->entry->key != hash || at->is_named) continue;
            at->is_named = true;
            --unnamed_;
        }
    }

    [[nodiscard]] DataStorage added_to(const DataStorage& target, SharedMemory& memory) const {
        ContentChanges changes;
        for (const auto& [entry, is_named] : missing_) {
            if (!is_named) continue;
            if (memory.is_arena()) {
                changes.share(*entry);
            } else {
                changes.add(entry->key, entry->value.text, memory);
            }
        }
        return std::move(changes).applied_to(target);
    }

   private:
    struct Missing {
        const DataStorage::Map::Entry* entry;
        bool is_named;
    };

    static constexpr unsigned filter_bits = 16;
    static std::size_t filter_place(std::string_view hash) {
        return first_bytes(hash) * 0x9e3779b97f4a7c15 >> (64 - filter_bits);
    }

    std::vector<Missing> missing_;  // ascending
    std::size_t unnamed_ = 0;
    std::vector<bool> may_be_missing_;
};

}  // namespace

DocumentStorage replicate(const DocumentStorage& source, const DocumentStorage& target, SharedMemory& memory) {
    const std::string& root = target.root_or_empty();
    if (!root.empty() && root != source.root_or_empty()) {
        raise<ReplicationException>(source::replicator, "operator ()", "mismatching_root_document_identifiers");
    }

    const DocumentStorage::Documents target_documents = opened(target);
    DocumentChanges changes;
    MissingContents contents(source.data().contents(), target.data().contents());
    OrderingDocuments in_source(source.data());
    OrderingDocuments in_target(target.data());
    const auto merge = [&](const auto& entry, const auto* ours) {
        if (ours == nullptr) {
            contents.name(*entry.value);
            changes.set(taken_over(entry.value, memory));
        } else if (ours->value != entry.value && ours->value->history() != entry.value->history()) {
            contents.name(*entry.value);
            const bool is_ordering = in_target.contains(*ours->value) && in_source.contains(*entry.value);
            DocumentRef merged =
                merge_documents(*ours->value, *entry.value, is_ordering ? Grafts::with_ordering_id : Grafts::never);
            if (merged != nullptr) changes.set(std::move(merged));
        }
    };
    visit_beside(source.documents(), target_documents, merge);
    // Nearly always what differs names all that is missing. What does not may still name what only the source has.
    if (contents.waits_for_names()) {
        for (const auto& entry : source.documents()) contents.name(*entry.value);
    }

    DocumentStorage::Documents documents = std::move(changes).applied_to(target_documents);
    const bool may_be_closed =
        source.closed_documents() == Closed::possible || target.closed_documents() == Closed::possible;
    const Closed closed = may_be_closed ? still_closed(documents) : Closed::none;
    return DocumentStorage(std::move(documents), contents.added_to(target.data(), memory),
                           root.empty() ? source.root_or_empty() : root, Unnamed::possible, closed);
}

}  // namespace libzentadbpp
