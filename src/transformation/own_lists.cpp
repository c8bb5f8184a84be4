#include "transformation/own_lists.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <utility>

#include "transformation/list_branches.h"
#include "transformation/list_merge.h"

namespace libzentadbpp {

OwnLists::OwnLists(const DocumentIndex& index, std::string_view instance, OrderingLists& reader, DomainTable& domains,
                   Arena& arena)
    : index_(&index),
      instance_(instance),
      reader_(&reader),
      instance_number_(reader.number_of(instance)),
      domains_(&domains),
      arena_(&arena),
      work_(index.content_bytes()) {
    collect();
    merge_branches();
}

void OwnLists::set(std::uint32_t domain, std::span<const std::uint32_t> elements) {
    lists_[domain].elements = elements;
    lists_[domain].is_stored = false;
}

// Lists of other instances need not be read, but where they share a long instance that takes less.
bool OwnLists::is_own(std::uint32_t document, const OrderingContent& winning) {
    constexpr std::size_t cheap_to_repeat = 256;
    if (winning.instance.size() <= cheap_to_repeat) return winning.instance == instance_;
    return reader_->read_winning(document, winning).content->instance == instance_number_;
}

void OwnLists::collect() {
    const auto [first, end] = index_->ordering_ids();
    leaves_.reserve(end - first);
    for (std::uint32_t number = first; number < end; ++number) {
        const MultiVersionDocument& document = index_->document(number);
        if (!index_->is_ordering(number) || !document.has_winning()) continue;
        if (!has_other_leaves(document)) {
            const OrderingContent* content = index_->ordering(number);
            if (content == nullptr) continue;
            if (is_own(number, *content)) {
                add(reader_->read_winning(number, *content), true, false);
            } else {
                any_foreign_ = true;
            }
            continue;
        }
        std::vector<std::uint32_t> leaves = other_leaves(document);
        leaves.insert(std::ranges::upper_bound(leaves, document.winning_position()), document.winning_position());
        const std::size_t before = leaves_.size();
        for (const std::uint32_t leaf : leaves) {
            if (document.revisions()[leaf].is_deleted()) continue;
            const auto list = reader_->read(number, leaf);
            if (!list) continue;
            if (list->content->instance == instance_number_) {
                add(*list, leaf == document.winning_position(), true);
            } else {
                any_foreign_ = true;
            }
        }
        if (leaves_.size() - before > 1) branched_.push_back(number);
    }
}

void OwnLists::add(const OrderingList& list, bool is_winning, bool has_other_leaves) {
    if (listed_by_.empty()) listed_by_.resize(index_->size(), none);
    if (!any_in_several_ && is_new_use(list, 2)) {
        for (const std::uint32_t number : list.content->elements) {
            any_in_several_ = any_in_several_ || (listed_by_[number] != none && listed_by_[number] != list.document);
            listed_by_[number] = list.document;
        }
    }
    const std::uint32_t domain = domains_->add(*list.content);
    if (domain >= lists_.size()) lists_.resize(domain + 1);
    List& own = lists_[domain];
    if (own.document == none) own = {list.document, list.content->elements};
    own.has_other_leaves = own.has_other_leaves || (has_other_leaves && own.document == list.document);
    leaves_.push_back({list, domain, is_winning});
}

std::span<const OwnLists::Leaf> OwnLists::leaves_of(std::uint32_t document) const {
    const auto document_of = [](const Leaf& leaf) { return leaf.list.document; };
    const auto first = std::ranges::lower_bound(leaves_, document, {}, document_of);
    const auto last = std::ranges::upper_bound(leaves_, document, {}, document_of);
    return std::span(leaves_).subspan(static_cast<std::size_t>(first - leaves_.begin()),
                                      static_cast<std::size_t>(last - first));
}

// Each document is merged by itself: no result depends on another.
void OwnLists::merge_branches() {
    for (const std::uint32_t document : branched_) merge_branches_of(document);
    for (const Leaf& leaf : leaves_) {
        List& own = lists_[leaf.domain];
        if (!leaf.is_winning || own.document != leaf.list.document) continue;
        const ListContent& list = *leaf.list.content;
        const bool is_same = own.elements.data() == list.elements.data();
        own.is_stored = list.complete && (is_same || std::ranges::equal(own.elements, list.elements));
    }
}

// All leaves of a document that copies wrote have one domain. In any other document the first domain is merged, and
// others as long as going through the revisions again does not take too much.
void OwnLists::merge_branches_of(std::uint32_t document) {
    std::map<std::uint32_t, std::vector<std::uint32_t>> revisions;  // by domain
    for (const Leaf& leaf : leaves_of(document)) {
        if (lists_[leaf.domain].document == document) revisions[leaf.domain].push_back(leaf.list.revision);
    }
    bool is_first = true;
    for (const auto& [domain, leaves] : revisions) {
        if (leaves.size() == 1) continue;
        if (!std::exchange(is_first, false) && !work_.take(index_->document(document).revisions().size())) {
            for (const std::uint32_t leaf : std::span(leaves).subspan(1)) unmerged_.insert({document, leaf});
            continue;
        }
        const std::vector<std::uint32_t> elements =
            merged(document, leaves, [&](std::uint32_t number) { return is_listed_beside(number, document); });
        lists_[domain].elements = arena_->copy(std::span<const std::uint32_t>(elements));
    }
}

std::vector<std::uint32_t> OwnLists::merged(std::uint32_t document, std::uint32_t domain,
                                            const std::function<bool(std::uint32_t)>& is_elsewhere) {
    std::vector<std::uint32_t> revisions;
    for (const Leaf& leaf : leaves_of(document)) {
        if (leaf.domain == domain) revisions.push_back(leaf.list.revision);
    }
    return merged(document, revisions, is_elsewhere);
}

std::vector<std::uint32_t> OwnLists::merged(std::uint32_t document, std::span<const std::uint32_t> leaves,
                                            const std::function<bool(std::uint32_t)>& is_elsewhere) {
    const ListBranches branches = list_branches(index_->document(document), leaves);
    const auto elements_at = [&](std::uint32_t revision) -> std::optional<std::span<const std::uint32_t>> {
        if (revision == no_entry) return std::span<const std::uint32_t>{};
        const auto list = reader_->read(document, revision);
        return list ? std::optional(list->content->elements) : std::nullopt;
    };
    MergedList list(*elements_at(branches.base));
    // Those beyond the limit add what they list and move nothing.
    for (const auto& [leaf, start] : branches.others) {
        const auto began = elements_at(start);
        if (!began || !work_.take(0)) {
            unmerged_.insert({document, leaf});
            continue;
        }
        const std::size_t before = list.work();
        list.merge(*began, *elements_at(leaf), is_elsewhere);
        work_.take(list.work() - before);
    }
    return list.numbers();
}

std::unordered_set<std::uint32_t> OwnLists::ever_listed(std::uint32_t document) {
    std::unordered_set<std::uint32_t> listed;
    std::unordered_set<std::uint32_t> seen;  // numbers of lists
    for (std::uint32_t at = 0; at < index_->document(document).revisions().size(); ++at) {
        const auto list = reader_->read(document, at);
        if (!list || !seen.insert(list->content->number).second) continue;
        if (!work_.take(list->content->elements.size())) return {};
        listed.insert(list->content->elements.begin(), list->content->elements.end());
    }
    return listed;
}

std::unordered_set<std::uint32_t> OwnLists::dropped(std::uint32_t document) {
    std::unordered_set<std::uint32_t> dropped = ever_listed(document);
    if (dropped.empty()) return dropped;
    std::unordered_map<std::uint32_t, std::uint32_t> holders;  // how many different leaves have it
    std::unordered_set<std::uint32_t> leaves;                  // numbers of lists
    for (const Leaf& leaf : leaves_of(document)) {
        const ListContent& list = *leaf.list.content;
        if (!leaves.insert(list.number).second) continue;
        std::unordered_set<std::uint32_t> in_leaf(list.elements.begin(), list.elements.end());
        for (const std::uint32_t number : in_leaf) ++holders[number];
    }
    std::erase_if(dropped, [&](std::uint32_t number) {
        const auto found = holders.find(number);
        return found != holders.end() && found->second == leaves.size();
    });
    return dropped;
}

std::span<const std::uint32_t> OwnLists::listing(std::uint32_t number) {
    if (listing_ends_.empty()) collect_listing();
    const std::size_t first = number == 0 ? 0 : listing_ends_[number - 1];
    return std::span(listing_).subspan(first, listing_ends_[number] - first);
}

bool OwnLists::is_listed_beside(std::uint32_t number, std::uint32_t document, std::uint32_t other) {
    return std::ranges::any_of(listing(number),
                               [&](std::uint32_t listing) { return listing != document && listing != other; });
}

// Leaves may share a long list, of which the first few documents say enough.
bool OwnLists::is_new_use(const OrderingList& list, std::uint32_t most) {
    Uses& uses = uses_[list.content->number];
    if (uses.count != 0 && (uses.last == list.document || uses.count == most)) return false;
    uses = {list.document, uses.count + 1};
    return true;
}

// Calls `visit(number, document)` for each document that an own document lists, once for each of these.
template <class Visit>
void OwnLists::visit_listing(const Visit& visit) {
    uses_ = {};
    std::vector<std::uint32_t> last(index_->size(), none);
    for (const Leaf& leaf : leaves_) {
        if (!is_new_use(leaf.list, 3)) continue;
        for (const std::uint32_t number : leaf.list.content->elements) {
            if (std::exchange(last[number], leaf.list.document) != leaf.list.document) {
                visit(number, leaf.list.document);
            }
        }
    }
}

void OwnLists::collect_listing() {
    std::vector<std::size_t> next(index_->size() + 1);
    visit_listing([&](std::uint32_t number, std::uint32_t) { ++next[number + 1]; });
    std::partial_sum(next.begin(), next.end(), next.begin());
    listing_.resize(next.back());
    visit_listing([&](std::uint32_t number, std::uint32_t document) { listing_[next[number]++] = document; });
    listing_ends_ = std::move(next);
}

}  // namespace libzentadbpp
