#include "replication/replicator.h"

#include <algorithm>

#include "common/error.h"
#include "documents/document_merge.h"

namespace libzentadbpp {

namespace {

DocumentRef taken_over(const DocumentRef& document, Takeover takeover, SharedMemory& memory) {
    if (DocumentRef opened = reopened(*document)) return opened;
    if (takeover == Takeover::share) return document;
    return MultiVersionDocument::make(document->id(), document->revisions(), memory);
}

// The contents that the source's revisions name and the target lacks.
DataStorage merged_contents(const DocumentStorage& source, const DocumentStorage& target, Takeover takeover,
                            SharedMemory& memory) {
    std::vector<const DataStorage::Map::Entry*> missing;
    auto theirs = target.data().contents().begin();
    const auto end = target.data().contents().end();
    for (const auto& entry : source.data().contents()) {
        while (theirs != end && theirs->key < entry.key) ++theirs;
        if (theirs == end || theirs->key != entry.key) missing.push_back(&entry);
    }
    if (missing.empty()) return target.data();

    const auto hashes = referenced_hashes(source.documents());
    ContentChanges changes;
    for (const DataStorage::Map::Entry* entry : missing) {
        if (!std::binary_search(hashes.begin(), hashes.end(), entry->key)) continue;
        if (takeover == Takeover::share) {
            changes.share(*entry);
        } else {
            changes.add(entry->key, entry->value.text, memory);
        }
    }
    return std::move(changes).applied_to(target.data());
}

}  // namespace

ReplicationResult replicate(const DocumentStorage& source, const DocumentStorage& target, Takeover takeover) {
    const std::string& root = target.root_or_empty();
    if (!root.empty() && root != source.root_or_empty()) {
        raise<ReplicationException>(source::replicator, "operator ()", "mismatching_root_document_identifiers");
    }

    ReplicationResult result;
    DocumentChanges changes;
    SharedMemory memory;
    auto ours = target.documents().begin();
    const auto end = target.documents().end();
    for (const auto& entry : source.documents()) {
        while (ours != end && ours->key < entry.key) ++ours;
        if (ours == end || ours->key != entry.key) {
            changes.set(taken_over(entry.value, takeover, memory));
            result.missing_found += entry.value->revisions().size();
        } else if (ours->value != entry.value &&
                   (ours->value->history() != entry.value->history() || !ours->value->has_winning())) {
            MergedDocument merged = merge_documents(*ours->value, *entry.value);
            result.missing_found += merged.added;
            if (merged.document != nullptr) changes.set(std::move(merged.document));
        }
    }

    result.target = DocumentStorage(std::move(changes).applied_to(target.documents()),
                                    merged_contents(source, target, takeover, memory),
                                    root.empty() ? source.root_or_empty() : root);
    return result;
}

}  // namespace libzentadbpp
