#include "transformation/list_keeper.h"

#include <algorithm>

#include "common/text_order.h"
#include "data/data_hash.h"
#include "transformation/document_changes.h"
#include "transformation/document_path.h"
#include "transformation/list_branches.h"

namespace libzentadbpp {

bool ListKeeper::is_in(std::uint32_t number, std::uint32_t domain) {
    const auto list = held_.list_of(domain);
    if (!list) return false;
    const auto [known, is_new] = members_.try_emplace(domain);
    if (is_new) known->second.insert(list->begin(), list->end());
    return known->second.contains(number);
}

// Whether the data says what the list of a leaf's document is.
bool ListKeeper::is_kept(const OwnLists::Leaf& leaf) const {
    const auto list = held_.list_of(leaf.domain);
    return list && own_->of(leaf.domain).document == leaf.list.document && (held_.stores_empty_lists || !list->empty());
}

bool ListKeeper::is_elsewhere(std::uint32_t number, std::uint32_t domain) {
    if (!held_.has_document(number) || is_in(number, domain)) return false;
    const std::uint32_t successor = places_.successor(domain);
    return successor == TakenPlaces::none || !is_in(number, successor);
}

void ListKeeper::add_to(std::vector<ListToStore>& lists) {
    take_out_moved(lists);
    if (own_->any_in_several() || !lists.empty()) keep_carried_along(lists);
}

void ListKeeper::look_through_documents_with(const Numbers& domains) {
    for (std::uint32_t document = 0; document < index_->size(); ++document) {
        if (!held_.has_document(document)) continue;
        const auto refers_there = [&](const Reference& reference) {
            return reference.is_array && domains.contains(reference.target);
        };
        if (std::ranges::any_of(references_->of(document), refers_there)) places_.look_through(document);
    }
}

void ListKeeper::take_out_moved(std::vector<ListToStore>& lists) {
    Numbers moved;
    std::unordered_set<const char*> seen;
    for (const OwnLists::Leaf& leaf : own_->leaves()) {
        if (is_kept(leaf) || !seen.insert(leaf.list.content).second) continue;
        for (const std::uint32_t number : leaf.list.elements) {
            if (is_elsewhere(number, leaf.domain)) moved.insert(number);
        }
    }
    if (moved.empty()) return;
    Numbers holders;
    for (std::uint32_t domain = 0; domain < domains_->size(); ++domain) {
        const auto list = held_.list_of(domain);
        if (list && std::ranges::any_of(*list, [&](std::uint32_t number) { return moved.contains(number); })) {
            holders.insert(domain);
        }
    }
    look_through_documents_with(holders);

    std::unordered_map<const char*, bool> has_moved;
    for (const OwnLists::Leaf& leaf : own_->leaves()) {
        const std::uint32_t document = leaf.list.document;
        if (is_kept(leaf) || left_.contains(document)) continue;
        const auto [known, is_new] = has_moved.try_emplace(leaf.list.content);
        const auto is_moved = [&](std::uint32_t number) { return is_elsewhere(number, leaf.domain); };
        if (is_new) known->second = std::ranges::any_of(leaf.list.elements, is_moved);
        if (!known->second) continue;
        std::vector<std::uint32_t> elements = own_->merged(document, leaf.domain);
        Numbers& left = left_[document];
        std::ranges::copy_if(elements, std::inserter(left, left.end()), is_moved);
        std::erase_if(elements, is_moved);
        lists.push_back({leaf.domain, document, std::move(elements)});
    }
}

// Whether an own document lists a document once everything is stored.
bool ListKeeper::still_lists(std::uint32_t document, std::uint32_t number) {
    if (const auto left = left_.find(document); left != left_.end()) return !left->second.contains(number);
    return std::ranges::any_of(own_->leaves_of(document), [&](const OwnLists::Leaf& leaf) {
        return !is_kept(leaf) || is_in(number, leaf.domain);
    });
}

// The other half of ShownData::take_out_what_was_not_moved: whoever stored an element in an array had read that it was
// moved elsewhere as well. The list of the array that the object had before is to say so too, or the element would leave.
void ListKeeper::keep_carried_along(std::vector<ListToStore>& lists) {
    const auto listed_by_third = [&](std::uint32_t number, std::uint32_t document, std::uint32_t origin) {
        return std::ranges::any_of(own_->listing(number), [&](std::uint32_t listing) {
            return listing != OwnLists::none && listing != document && listing != origin &&
                   still_lists(listing, number);
        });
    };
    Numbers candidates;
    for (std::uint32_t domain = 0; domain < domains_->size(); ++domain) {
        const auto list = held_.list_of(domain);
        if (!list) continue;
        const std::uint32_t document = own_->of(domain).document;
        if (std::ranges::any_of(*list, [&](std::uint32_t number) {
                return listed_by_third(number, document, OwnLists::none);
            })) {
            candidates.insert(domain);
        }
    }
    if (candidates.empty()) return;
    look_through_documents_with(candidates);
    std::unordered_map<std::uint32_t, Numbers> dropped;
    for (std::uint32_t domain = 0; domain < domains_->size(); ++domain) {
        if (!candidates.contains(domain)) continue;
        const auto list = *held_.list_of(domain);
        const std::uint32_t document = own_->of(domain).document;
        for (const std::uint32_t before : places_.predecessors(domain)) {
            const std::uint32_t origin = own_->of(before).document;
            if (origin == OwnLists::none || origin == document || held_.list_of(before)) continue;
            const auto [known, is_new] = dropped.try_emplace(origin);
            if (is_new) {
                known->second = own_->dropped(origin);
                if (const auto left = left_.find(origin); left != left_.end()) known->second.merge(Numbers(left->second));
            }
            const bool would_leave = std::ranges::any_of(list, [&](std::uint32_t number) {
                return known->second.contains(number) && listed_by_third(number, document, origin);
            });
            if (!would_leave) continue;
            std::erase_if(lists, [&](const ListToStore& other) { return other.document == origin; });
            lists.push_back({before, origin, {list.begin(), list.end()}});
        }
    }
}

bool may_store(const DocumentIndex& index, const ListToStore& list) {
    if (list.document == OwnLists::none) return true;
    const MultiVersionDocument& document = index.document(list.document);
    return document.has_winning() && !document.winning().is_deleted();
}

DocumentStorage store_lists(const DocumentIndex& index, std::string_view instance, const DomainTable& domains,
                            std::span<const ListToStore> lists) {
    DocumentStorage result = index.storage();
    Arena arena;
    SharedMemory memory;
    OrderingIds ids(instance);
    // Data written with the fast hash keeps its form.
    for (const HashKind kind : {HashKind::sha256, HashKind::fast}) {
        DataHasher hasher(kind);
        std::vector<FlattenedDocument> documents;
        for (const ListToStore& list : lists) {
            const std::string_view domain = domains.text(list.domain);
            if (!may_store(index, list)) continue;
            const MultiVersionDocument* document = nullptr;
            if (list.document != OwnLists::none) document = &index.document(list.document);
            const std::string_view form = document != nullptr ? document->winning().datahash() : domain;
            if (is_hash_of_kind(form, HashKind::fast) != (kind == HashKind::fast)) continue;
            const std::string_view id = document != nullptr ? document->id() : ids.id(domain, hasher, arena);
            if (!list.is_changed) {
                documents.push_back({id, {}});
                continue;
            }
            std::vector<std::string_view> element_ids;
            element_ids.reserve(list.elements.size());
            for (const std::uint32_t number : list.elements) element_ids.push_back(index.id(number));
            TextBuffer content;
            write_ordering_content(instance, domain, element_ids, content);
            documents.push_back({id, arena.copy(content.view())});
        }
        if (documents.empty()) continue;
        sort_by_text(documents, [](const FlattenedDocument& produced) { return produced.id; });
        result = store_documents(result, documents, {}, hasher, memory);
    }
    return result;
}

}  // namespace libzentadbpp
