#include "transformation/ordering_reconciliation.h"

#include <algorithm>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <tuple>
#include <unordered_set>
#include <utility>

#include "common/sort_unique.h"
#include "common/text_order.h"
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
    std::string_view domain;
    bool is_shown = false;                               // a live document refers to it
    std::span<const std::uint32_t> start;                // what it holds before anything is added
    std::unique_ptr<ElementList> grown;                  // what it holds then, once something was
    const OrderingList* own = nullptr;                   // the configured instance's winning list
    const MultiVersionDocument* own_document = nullptr;  // also where only another of its revisions could be read

    template <class MayAdd, class Added>
    void add_from(std::span<const std::uint32_t> list, const MayAdd& may_add, const Added& added) {
        if (grown == nullptr) {
            if (std::ranges::none_of(list, may_add)) return;
            grown = std::make_unique<ElementList>(start);
        }
        grown->add_from(list, may_add, added);
    }
};

// Carries out the steps; each is a method, in their order.
class Reconciliation {
   public:
    Reconciliation(const DocumentIndex& index, std::string_view instance_id, OrderingLists& reader, TextTable& domains,
                   Arena& arena)
        : index_(index),
          instance_id_(instance_id),
          reader_(reader),
          domains_(domains),
          arena_(arena),
          placed_in_round_(index.size(), unplaced) {}

    void run() {
        collect_lists();
        collect_shown_arrays();
        place_own_winning_lists();
        add_other_lists();
        restore_lost();
    }

    [[nodiscard]] std::deque<Array>& arrays() { return arrays_; }

   private:
    static constexpr std::uint32_t unplaced = 0;
    static constexpr std::uint32_t own_round = 1;
    static constexpr std::size_t ahead = 8;

    Array& array_of(std::string_view domain) {
        const auto [number, is_new] = domains_.add(domain);
        if (is_new) arrays_.emplace_back().domain = domain;
        return arrays_[number];
    }

    InstanceLists& lists_of(std::string_view instance) {
        return instance == instance_id_ ? own_lists_ : other_lists_[instance];
    }

    void collect_lists() {
        const auto [first, end] = ordering_documents(index_);
        own_lists_.winning.reserve(end - first);
        for (std::uint32_t number = first; number < end; ++number) {
            index_.prefetch_document(number + ahead);
            const MultiVersionDocument& document = index_.document(number);
            if (!document.has_winning()) continue;
            const std::uint32_t winning = document.winning_position();
            if (auto list = reader_.read(number, winning)) lists_of(list->instance).winning.push_back(*list);
            if (document.revisions().size() == document.winning().index) continue;  // a single chain
            for (const std::uint32_t leaf : document.open_leafs()) {
                if (leaf == winning) continue;
                if (auto list = reader_.read(number, leaf)) lists_of(list->instance).other_leafs.push_back(*list);
            }
        }
        for (const OrderingList& list : own_lists_.winning) {
            Array& array = array_of(list.domain);
            if (array.own != nullptr) continue;  // a second one of this domain adds what is left, with the other lists
            array.own = &list;
            array.own_document = &index_.document(list.document);
            array.start = list.elements;
        }
    }

    // An array that nothing refers to any more shows nothing, so its lists place nothing: an element that stands in one
    // of them and nowhere else would be lost.
    void collect_shown_arrays() {
        // Once this is more than all contents hold, documents share some, and each is looked through once more at most.
        std::size_t looked_through = 0;
        std::unordered_set<const char*> again;
        for (std::uint32_t number = 0; number < index_.size(); ++number) {
            index_.prefetch_document(number + ahead);
            if (!index_.is_live(number) || has_ordering_id(index_.id(number))) continue;
            const auto content = index_.winning_content(number);
            if (!content) continue;
            looked_through += content->size();
            if (looked_through > index_.content_bytes() && !again.insert(content->data()).second) continue;
            visit_array_references(*content, [&](std::string_view domain) {
                const auto known = domains_.find(domain);
                (known ? arrays_[*known] : array_of(arena_.copy(domain))).is_shown = true;
            });
        }
    }

    void place_own_winning_lists() {
        bool any_in_several = false;
        std::vector<const Array*> first_array(index_.size());
        for (const Array& array : arrays_) {
            if (!array.is_shown) continue;
            for (const std::uint32_t number : array.start) {
                if (first_array[number] == nullptr) first_array[number] = &array;
                any_in_several = any_in_several || first_array[number] != &array;
                placed_in_round_[number] = own_round;
            }
        }
        if (any_in_several) settle_moves();
    }

    // An element that was moved between arrays on one copy, while the other copy rewrote the array that it left, stands
    // in both winning lists. The losing leaf of the array it left tells that it was moved away.
    void settle_moves() {
        std::vector<std::uint32_t> places(index_.size());
        std::vector<const Array*> last_array(index_.size());
        std::vector<Array*> shown;
        for (Array& array : arrays_) {
            if (!array.is_shown) continue;
            if (array.own != nullptr) shown.push_back(&array);
            for (const std::uint32_t number : array.start) {
                if (std::exchange(last_array[number], &array) != &array) ++places[number];
            }
        }
        std::ranges::sort(shown, std::greater(), &Array::domain);
        for (Array* array : shown) remove_moved(*array, places);
    }

    void remove_moved(Array& array, std::vector<std::uint32_t>& places) {
        std::vector<std::uint32_t> in_several;
        for (const std::uint32_t number : array.start) {
            if (places[number] > 1) in_several.push_back(number);
        }
        if (in_several.empty()) return;
        sort_unique(in_several);
        const std::vector<std::uint32_t> moved = moved_away_from(*array.own, in_several);
        if (moved.empty()) return;
        for (const std::uint32_t number : moved) --places[number];  // more than one, so one is left
        std::vector<std::uint32_t> kept(array.start.begin(), array.start.end());
        std::erase_if(kept, [&](std::uint32_t number) { return std::ranges::binary_search(moved, number); });
        array.start = arena_.copy(std::span<const std::uint32_t>(kept));
    }

    // Those of the elements (ascending) that another leaf of the list's document no longer lists, though its last
    // common revision with the winner does. Leaves with one such revision are looked at together, and those of one
    // content once, so that many of either cost no more than their lists.
    std::vector<std::uint32_t> moved_away_from(const OrderingList& winning,
                                               const std::vector<std::uint32_t>& elements) {
        struct Leafs {
            std::uint32_t count = 0;
            std::map<const char*, std::uint32_t> by_content;
        };
        const std::vector<OrderingList>& leafs = own_lists_.other_leafs;
        const auto by_document = [](const OrderingList& a, const OrderingList& b) { return a.document < b.document; };
        const auto [first, last] = std::equal_range(leafs.begin(), leafs.end(), winning, by_document);
        if (first == last) return {};
        const std::vector<std::uint32_t> common = last_common_with_winning(index_.document(winning.document));
        std::map<std::uint32_t, Leafs> leafs_by_base;
        std::map<const char*, std::vector<std::uint32_t>> listed;  // by content; positions in `elements`
        const auto listed_by = [&](const OrderingList& list) -> const std::vector<std::uint32_t>& {
            const auto [entry, is_new] = listed.try_emplace(list.content);
            for (const std::uint32_t number : is_new ? list.elements : std::span<const std::uint32_t>{}) {
                const auto at = std::ranges::lower_bound(elements, number);
                if (at == elements.end() || *at != number) continue;
                entry->second.push_back(static_cast<std::uint32_t>(at - elements.begin()));
            }
            if (is_new) sort_unique(entry->second);
            return entry->second;
        };
        for (const OrderingList& leaf : std::span(&*first, static_cast<std::size_t>(last - first))) {
            if (common[leaf.revision] == no_entry) continue;
            Leafs& group = leafs_by_base[common[leaf.revision]];
            ++group.count;
            ++group.by_content[leaf.content];
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
        if (array.own == nullptr && array.start.empty()) array.start = list.elements;
    }

    // Adds what nothing has placed yet, each element once.
    void add_unplaced(const OrderingList& list, std::uint32_t round) {
        Array& array = array_of(list.domain);
        if (list.instance == instance_id_ && array.own_document == nullptr) {
            array.own_document = &index_.document(list.document);
        }
        if (!array.is_shown) return keep_unshown(array, list);
        if (!added_.insert(list.content).second) return;
        array.add_from(
            list.elements, [&](std::uint32_t number) { return placed_in_round_[number] == unplaced; },
            [&](std::uint32_t number) { placed_in_round_[number] = round; });
    }

    void add_other_lists() {
        const auto is_second = [&](const OrderingList& list) { return array_of(list.domain).own != &list; };
        const bool any_second = std::ranges::any_of(own_lists_.winning, is_second);
        if (!any_second && own_lists_.other_leafs.empty() && other_lists_.empty()) return;
        for (const OrderingList& list : own_lists_.winning) {
            if (!is_second(list)) added_.insert(list.content);
        }
        for (const OrderingList& list : own_lists_.winning) {
            if (is_second(list)) add_unplaced(list, own_round);
        }
        for (const OrderingList& list : own_lists_.other_leafs) add_unplaced(list, own_round);

        std::uint32_t round = own_round;
        for (const auto& [instance, lists] : other_lists_) {
            ++round;
            // The first instance that lists an element decides where it stands: wherever its winning lists have it.
            for (const OrderingList& list : lists.winning) {
                Array& array = array_of(list.domain);
                if (!array.is_shown) {
                    keep_unshown(array, list);
                    continue;
                }
                if (!added_.insert(list.content).second) continue;
                array.add_from(
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
            if (placed_in_round_[number] != unplaced || !index_.is_live(number)) continue;
            lost[number] = !has_ordering_id(index_.id(number)) && index_.id(number) != index_.storage().root_or_empty();
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
        std::unordered_set<const char*> seen;
        std::erase_if(lists, [&](const OrderingList& list) {
            return !array_of(list.domain).is_shown || !seen.insert(list.content).second ||
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
            Array& array = array_of(list.domain);
            if (list.instance == instance_id_ && array.own_document == nullptr) {
                array.own_document = &index_.document(list.document);
            }
            array.add_from(
                list.elements, [&](std::uint32_t number) { return newest[number] == &list; }, [](std::uint32_t) {});
        }
    }

    const DocumentIndex& index_;
    std::string_view instance_id_;
    OrderingLists& reader_;
    TextTable& domains_;
    Arena& arena_;
    InstanceLists own_lists_;
    std::map<std::string_view, InstanceLists> other_lists_;  // by instance
    std::deque<Array> arrays_;                               // by number of the domain
    std::vector<std::uint32_t> placed_in_round_;             // by document number
    std::unordered_set<const char*> added_;                  // contents whose elements are all placed
};

}  // namespace

ElementOrder::ElementOrder(const DocumentIndex& index, std::string_view instance_id) : lists_(index) {
    const auto [first, end] = ordering_documents(index);
    domains_ = TextTable(end - first);
    Reconciliation reconciliation(index, instance_id, lists_, domains_, arena_);
    reconciliation.run();
    elements_.reserve(reconciliation.arrays().size());
    for (Array& array : reconciliation.arrays()) {
        elements_.push_back(array.grown == nullptr ? array.start : array.grown->finish(arena_));
        const bool stands =
            !array.is_shown ||
            (array.own != nullptr ? array.own->complete && std::ranges::equal(array.own->elements, elements_.back())
                                  : elements_.back().empty());
        if (!stands) outdated_.push_back({array.domain, array.own_document});
    }
}

}  // namespace libzentadbpp
