#include "transformation/lost_recovery.h"

#include <algorithm>
#include <map>
#include <queue>
#include <set>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "memory/by_number.h"
#include "transformation/list_branches.h"
#include "transformation/lost_members.h"
#include "transformation/shown_data.h"
#include "transformation/taken_places.h"

namespace libzentadbpp {

class LostRecovery {
   public:
    explicit LostRecovery(ShownData& data)
        : data_(&data),
          index_(data.index_),
          own_(&data.own_),
          instance_(data.reader_.number_of(data.instance_)),
          decided_by_(index_->size(), nobody),
          places_(*index_, data.domains_, data.arena_),
          members_(*index_) {}

    void run() {
        collect_other_lists();
        // Lists of the instance that decided where a document is place it in arrays that are reached later, too.
        for (bool any = true; any;) {
            any = add_other_lists() || (!all_is_reached() && (give_back_from_list() || give_back_member()));
        }
        for (auto& [document, content] : members_.contents(data_->arena_)) {
            data_->restored_.emplace(document, content);
            data_->references_.replace(document, content);
        }
    }

   private:
    static constexpr std::uint32_t nobody = 0xffffffff;

    [[nodiscard]] bool all_is_reached() const {
        return data_->reached_documents_ == data_->references_.live_documents();
    }
    [[nodiscard]] bool is_lost(std::uint32_t number) const {
        return !data_->is_reached_[number] && index_->is_live_data(number);
    }
    [[nodiscard]] bool is_array_reached(std::uint32_t domain) const {
        return domain < data_->arrays_.size() && data_->arrays_[domain].is_reached;
    }

    // --- Lists that are not merged into those of arrays ---

    struct OtherList {
        OrderingList list;
        bool is_winning;
    };
    struct Instance {
        std::vector<OtherList> lists;  // by document, then revision
        std::vector<std::size_t> due;
    };
    struct Waiting {
        std::uint32_t instance;
        std::size_t list;
    };

    void collect_other_lists() {
        std::unordered_map<std::uint32_t, std::vector<OtherList>> foreign;
        std::vector<OtherList> mine;
        for (const OwnLists::Leaf& leaf : own_->leaves()) {
            if (!own_->is_part(leaf)) mine.push_back({leaf.list, leaf.is_winning});
        }
        if (own_->any_foreign()) {
            visit_open_lists(*index_, data_->reader_, [&](const OrderingList& list, bool is_winning) {
                if (list.content->instance == instance_) return;
                foreign[list.content->instance].push_back({list, is_winning});
            });
        }
        add_instance(std::move(mine));
        std::map<std::uint32_t, std::vector<OtherList>> in_order;
        const std::vector<std::uint32_t> ranks = data_->reader_.instance_ranks();
        for (auto& [instance, lists] : foreign) in_order.emplace(ranks[instance], std::move(lists));
        for (auto& [rank, lists] : in_order) add_instance(std::move(lists));
    }

    void add_instance(std::vector<OtherList> lists) {
        const auto number = static_cast<std::uint32_t>(instances_.size());
        Instance& instance = instances_.emplace_back();
        instance.lists = std::move(lists);
        // Winning lists come first.
        std::ranges::stable_sort(instance.lists, {}, [](const OtherList& other) { return !other.is_winning; });
        for (std::size_t at = 0; at < instance.lists.size(); ++at) {
            waiting_[data_->domains_.add(*instance.lists[at].list.content)].push_back({number, at});
        }
    }

    bool add_other_lists() {
        for (; arrays_seen_ < data_->reached_arrays_.size(); ++arrays_seen_) {
            const auto found = waiting_.find(data_->reached_arrays_[arrays_seen_]);
            if (found == waiting_.end()) continue;
            for (const auto& [instance, list] : found->second) {
                instances_[instance].due.push_back(list);
                due_instances_.insert(instance);
            }
            waiting_.erase(found);
        }
        while (!due_instances_.empty()) {
            const std::uint32_t number = *due_instances_.begin();
            due_instances_.erase(due_instances_.begin());
            Instance& instance = instances_[number];
            std::ranges::sort(instance.due);
            std::vector<std::uint32_t> added;
            for (const std::size_t at : std::exchange(instance.due, {})) {
                add_list(instance.lists[at], number, added);
            }
            for (const std::uint32_t document : added) data_->reach(document);
            if (!added.empty()) return true;
        }
        return false;
    }

    void add_list(const OtherList& other, std::uint32_t instance, std::vector<std::uint32_t>& added) {
        const ListContent& list = *other.list.content;
        if (!looked_at_.insert(list.number)) return;
        const auto may_add = [&](std::uint32_t number) {
            if (decided_by_[number] != nobody) return other.is_winning && decided_by_[number] == instance;
            return !data_->is_reached_[number];
        };
        if (std::ranges::none_of(list.elements, may_add)) return;
        data_->grow(data_->domains_.add(list)).add_from(list.elements, may_add, [&](std::uint32_t number) {
            decided_by_[number] = instance;
            added.push_back(number);
        });
    }

    // --- What was lost ---

    // Before others, from front to back: own lists; open ones of arrays that are not reached; the latest; the order of
    // documents and revisions.
    using Rank = std::tuple<bool, bool, std::uint32_t, std::uint32_t, std::uint32_t>;
    struct OldList {
        OrderingList list;
        std::uint32_t domain;
        bool is_open;
    };
    [[nodiscard]] Rank rank_of(const OldList& old) const {
        const std::uint32_t generation = index_->document(old.list.document).revisions()[old.list.revision].index;
        const bool is_hidden = old.is_open && !is_array_reached(old.domain);
        return {old.list.content->instance != instance_, !is_hidden, no_entry - generation, old.list.document,
                old.list.revision};
    }

    void collect_old_lists() {
        are_old_lists_collected_ = true;
        NumberSet met;  // lists, which revisions may share
        NumberSet has_lost;
        const auto [first, end] = index_->ordering_ids();
        for (std::uint32_t number = first; number < end; ++number) {
            if (!index_->is_ordering(number)) continue;
            const MultiVersionDocument& document = index_->document(number);
            std::vector<std::uint32_t> leaves = document.leaves_or_none();
            if (first_is_leaf(document)) leaves.insert(leaves.begin(), 0);
            for (std::uint32_t at = 0; at < document.revisions().size(); ++at) {
                const auto list = data_->reader_.read(number, at);
                if (!list) continue;
                const ListContent& content = *list->content;
                if (met.insert(content.number) &&
                    std::ranges::any_of(content.elements, [&](std::uint32_t id) { return is_lost(id); })) {
                    has_lost.insert(content.number);
                }
                if (!has_lost.contains(content.number)) continue;
                const std::uint32_t domain = data_->domains_.add(content);
                old_lists_by_domain_[domain].push_back(old_lists_.size());
                old_lists_.push_back({*list, domain, std::ranges::binary_search(leaves, at)});
            }
        }
        for (std::uint32_t domain : data_->reached_arrays_) make_due(domain);
        arrays_made_due_ = data_->reached_arrays_.size();
    }

    // The lists of an array whose elements have somewhere to come back to.
    void make_due(std::uint32_t domain) {
        const auto found = old_lists_by_domain_.find(domain);
        if (found == old_lists_by_domain_.end()) return;
        for (const std::size_t at : found->second) due_.emplace(rank_of(old_lists_[at]), at);
    }

    bool give_back_from_list() {
        if (!are_old_lists_collected_) collect_old_lists();
        if (old_lists_.empty()) return false;
        for (; arrays_made_due_ < data_->reached_arrays_.size(); ++arrays_made_due_) {
            make_due(data_->reached_arrays_[arrays_made_due_]);
        }
        for (; documents_looked_through_ < data_->reading_order_.size(); ++documents_looked_through_) {
            places_.look_through(data_->reading_order_[documents_looked_through_]);
        }
        for (; places_made_due_ < places_.taken().size(); ++places_made_due_)
            make_due(places_.taken()[places_made_due_]);
        while (!due_.empty()) {
            const auto [rank, at] = due_.top();
            due_.pop();
            const OldList& old = old_lists_[at];
            // Once the array is reached, the list is due again behind those of arrays that are not.
            if (rank != rank_of(old) || exhausted_.contains(old.list.content->number)) continue;
            if (give_back(old)) return true;
            exhausted_.insert(old.list.content->number);
        }
        return false;
    }

    bool give_back(const OldList& old) {
        const std::uint32_t target = is_array_reached(old.domain) ? old.domain : places_.successor(old.domain);
        const std::span<const std::uint32_t> elements = old.list.content->elements;
        std::vector<std::uint32_t> added;
        std::unordered_set<std::uint32_t> seen;
        if (std::ranges::none_of(elements, [&](std::uint32_t number) { return is_lost(number); })) return false;
        data_->grow(target).add_from(
            elements, [&](std::uint32_t number) { return is_lost(number) && seen.insert(number).second; },
            [&](std::uint32_t number) { added.push_back(number); });
        for (const std::uint32_t number : added) data_->reach(number);
        return !added.empty();
    }

    // --- Lost members ---

    bool give_back_member() {
        for (; documents_offered_ < data_->reading_order_.size(); ++documents_offered_) {
            members_.offer(data_->reading_order_[documents_offered_]);
        }
        const auto found = members_.next([&](std::uint32_t number) { return is_lost(number); });
        if (!found) return false;
        data_->reach(*found);
        return true;
    }

    ShownData* data_;
    const DocumentIndex* index_;
    OwnLists* own_;
    std::uint32_t instance_;

    std::vector<Instance> instances_;                                  // the configured one first, others ascending
    std::unordered_map<std::uint32_t, std::vector<Waiting>> waiting_;  // by domain: until the array is reached
    std::set<std::uint32_t> due_instances_;
    std::vector<std::uint32_t> decided_by_;  // by document: the instance that decides where it is
    NumberSet looked_at_;                    // lists
    std::size_t arrays_seen_ = 0;

    bool are_old_lists_collected_ = false;
    std::vector<OldList> old_lists_;  // those that had something that is lost
    std::unordered_map<std::uint32_t, std::vector<std::size_t>> old_lists_by_domain_;
    using Due = std::pair<Rank, std::size_t>;
    std::priority_queue<Due, std::vector<Due>, std::greater<>> due_;
    NumberSet exhausted_;  // lists with nothing lost
    TakenPlaces places_;
    std::size_t arrays_made_due_ = 0;
    std::size_t documents_looked_through_ = 0;
    std::size_t places_made_due_ = 0;

    LostMembers members_;
    std::size_t documents_offered_ = 0;
};

void recover_lost(ShownData& data) { LostRecovery(data).run(); }

}  // namespace libzentadbpp
