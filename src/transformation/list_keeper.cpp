#include "transformation/list_keeper.h"

#include <algorithm>
#include <map>

#include "data/data_hash.h"
#include "memory/by_number.h"
#include "text/text_order.h"
#include "transformation/document_path.h"
#include "transformation/list_branches.h"
#include "transformation/store_documents.h"

namespace libzentadbpp {

namespace {

std::size_t length_of(std::span<const OwnLists::Leaf> leaves) {
    std::size_t length = 0;
    for (const OwnLists::Leaf& leaf : leaves) length += leaf.list.content->elements.size();
    return length;
}

}  // namespace

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

// Whether the data has a document, but not in an array, nor in one that took its place.
bool ListKeeper::is_elsewhere(std::uint32_t number, std::uint32_t domain) {
    if (!held_.has_document(number) || is_in(number, domain)) return false;
    const auto successors = places_.successors(domain);
    if (successors.size() > 1 && !own_->may_take(successors.size())) return false;
    return std::ranges::none_of(successors, [&](std::uint32_t successor) { return is_in(number, successor); });
}

void ListKeeper::add_to(std::vector<ListToStore>& lists) {
    take_out_moved(lists);
    if (own_->any_in_several() || !lists.empty()) keep_carried_along(lists);
}

void ListKeeper::count_places() {
    if (!places_of_.empty()) return;
    places_of_.resize(index_->size());
    std::unordered_set<std::uint32_t> seen;
    for (std::uint32_t domain = 0; domain < domains_->size(); ++domain) {
        const auto list = held_.list_of(domain);
        if (!list) continue;
        seen.clear();
        for (const std::uint32_t number : *list) {
            if (seen.insert(number).second) ++places_of_[number];
        }
    }
}

// Whether an own document lists a document, as far as lists are stored by now.
bool ListKeeper::lists_now(std::uint32_t document, std::uint32_t number) {
    if (const auto stored = stored_by_document_.find(document); stored != stored_by_document_.end()) {
        return stored->second->numbers.contains(number);
    }
    const auto leaves = own_->leaves_of(document);
    if (leaves.size() > 1 && !own_->may_take(leaves.size())) return false;
    return std::ranges::any_of(
        leaves, [&](const OwnLists::Leaf& leaf) { return !is_kept(leaf) || is_in(number, leaf.domain); });
}

// Whether own documents list a document beside the given ones, or more than so many arrays of the data have it.
bool ListKeeper::is_listed_beside(std::uint32_t number, std::uint32_t document, std::uint32_t places,
                                  std::uint32_t other) {
    count_places();
    if (places_of_[number] > places) return true;
    constexpr std::size_t few = 3;
    auto listing = own_->listing(number);
    if (listing.size() > few && !own_->may_take(listing.size())) listing = listing.first(few);
    return std::ranges::any_of(
        listing, [&](std::uint32_t at) { return at != document && at != other && lists_now(at, number); });
}

void ListKeeper::look_through_documents_with(const Numbers& domains) {
    references_->visit_documents_with([&](std::uint32_t domain) { return domains.contains(domain); },
                                      [&](std::uint32_t document) {
                                          if (held_.has_document(document)) places_.look_through(document);
                                      });
}

void ListKeeper::take_out_moved(std::vector<ListToStore>& lists) {
    Numbers moved;
    NumberSet seen;
    for (const OwnLists::Leaf& leaf : own_->leaves()) {
        if (is_kept(leaf) || !seen.insert(leaf.list.content->number)) continue;
        for (const std::uint32_t number : leaf.list.content->elements) {
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

    struct Known {
        bool is_looked_through = false;
        bool has_moved = false;
        const Stored* stored = nullptr;  // if it is the only leaf of a document
    };
    ByNumber<Known> known_lists;  // documents may share a long one
    for (const OwnLists::Leaf& leaf : own_->leaves()) {
        const std::uint32_t document = leaf.list.document;
        if (is_kept(leaf) || stored_by_document_.contains(document)) continue;
        Known& known = known_lists[leaf.list.content->number];
        if (!std::exchange(known.is_looked_through, true)) {
            known.has_moved = std::ranges::any_of(
                leaf.list.content->elements, [&](std::uint32_t number) { return is_elsewhere(number, leaf.domain); });
        }
        const ListToStore list{leaf.domain, document, {}};
        if (!known.has_moved || !may_store(*index_, list)) continue;
        const auto leaves = own_->leaves_of(document);
        const bool is_only_leaf = leaves.size() == 1;
        const Stored* stored = is_only_leaf ? known.stored : nullptr;
        if (!is_only_leaf && !own_->may_take(length_of(leaves))) break;
        if (stored == nullptr) stored = &stored_.emplace_back(without_moved(document, leaf.domain));
        if (is_only_leaf) known.stored = stored;
        stored_by_document_.emplace(document, stored);
        lists.push_back({leaf.domain, document, stored->elements});
    }
}

ListKeeper::Stored ListKeeper::without_moved(std::uint32_t document, std::uint32_t domain) {
    std::vector<std::uint32_t> elements =
        own_->merged(document, domain, [&](std::uint32_t number) { return is_listed_beside(number, document, 0); });
    std::erase_if(elements, [&](std::uint32_t number) { return is_elsewhere(number, domain); });
    return {arena_->copy(std::span<const std::uint32_t>(elements)), {elements.begin(), elements.end()}};
}

ListKeeper::Numbers ListKeeper::dropped_now(std::uint32_t document) {
    const auto stored = stored_by_document_.find(document);
    if (stored == stored_by_document_.end()) return own_->dropped(document);
    Numbers dropped = own_->ever_listed(document);
    std::erase_if(dropped, [&](std::uint32_t number) { return stored->second->numbers.contains(number); });
    return dropped;
}

// The other half of ShownData::take_out_what_was_not_moved: whoever stored an element in an array had read that it was
// moved elsewhere as well. The list of the array that the object had before says so too from now on, or the element
// would leave.
void ListKeeper::keep_carried_along(std::vector<ListToStore>& lists) {
    Numbers candidates;
    std::vector<std::uint32_t> in_order;
    for (std::uint32_t domain = 0; domain < domains_->size(); ++domain) {
        const auto list = held_.list_of(domain);
        if (!list) continue;
        const std::uint32_t document = own_->of(domain).document;
        const auto is_beside = [&](std::uint32_t number) { return is_listed_beside(number, document, 1); };
        if (!std::ranges::any_of(*list, is_beside)) continue;
        candidates.insert(domain);
        in_order.push_back(domain);
    }
    if (candidates.empty()) return;
    look_through_documents_with(candidates);
    const auto text_of = [&](std::uint32_t domain) { return domains_->text(domain); };
    std::ranges::sort(in_order, {}, text_of);
    std::unordered_map<std::uint32_t, Numbers> dropped;
    for (const std::uint32_t domain : in_order) {
        const auto list = *held_.list_of(domain);
        const std::uint32_t document = own_->of(domain).document;
        const auto before = places_.predecessors(domain);
        std::vector<std::uint32_t> others(before.begin(), before.end());
        std::ranges::sort(others, {}, text_of);
        // Once one of these documents stores this list, it lists the elements beside all the others. So those that come
        // before it are looked at again.
        const Stored* kept = nullptr;
        const auto keep_in = [&](std::uint32_t other) {
            const std::uint32_t origin = own_->of(other).document;
            const ListToStore to_store{other, origin, list};
            if (origin == OwnLists::none || origin == document || held_.list_of(other)) return;
            if (!may_store(*index_, to_store) || !own_->may_take(list.size())) return;
            const auto [known, is_new] = dropped.try_emplace(origin);
            if (is_new) known->second = dropped_now(origin);
            const auto& left = known->second;
            const bool would_leave = std::ranges::any_of(list, [&](std::uint32_t number) {
                return left.contains(number) && (kept != nullptr || is_listed_beside(number, document, 1, origin));
            });
            if (!would_leave || !own_->may_take(index_->document(origin).revisions().size())) return;
            if (kept == nullptr) kept = &stored_.emplace_back(Stored{list, {list.begin(), list.end()}});
            stored_by_document_[origin] = kept;
            dropped.erase(known);
            lists.push_back(to_store);
        };
        for (const std::uint32_t other : others) keep_in(other);
        if (kept == nullptr) continue;
        for (const std::uint32_t other : others) keep_in(other);
    }
}

bool may_store(const DocumentIndex& index, const ListToStore& list) {
    if (list.document == OwnLists::none) return true;
    const MultiVersionDocument& document = index.document(list.document);
    return !document.has_winning() || !document.winning().is_deleted();
}

namespace {

// Writes the lists to be stored, equal ones once.
class ListWriter {
   public:
    ListWriter(const DocumentIndex& index, std::string_view instance, const DomainTable& domains, Arena& arena)
        : index_(&index), instance_(instance), domains_(&domains), arena_(&arena) {}

    // The content of a list, in the arena.
    [[nodiscard]] std::string_view content(const ListToStore& list) {
        std::string_view& content = contents_[{list.domain, list.elements.data()}];
        if (content.data() == nullptr) {
            std::vector<std::string_view> ids;
            ids.reserve(list.elements.size());
            for (const std::uint32_t number : list.elements) ids.push_back(index_->id(number));
            TextBuffer text;
            write_ordering_content(instance_, domains_->text(list.domain), ids, text);
            content = arena_->copy(text.view());
        }
        return content;
    }

   private:
    const DocumentIndex* index_;
    std::string_view instance_;
    const DomainTable* domains_;
    Arena* arena_;
    std::map<std::pair<std::uint32_t, const std::uint32_t*>, std::string_view> contents_;
};

}  // namespace

DocumentStorage store_lists(const DocumentIndex& index, std::string_view instance, const DomainTable& domains,
                            std::span<const ListToStore> lists, std::optional<HashKind> hash_kind) {
    DocumentStorage result = index.storage();
    Arena arena;
    SharedMemory memory;
    OrderingIds ids(instance);
    ListWriter writer(index, instance, domains, arena);
    // Data written with the fast hash keeps its form.
    for (const HashKind kind : {HashKind::sha256, HashKind::fast}) {
        DataHasher hasher(kind);
        std::vector<FlattenedDocument> documents;
        for (const ListToStore& list : lists) {
            if (!may_store(index, list)) continue;
            const std::string_view domain = domains.text(list.domain);
            const MultiVersionDocument* const document =
                list.document == OwnLists::none ? nullptr : &index.document(list.document);
            const std::string_view form =
                document != nullptr && document->has_winning() ? document->winning().datahash() : domain;
            const HashKind form_kind = is_hash_of_kind(form, HashKind::fast) ? HashKind::fast : HashKind::sha256;
            if (hash_kind.value_or(form_kind) != kind) continue;
            const std::string_view id = document != nullptr ? document->id() : ids.id(domain, hasher, arena);
            documents.push_back({id, list.is_changed ? writer.content(list) : std::string_view{}});
        }
        if (documents.empty()) continue;
        sort_by_text(documents, [](const FlattenedDocument& produced) { return produced.id; });
        result = store_documents(result, documents, {}, hasher, memory);
    }
    return result;
}

}  // namespace libzentadbpp
