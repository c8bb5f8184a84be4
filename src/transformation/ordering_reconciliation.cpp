#include "transformation/ordering_reconciliation.h"

#include <algorithm>
#include <span>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "common/sort_unique.h"
#include "data/data_hash.h"
#include "documents/ordering_lists.h"
#include "transformation/document_changes.h"
#include "transformation/document_path.h"
#include "transformation/element_list.h"
#include "transformation/flattener.h"

namespace libzentadbpp {

namespace {

struct InstanceLists {
    std::vector<OrderingList> winning;      // by document
    std::vector<OrderingList> other_leafs;  // by document, then revision
};

struct Array {
    bool is_shown = false;  // a live document refers to it
    ElementList elements;
    const OrderingList* own = nullptr;                   // the configured instance's winning list
    const MultiVersionDocument* own_document = nullptr;  // also where only another of its revisions could be read
};

// Carries out the steps; each is a method, in their order.
class Reconciliation {
   public:
    Reconciliation(const DocumentIndex& index, std::string_view instance_id)
        : index_(index), instance_id_(instance_id), reader_(index), placed_in_round_(index.size(), unplaced) {
        collect_lists();
        collect_shown_arrays();
    }

    void run() {
        start_with_own_winning_lists();
        settle_moves();
        for (auto& [domain, array] : arrays_) {
            if (!array.is_shown) continue;
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
            if (auto list = reader_.read(number, winning)) {
                lists_[list->instance].winning.push_back(*list);
            }
            if (document.revisions().size() == document.winning().index) continue;  // a single chain
            for (const std::uint32_t leaf : document.open_leafs()) {
                if (leaf == winning) continue;
                if (auto list = reader_.read(number, leaf)) {
                    lists_[list->instance].other_leafs.push_back(*list);
                }
            }
        }
    }

    // An array that nothing refers to any more shows nothing, so its lists place nothing: an element that stands in one
    // of them and nowhere else would be lost.
    void collect_shown_arrays() {
        for (std::uint32_t number = 0; number < index_.size(); ++number) {
            if (!index_.is_live(number) || has_ordering_id(index_.id(number))) continue;
            if (const auto content = index_.winning_content(number)) {
                visit_array_references(*content, [&](std::string_view domain) { arrays_[domain].is_shown = true; });
            }
        }
    }

    void start_with_own_winning_lists() {
        for (const OrderingList& list : lists_[instance_id_].winning) {
            Array& array = arrays_[list.domain];
            if (array.own != nullptr) continue;  // a second one of this domain adds what is left, with the other lists
            array.own = &list;
            array.own_document = &index_.document(list.document);
            array.elements.start_with({list.elements.begin(), list.elements.end()});
            added_.insert(list.elements.data());
        }
    }

    // An element that was moved between arrays on one copy, while the other copy rewrote the array that it left, stands
    // in both winning lists. The losing leaf of the array it left tells that it was moved away.
    void settle_moves() {
        std::vector<std::uint32_t> places(index_.size());
        std::vector<const Array*> last_array(index_.size());
        bool any = false;
        for (const auto& [domain, array] : arrays_) {
            if (!array.is_shown) continue;
            for (const std::uint32_t number : array.elements.start()) {
                if (std::exchange(last_array[number], &array) != &array && ++places[number] > 1) any = true;
            }
        }
        if (!any) return;
        for (auto array = arrays_.rbegin(); array != arrays_.rend(); ++array) {
            if (array->second.is_shown && array->second.own != nullptr) remove_moved(array->second, places);
        }
    }

    void remove_moved(Array& array, std::vector<std::uint32_t>& places) {
        std::vector<std::uint32_t> in_several;
        for (const std::uint32_t number : array.elements.start()) {
            if (places[number] > 1) in_several.push_back(number);
        }
        if (in_several.empty()) return;
        sort_unique(in_several);
        const std::vector<std::uint32_t> moved = moved_away_from(*array.own, in_several);
        if (moved.empty()) return;
        for (const std::uint32_t number : moved) --places[number];  // more than one, so one is left
        std::vector<std::uint32_t> kept = array.elements.start();
        std::erase_if(kept, [&](std::uint32_t number) { return std::ranges::binary_search(moved, number); });
        array.elements.start_with(std::move(kept));
    }

    // Those of the elements (ascending) that another leaf of the list's document no longer lists, though its last
    // common revision with the winner does. Leaves with one such revision are looked at together, and those of one
    // content once, so that many of either cost no more than their lists.
    std::vector<std::uint32_t> moved_away_from(const OrderingList& winning,
                                               const std::vector<std::uint32_t>& elements) {
        struct Leafs {
            std::uint32_t count = 0;
            std::map<const std::uint32_t*, std::uint32_t> by_content;
        };
        const std::vector<OrderingList>& leafs = lists_[winning.instance].other_leafs;
        const auto by_document = [](const OrderingList& a, const OrderingList& b) { return a.document < b.document; };
        const auto [first, last] = std::equal_range(leafs.begin(), leafs.end(), winning, by_document);
        if (first == last) return {};
        const std::vector<std::uint32_t> common = last_common_with_winning(index_.document(winning.document));
        std::map<std::uint32_t, Leafs> leafs_by_base;
        std::map<const std::uint32_t*, std::vector<std::uint32_t>> listed;  // by content; positions in `elements`
        const auto listed_by = [&](const OrderingList& list) -> const std::vector<std::uint32_t>& {
            const auto [entry, is_new] = listed.try_emplace(list.elements.data());
            for (const std::uint32_t number : is_new ? list.elements : std::span<const std::uint32_t>{}) {
                const auto at = std::ranges::lower_bound(elements, number);
                if (at == elements.end() || *at != number) continue;
                entry->second.push_back(static_cast<std::uint32_t>(at - elements.begin()));
            }
            if (is_new) sort_unique(entry->second);
            return entry->second;
        };
        for (const OrderingList& leaf : std::span(first, last)) {
            if (common[leaf.revision] == no_entry) continue;
            Leafs& group = leafs_by_base[common[leaf.revision]];
            ++group.count;
            ++group.by_content[leaf.elements.data()];
            (void)listed_by(leaf);
        }

        std::vector<bool> is_moved(elements.size());
        std::vector<std::uint32_t> holders(elements.size());
        for (const auto& [base, group] : leafs_by_base) {
            const auto list = reader_.read(winning.document, base);
            if (!list) continue;
            const std::vector<std::uint32_t>& before = listed_by(*list);
            for (const std::uint32_t at : before) holders[at] = 0;
            for (const auto& [content, count] : group.by_content) {
                for (const std::uint32_t at : listed.at(content)) holders[at] += count;
            }
            for (const std::uint32_t at : before) {
                if (holders[at] < group.count) is_moved[at] = true;
            }
        }
        std::vector<std::uint32_t> moved;
        for (std::size_t at = 0; at < elements.size(); ++at) {
            if (is_moved[at]) moved.push_back(elements[at]);
        }
        return moved;
    }

    // The content of an older revision may still refer to an array that is not shown now; it gets its first list as it
    // is.
    static void keep_unshown(Array& array, const OrderingList& list) {
        if (array.own == nullptr && array.elements.start().empty()) {
            array.elements.start_with({list.elements.begin(), list.elements.end()});
        }
    }

    // Adds what nothing has placed yet, each element once.
    void add_unplaced(const OrderingList& list, std::uint32_t round) {
        Array& array = arrays_[list.domain];
        if (list.instance == instance_id_ && array.own_document == nullptr) {
            array.own_document = &index_.document(list.document);
        }
        if (!array.is_shown) return keep_unshown(array, list);
        if (!added_.insert(list.elements.data()).second) return;
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
                Array& array = arrays_[list.domain];
                if (!array.is_shown) {
                    keep_unshown(array, list);
                    continue;
                }
                if (!added_.insert(list.elements.data()).second) continue;
                array.elements.add_from(
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

    // The lists that have one of them, newest first, own ones before others; of equal contents only the first.
    std::vector<OrderingList> older_lists_with(const std::vector<bool>& lost) {
        std::vector<OrderingList> lists;
        for (std::uint32_t number = 0; number < index_.size(); ++number) {
            if (!has_ordering_id(index_.id(number))) continue;
            const auto revisions = index_.document(number).revisions();
            for (std::uint32_t at = 0; at < revisions.size(); ++at) {
                if (const auto list = reader_.read(number, at)) lists.push_back(*list);
            }
        }
        // The documents stand in ascending order of id already.
        const auto rank = [&](const OrderingList& list) {
            const std::uint32_t generation = index_.document(list.document).revisions()[list.revision].index;
            return std::tuple(list.instance != instance_id_, no_entry - generation, list.document, list.revision);
        };
        std::ranges::sort(lists, {}, rank);
        std::unordered_set<const std::uint32_t*> seen;
        std::erase_if(lists, [&](const OrderingList& list) {
            return !arrays_[list.domain].is_shown || !seen.insert(list.elements.data()).second ||
                   std::ranges::none_of(list.elements, [&](std::uint32_t element) { return lost[element]; });
        });
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
    OrderingLists reader_;
    std::map<std::string_view, InstanceLists> lists_;  // by instance
    std::map<std::string_view, Array> arrays_;         // by domain
    std::vector<std::uint32_t> placed_in_round_;       // by document number
    std::unordered_set<const std::uint32_t*> added_;   // contents whose elements are all placed
};

}  // namespace

ElementOrder::ElementOrder(const DocumentIndex& index, std::string_view instance_id) {
    Reconciliation reconciliation(index, instance_id);
    reconciliation.run();
    for (auto& [domain, array] : reconciliation.arrays()) {
        const auto entry = elements_.emplace(domain, std::move(array.elements).finish()).first;
        const bool stands =
            !array.is_shown ||
            (array.own != nullptr ? array.own->complete && std::ranges::equal(array.own->elements, entry->second)
                                  : entry->second.empty());
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
            const std::string_view id =
                document != nullptr ? arena.copy(document->id()) : arena.copy(ordering_id(instance_id, domain, hasher));
            documents.push_back({id, arena.copy(content.view())});
        }
        if (!documents.empty()) result = store_documents(result, documents, Unproduced::keep, hasher);
    }
    return result;
}

}  // namespace libzentadbpp
