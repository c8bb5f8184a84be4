#include "contents/storage_queries.h"

#include <algorithm>
#include <stdexcept>

#include "contents/ordering_content.h"
#include "json/error.h"
#include "memory/by_number.h"
#include "text/sort_unique.h"

namespace libzentadbpp {

namespace {

// The ids for which `chosen(new document, old document or null)` holds. It does not hold for a document that both
// share, but may fail for it: if every branch of one is closed.
template <class Chosen>
std::vector<std::string> compare(const DocumentStorage& storage, const DocumentStorage& old, const Chosen& chosen) {
    std::vector<std::string> ids;
    const auto visit = [&](const auto& entry, const auto* theirs) {
        if (chosen(*entry.value, theirs == nullptr ? nullptr : theirs->value.get())) ids.emplace_back(entry.key);
    };
    const bool may_fail = storage.closed_documents() == Closed::possible;
    visit_beside(storage.documents(), old.documents(), visit, may_fail ? Shared::visited : Shared::passed_over);
    return ids;
}

using Hashes = LargeVector<std::string_view>;

void add_all(const MultiVersionDocument& document, Hashes& hashes) {
    for (const TreeRevision& revision : document.revisions()) hashes.push_back(revision.datahash());
}

void add_retained(const MultiVersionDocument& document, OrderingDocuments& ordering, std::uint32_t limit,
                  bool skip_winning, Hashes& hashes) {
    const std::uint32_t winning = document.winning_position();
    if (ordering.contains(document)) hashes.push_back(document.winning().datahash());
    std::uint32_t left = limit;
    for (std::uint32_t at = winning; at != no_entry && left != 0; at = document.revisions()[at].parent) {
        if (at != winning || !skip_winning) hashes.push_back(document.revisions()[at].datahash());
        if (limit != no_prune_limit) --left;
    }
}

DataStorage contents_where(const DataStorage& data, const std::vector<bool>& keep) {
    DataStorage::Map::Entries kept;
    auto is_kept = keep.begin();
    for (const auto& entry : data.contents()) {
        if (*is_kept++) kept.push_back(entry);
    }
    return DataStorage(DataStorage::Map::from_sorted(std::move(kept)));
}

DocumentRef winning_path(const DocumentRef& document) {
    const TreeRevision& winning = document->winning();
    if (winning.index == document->revisions().size()) return document;
    std::vector<TreeRevision> path;
    for (std::uint32_t at = document->winning_position(); at != no_entry; at = document->revisions()[at].parent) {
        path.push_back(document->revisions()[at]);
    }
    std::ranges::reverse(path);
    for (std::uint32_t at = 0; at < path.size(); ++at) path[at].parent = at == 0 ? no_entry : at - 1;
    const DocumentRef reduced = MultiVersionDocument::make(document->id(), path);
    // A list that hangs grafted under the first one of its ordering document: if all that followed that one were gone,
    // its elements would come back.
    const bool is_grafted = has_ordering_id(document->id()) && path.size() > 1 && path[1].is_graft();
    const auto follows_first = [](const TreeRevision& revision) {
        return revision.parent == 0 && !revision.is_graft();
    };
    const bool is_followed = is_grafted && std::ranges::any_of(document->revisions(), follows_first);
    return is_followed ? reduced->with_child(0, resolved_hash) : reduced;
}

}  // namespace

bool available(const DocumentStorage& storage, std::string_view revision_or_id) {
    const MultiVersionDocument* document = storage.find(revision_or_id);
    try {
        return storage.data().find(Revision(revision_or_id).datahash()).has_value();
    } catch (const InvalidRevisionException&) {
        if (document == nullptr) throw;
    } catch (const std::logic_error&) {  // the generation is not a number
        if (document == nullptr) throw;
    }
    return storage.data().find(document->winning().datahash()).has_value();
}

std::vector<std::string> instances(const DocumentStorage& storage) {
    NumberSet seen;  // documents may share a content
    std::vector<std::string> ids;
    Arena arena;
    for (const auto& [id, document] : storage.documents()) {
        if (!has_ordering_id(id)) continue;
        const auto content = storage.data().find_numbered(document->winning().datahash());
        if (!content || !seen.insert(content->number)) continue;
        if (const auto ordering = read_ordering_content(content->text, arena)) ids.emplace_back(ordering->instance);
    }
    sort_unique(ids);
    return ids;
}

std::vector<std::string> unresolved(const DocumentStorage& storage) {
    std::vector<std::string> ids;
    OrderingDocuments ordering(storage.data());
    for (const auto& entry : storage.documents()) {
        const MultiVersionDocument& document = *entry.value;
        if (ordering.contains(document)) continue;
        const std::uint32_t winning = document.winning_position();
        const auto conflicts = [&](std::uint32_t leaf) {
            return leaf != winning && !document.revisions()[leaf].is_deleted();
        };
        if (document.winning().index == document.revisions().size()) continue;  // a single chain
        if (std::ranges::any_of(document.leaves(), conflicts)) ids.emplace_back(entry.key);
    }
    return ids;
}

std::vector<std::string> created(const DocumentStorage& storage, const DocumentStorage& old) {
    return compare(storage, old,
                   [](const MultiVersionDocument&, const MultiVersionDocument* before) { return before == nullptr; });
}

std::vector<std::string> deleted(const DocumentStorage& storage, const DocumentStorage& old) {
    return compare(storage, old, [](const MultiVersionDocument& now, const MultiVersionDocument* before) {
        return before != nullptr && now.winning().is_deleted() && !before->winning().is_deleted();
    });
}

std::vector<std::string> updated(const DocumentStorage& storage, const DocumentStorage& old) {
    return compare(storage, old, [](const MultiVersionDocument& now, const MultiVersionDocument* before) {
        return before != nullptr && now.winning().datahash() != before->winning().datahash();
    });
}

DocumentStorage all_winning(const DocumentStorage& storage) {
    DocumentStorage::Documents::Entries entries;
    entries.reserve(storage.documents().size());
    for (const auto& entry : storage.documents()) {
        DocumentRef path = winning_path(entry.value);
        const std::string_view id = path->id();
        entries.push_back({id, std::move(path)});
    }
    auto documents = DocumentStorage::Documents::from_sorted(std::move(entries));
    DataStorage data = contents_where(storage.data(), storage.data().named_by(referenced_hashes(documents)));
    return DocumentStorage(std::move(documents), std::move(data), storage.root_or_empty(), Unnamed::none, Closed::none);
}

DocumentStorage prune(const DocumentStorage& storage, std::uint32_t limit, bool skip_winning) {
    Hashes retained;
    OrderingDocuments ordering(storage.data());
    for (const auto& entry : storage.documents()) add_retained(*entry.value, ordering, limit, skip_winning, retained);
    DataStorage data = contents_where(storage.data(), storage.data().named_by(retained));
    return DocumentStorage(storage.documents(), std::move(data), storage.root_or_empty(), storage.contents_not_named(),
                           storage.closed_documents());
}

DocumentStorage prune_ids(const DocumentStorage& storage, const std::vector<std::string_view>& ids, std::uint32_t limit,
                          bool skip_winning) {
    Hashes retained;
    Hashes listed;
    OrderingDocuments ordering(storage.data());
    for (const auto& entry : storage.documents()) {
        if (std::ranges::binary_search(ids, entry.key)) {
            add_all(*entry.value, listed);
            add_retained(*entry.value, ordering, limit, skip_winning, retained);
        } else {
            add_all(*entry.value, retained);
        }
    }
    std::vector<bool> keep = storage.data().named_by(retained);
    const std::vector<bool> may_go = storage.data().named_by(listed);
    for (std::size_t number = 0; number < keep.size(); ++number) keep[number] = keep[number] || !may_go[number];
    return DocumentStorage(storage.documents(), contents_where(storage.data(), keep), storage.root_or_empty(),
                           storage.contents_not_named(), storage.closed_documents());
}

}  // namespace libzentadbpp
