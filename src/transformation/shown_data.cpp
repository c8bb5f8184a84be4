#include "transformation/shown_data.h"

#include <algorithm>
#include <unordered_set>

#include "transformation/list_branches.h"
#include "transformation/lost_recovery.h"

namespace libzentadbpp {

namespace {

std::size_t ordering_count(const DocumentIndex& index) { return index.ordering_ids().end - index.ordering_ids().first; }

}  // namespace

ShownData::ShownData(const DocumentIndex& index, std::string_view instance, const ShownData* former)
    : ShownData(index, instance,
                Former{former, former == nullptr ? std::nullopt : Renumbering::between(*former->index_, index)}) {}

ShownData::ShownData(const DocumentIndex& index, std::string_view instance, const Former& former)
    : index_(&index),
      instance_(instance),
      reader_(former.documents ? OrderingLists(index, former.data->reader_, *former.documents) : OrderingLists(index)),
      domains_(ordering_count(index)),
      own_(index, instance, reader_, domains_, arena_),
      references_(references_after(former)),
      is_reached_(index.size()) {
    if (own_.any_in_several()) take_out_what_was_not_moved();
    arrays_.resize(domains_.size());
    if (const auto root = index.find(index.storage().root_or_empty())) reach(*root);
    if (reached_documents_ < references_.live_documents()) recover_lost(*this);
    finish_grown();
    collect_lists_to_store();
}

ReferenceGraph ShownData::references_after(const Former& former) {
    if (!former.documents || !former.data->references_.may_be_taken_over(*former.documents)) {
        return {*index_, domains_, arena_};
    }
    // Both have their leaves in the order of their documents.
    std::vector<std::uint32_t> domains_now(former.data->domains_.size(), Renumbering::none);
    auto before = former.data->own_.leaves().begin();
    const auto end = former.data->own_.leaves().end();
    for (const OwnLists::Leaf& leaf : own_.leaves()) {
        const std::uint32_t document = former.documents->if_unchanged(leaf.list.document);
        if (!leaf.is_winning || document == Renumbering::none) continue;
        before = std::find_if(before, end, [&](const OwnLists::Leaf& known) {
            return known.list.document > document || (known.list.document == document && known.is_winning);
        });
        if (before != end && before->list.document == document) domains_now[before->domain] = leaf.domain;
    }
    return {*index_, domains_, arena_, former.data->references_, *former.documents, domains_now};
}

// Whoever moved an object took the elements of its arrays along, without a word about each. One of them that another
// copy meanwhile moved out of the array that the object had before stays where that copy moved it.
void ShownData::take_out_what_was_not_moved() {
    const auto is_candidate = [&](std::uint32_t domain) {
        const OwnLists::List& list = own_.of(domain);
        return std::ranges::any_of(list.elements,
                                   [&](std::uint32_t number) { return own_.is_listed_beside(number, list.document); });
    };
    TakenPlaces places(*index_, domains_, arena_);
    std::vector<std::uint32_t> candidates;
    std::vector<bool> may_lose(domains_.size());
    for (std::uint32_t domain = 0; domain < domains_.size(); ++domain) {
        may_lose[domain] = is_candidate(domain);
        if (may_lose[domain]) candidates.push_back(domain);
    }
    references_.visit_documents_with([&](std::uint32_t domain) { return may_lose[domain]; },
                                     [&](std::uint32_t document) { places.look_through(document); });
    std::unordered_map<std::uint32_t, std::unordered_set<std::uint32_t>> dropped;  // by own document
    for (const std::uint32_t domain : candidates) {
        const OwnLists::List& list = own_.of(domain);
        std::vector<std::uint32_t> kept(list.elements.begin(), list.elements.end());
        for (const std::uint32_t before : places.predecessors(domain)) {
            const std::uint32_t origin = own_.of(before).document;
            if (origin == OwnLists::none || origin == list.document) continue;
            if (!own_.may_take(kept.size())) break;
            const auto [known, is_new] = dropped.try_emplace(origin);
            if (is_new) known->second = own_.dropped(origin);
            const auto& left = known->second;
            std::erase_if(kept, [&](std::uint32_t number) {
                return left.contains(number) && own_.is_listed_beside(number, list.document, origin);
            });
        }
        if (kept.size() != list.elements.size()) own_.set(domain, arena_.copy(std::span<const std::uint32_t>(kept)));
    }
}

ShownData::Array& ShownData::array(std::uint32_t domain) {
    if (domain >= arrays_.size()) arrays_.resize(domain + 1);
    return arrays_[domain];
}

// Reaches a document and all that it leads to, in the order in which a walk comes to it.
void ShownData::reach(std::uint32_t first) {
    open_.push_back({first, false});
    while (!open_.empty()) {
        const auto [target, is_array] = open_.back();
        open_.pop_back();
        is_array ? reach_array(target) : reach_document(target);
    }
}

void ShownData::reach_document(std::uint32_t document) {
    if (is_reached_[document] || !index_->is_live(document)) return;
    is_reached_[document] = true;
    if (index_->is_live_data(document)) ++reached_documents_;
    reading_order_.push_back(document);
    const std::span<const Reference> references = references_.of(document);
    if (references.empty() || !followed_.insert(references_.first_of(document))) return;
    for (auto reference = references.rbegin(); reference != references.rend(); ++reference) {
        open_.push_back({reference->target, reference->is_array});
    }
}

void ShownData::reach_array(std::uint32_t domain) {
    Array& reached = array(domain);
    if (reached.is_reached) return;
    reached.is_reached = true;
    reached.elements = own_.of(domain).elements;
    reached_arrays_.push_back(domain);
    for (auto number = reached.elements.rbegin(); number != reached.elements.rend(); ++number) {
        open_.push_back({*number, false});
    }
}

MergedList& ShownData::grow(std::uint32_t domain) {
    Array& grown = array(domain);
    if (grown.grown == nullptr) grown.grown = std::make_unique<MergedList>(grown.elements);
    return *grown.grown;
}

void ShownData::finish_grown() {
    for (const std::uint32_t domain : reached_arrays_) {
        Array& grown = arrays_[domain];
        if (grown.grown == nullptr) continue;
        const std::vector<std::uint32_t> numbers = grown.grown->numbers();
        grown.elements = arena_.copy(std::span<const std::uint32_t>(numbers));
        grown.grown = nullptr;
    }
}

void ShownData::collect_lists_to_store() {
    std::vector<ListToStore> without_document;
    for (const std::uint32_t domain : reached_arrays_) {
        const std::span<const std::uint32_t> elements = arrays_[domain].elements;
        const OwnLists::List& own = own_.of(domain);
        if (own.document == OwnLists::none) {
            if (!elements.empty()) without_document.push_back({domain, own.document, elements});
            continue;
        }
        const bool is_own = elements.data() == own.elements.data() || std::ranges::equal(elements, own.elements);
        const bool is_changed = !own.is_stored || !is_own;
        if (!is_changed && !own.has_other_leaves) continue;
        lists_to_store_.push_back({domain, own.document, elements, is_changed});
    }
    if (!without_document.empty()) find_documents(without_document);
    const HeldData held{[&](std::uint32_t number) { return is_reached(number); },
                        [&](std::uint32_t domain) {
                            const bool is_held = domain < arrays_.size() && arrays_[domain].is_reached;
                            return is_held ? HeldData::List(arrays_[domain].elements) : std::nullopt;
                        },
                        true};
    ListKeeper(*index_, own_, references_, domains_, arena_, held).add_to(lists_to_store_);
    std::erase_if(lists_to_store_, [&](const ListToStore& list) { return !may_store(*index_, list); });
}

// Of arrays without an own document: one that once was it, with the lowest id, is written again.
void ShownData::find_documents(std::vector<ListToStore>& lists) {
    std::unordered_map<std::uint32_t, ListToStore*> by_domain;
    for (ListToStore& list : lists) by_domain.emplace(list.domain, &list);
    const std::uint32_t instance = reader_.number_of(instance_);
    const auto [first, end] = index_->ordering_ids();
    for (std::uint32_t number = first; number < end; ++number) {
        if (!index_->is_ordering(number)) continue;
        for (std::uint32_t at = 0; at < index_->document(number).revisions().size(); ++at) {
            const auto list = reader_.read(number, at);
            if (!list || list->content->instance != instance) continue;
            const auto known = by_domain.find(domains_.add(*list->content));
            if (known != by_domain.end() && known->second->document == OwnLists::none) known->second->document = number;
        }
    }
    lists_to_store_.insert(lists_to_store_.end(), lists.begin(), lists.end());
}

}  // namespace libzentadbpp
