#include "transformation/ordering_reconciliation.h"

#include <algorithm>
#include <span>
#include <tuple>
#include <utility>

#include "common/sort_unique.h"
#include "data/data_hash.h"
#include "transformation/document_changes.h"
#include "transformation/document_path.h"
#include "transformation/element_list.h"
#include "transformation/flattener.h"
#include "documents/ordering_lists.h"

namespace libzentadbpp {

namespace {

struct InstanceLists {
    std::vector<OrderingList> winning;      // by document
    std::vector<OrderingList> other_leafs;  // by document, then revision
};

struct Array {
    ElementList elements;
    const OrderingList* own = nullptr;                    // the configured instance's winning list
    const MultiVersionDocument* own_document = nullptr;   // also where only another of its revisions could be read
};

// Carries out the steps; each is a method, in their order.
class Reconciliation {
   public:
    Reconciliation(const DocumentIndex& index, std::string_view instance_id)
        : index_(index), instance_id_(instance_id), placed_in_round_(index.size(), unplaced) {
        collect_lists();
    }

    void run() {
        start_with_own_winning_lists();
        settle_moves();
        for (auto& [domain, array] : arrays_) {
            for (const std::uint32_t number : array.elements.start()) placed_in_round_[number] = own_round;
        }
        add_other_lists();
        restore_lost();
    }

    [[nodiscard]] std::map<std::string_view, Array>& arrays() { return arrays_; }

   private:
    static constexpr std::uint32_t unplaced = 0;
    static constexpr std::uint32_t own_round = 1;

    void collect_lists() {
        for (std::uint32_t number = 0; number < index_.size(); ++number) {
            if (!has_ordering_id(index_.id(number))) continue;
            const MultiVersionDocument& document = index_.document(number);
            if (!document.has_winning()) continue;
            const std::uint32_t winning = document.winning_position();
            if (auto list = read_ordering_list(index_, number, winning, arena_)) {
                lists_[list->instance].winning.push_back(std::move(*list));
            }
            if (document.revisions().size() == document.winning().index) continue;  // a single chain
            for (const std::uint32_t leaf : document.open_leafs()) {
                if (leaf == winning) continue;
                if (auto list = read_ordering_list(index_, number, leaf, arena_)) {
                    lists_[list->instance].other_leafs.push_back(std::move(*list));
                }
            }
        }
    }

    void start_with_own_winning_lists() {
        for (const OrderingList& list : lists_[instance_id_].winning) {
            Array& array = arrays_[list.domain];
            if (array.own != nullptr) continue;  // a second one of this domain adds what is left, with the other lists
            array.own = &list;
            array.own_document = &index_.document(list.document);
            array.elements.start_with(list.elements);
        }
    }

    // An element that was moved between arrays on one copy, while the other copy rewrote the array that it left, stands in
    // both winning lists. The losing leaf of the array it left tells that it was moved away.
    void settle_moves() {
        std::vector<std::uint32_t> places(index_.size());
        std::vector<const Array*> last_array(index_.size());
        bool any = false;
        for (const auto& [domain, array] : arrays_) {
            for (const std::uint32_t number : array.elements.start()) {
                if (std::exchange(last_array[number], &array) != &array && ++places[number] > 1) any = true;
            }
        }
        if (!any) return;
        for (auto array = arrays_.rbegin(); array != arrays_.rend(); ++array) {
            if (array->second.own != nullptr) remove_moved(array->second, places);
        }
    }

    void remove_moved(Array& array, std::vector<std::uint32_t>& places) {
        const auto in_several = [&](std::uint32_t number) { return places[number] > 1; };
        if (std::ranges::none_of(array.elements.start(), in_several)) return;
        const std::vector<std::uint32_t> listed = sorted(array.own->elements);
        std::vector<std::uint32_t> removed;
        for (const std::uint32_t number : moved_away_from(*array.own)) {
            if (places[number] > 1 && std::ranges::binary_search(listed, number)) {
                --places[number];
                removed.push_back(number);
            }
        }
        if (removed.empty()) return;
        std::vector<std::uint32_t> kept = array.elements.start();
        std::erase_if(kept, [&](std::uint32_t number) { return std::ranges::binary_search(removed, number); });
        array.elements.start_with(std::move(kept));
    }

    static std::vector<std::uint32_t> sorted(std::vector<std::uint32_t> numbers) {
        std::ranges::sort(numbers);
        return numbers;
    }

    // What another leaf of the list's document no longer lists, though its last common revision with the winner does.
    std::vector<std::uint32_t> moved_away_from(const OrderingList& winning) {
        std::vector<std::uint32_t> moved;
        std::vector<std::uint32_t> common;
        std::uint32_t last_base = no_entry;
        std::vector<std::uint32_t> before;
        const std::vector<OrderingList>& leafs = lists_[winning.instance].other_leafs;
        const auto by_document = [](const OrderingList& a, const OrderingList& b) { return a.document < b.document; };
        const auto [first, last] = std::equal_range(leafs.begin(), leafs.end(), winning, by_document);
        for (const OrderingList& leaf : std::span(first, last)) {
            if (common.empty()) common = last_common_with_winning(index_.document(winning.document));
            const std::uint32_t base = common[leaf.revision];
            if (base == no_entry) continue;
            if (std::exchange(last_base, base) != base) {
                const auto list = read_ordering_list(index_, winning.document, base, arena_);
                before = list ? sorted(list->elements) : std::vector<std::uint32_t>{};
            }
            std::ranges::set_difference(before, sorted(leaf.elements), std::back_inserter(moved));
        }
        sort_unique(moved);
        return moved;
    }

    // Adds what nothing has placed yet, each element once.
    void add_unplaced(const OrderingList& list, std::uint32_t round) {
        Array& array = arrays_[list.domain];
        if (list.instance == instance_id_ && array.own_document == nullptr) {
            array.own_document = &index_.document(list.document);
        }
        array.elements.add_from(
            list.elements, [&](std::uint32_t number) { return placed_in_round_[number] == unplaced; },
            [&](std::uint32_t number) { placed_in_round_[number] = round; });
    }

    void add_other_lists() {
        for (const OrderingList& list : lists_[instance_id_].winning) {
            if (arrays_[list.domain].own != &list) add_unplaced(list, own_round);
        }
        for (const OrderingList& list : lists_[instance_id_].other_leafs) add_unplaced(list, own_round);

        std::uint32_t round = own_round;
        for (const auto& [instance, lists] : lists_) {
            if (instance == instance_id_) continue;
            ++round;
            // The first instance that lists an element decides where it stands: wherever its winning lists have it.
            for (const OrderingList& list : lists.winning) {
                arrays_[list.domain].elements.add_from(
                    list.elements,
                    [&](std::uint32_t number) {
                        return placed_in_round_[number] == unplaced || placed_in_round_[number] == round;
                    },
                    [&](std::uint32_t number) { placed_in_round_[number] = round; });
            }
            for (const OrderingList& list : lists.other_leafs) add_unplaced(list, round);
        }
    }

    // Live documents that nothing places and nothing refers to, but that some older list has.
    void restore_lost() {
        std::vector<bool> lost(index_.size());
        bool any = false;
        for (std::uint32_t number = 0; number < index_.size(); ++number) {
            lost[number] = placed_in_round_[number] == unplaced && !has_ordering_id(index_.id(number)) &&
                           index_.id(number) != index_.storage().root_or_empty() && index_.is_live(number);
            any = any || lost[number];
        }
        if (!any) return;
        std::vector<bool> referenced(index_.size());
        mark_referenced_objects(index_, referenced);
        any = false;
        for (std::uint32_t number = 0; number < index_.size(); ++number) {
            if (referenced[number]) lost[number] = false;
            any = any || lost[number];
        }
        if (any) place_lost(older_lists_with(lost), lost);
    }

    std::vector<OrderingList> older_lists_with(const std::vector<bool>& lost) {
        std::vector<OrderingList> lists;
        for (std::uint32_t number = 0; number < index_.size(); ++number) {
            if (!has_ordering_id(index_.id(number))) continue;
            const auto revisions = index_.document(number).revisions();
            for (std::uint32_t at = 0; at < revisions.size(); ++at) {
                auto list = read_ordering_list(index_, number, at, arena_);
                if (!list) continue;
                if (std::ranges::any_of(list->elements, [&](std::uint32_t element) { return lost[element]; })) {
                    lists.push_back(std::move(*list));
                }
            }
        }
        // Newest first, own ones before others. The documents stand in ascending order of id already.
        const auto rank = [&](const OrderingList& list) {
            const std::uint32_t generation = index_.document(list.document).revisions()[list.revision].index;
            return std::tuple(list.instance != instance_id_, no_entry - generation, list.document, list.revision);
        };
        std::ranges::sort(lists, {}, rank);
        return lists;
    }

    void place_lost(const std::vector<OrderingList>& lists, const std::vector<bool>& lost) {
        std::vector<const OrderingList*> newest(index_.size());
        for (const OrderingList& list : lists) {
            for (const std::uint32_t number : list.elements) {
                if (lost[number] && newest[number] == nullptr) newest[number] = &list;
            }
            Array& array = arrays_[list.domain];
            if (list.instance == instance_id_ && array.own_document == nullptr) {
                array.own_document = &index_.document(list.document);
            }
            array.elements.add_from(
                list.elements, [&](std::uint32_t number) { return newest[number] == &list; }, [](std::uint32_t) {});
        }
    }

    const DocumentIndex& index_;
    std::string_view instance_id_;
    Arena arena_;
    std::map<std::string_view, InstanceLists> lists_;   // by instance
    std::map<std::string_view, Array> arrays_;          // by domain
    std::vector<std::uint32_t> placed_in_round_;        // by document number
};

}  // namespace

ElementOrder::ElementOrder(const DocumentIndex& index, std::string_view instance_id) {
    Reconciliation reconciliation(index, instance_id);
    reconciliation.run();
    for (auto& [domain, array] : reconciliation.arrays()) {
        const auto entry = elements_.emplace(domain, std::move(array.elements).finish()).first;
        const bool stands = array.own != nullptr ? array.own->complete && array.own->elements == entry->second
                                                 : entry->second.empty();
        if (!stands) outdated_.push_back({entry->first, array.own_document});
    }
}

const std::vector<std::uint32_t>& ElementOrder::elements(std::string_view domain) const {
    static const std::vector<std::uint32_t> none;
    const auto at = elements_.find(domain);
    return at == elements_.end() ? none : at->second;
}

DocumentStorage store_order(const DocumentStorage& storage, const DocumentIndex& index, const ElementOrder& order,
                            std::string_view instance_id) {
    DocumentStorage result = storage;
    Arena arena;
    // Data written with the fast hash keeps its form.
    for (const HashKind kind : {HashKind::sha256, HashKind::fast}) {
        DataHasher hasher(kind);
        std::vector<FlattenedDocument> documents;
        for (const auto& [domain, document] : order.outdated()) {
            const std::string_view form =
                document != nullptr && document->has_winning() ? document->winning().datahash() : domain;
            if (is_hash_of_kind(form, HashKind::fast) != (kind == HashKind::fast)) continue;
            std::vector<std::string_view> ids;
            for (const std::uint32_t number : order.elements(domain)) ids.push_back(index.id(number));
            TextBuffer content;
            write_ordering_content(instance_id, domain, ids, content);
            const std::string_view id = document != nullptr ? arena.copy(document->id())
                                                            : arena.copy(ordering_id(instance_id, domain, hasher));
            documents.push_back({id, arena.copy(content.view())});
        }
        if (!documents.empty()) result = store_documents(result, std::move(documents), Unproduced::keep, hasher);
    }
    return result;
}

}  // namespace libzentadbpp
