#include "contents/ordering_lists.h"

#include <algorithm>
#include <numeric>

namespace libzentadbpp {

OrderingLists::OrderingLists(const DocumentIndex& index, const OrderingLists& former, const Renumbering& documents)
    : index_(&index) {
    NumberSet seen;  // documents may share a content
    const auto [first, end] = index.ordering_ids();
    for (std::uint32_t number = first; number < end; ++number) {
        const std::uint32_t before = documents.if_unchanged(number);
        const OrderingContent* const content = index.ordering(number);
        if (before == Renumbering::none || content == nullptr || !seen.insert(index.winning_number(number))) continue;
        const ListContent* const* const known = former.lists_.find(former.index_->winning_number(before));
        if (known == nullptr || *known == nullptr || !(*known)->complete) continue;
        elements_.clear();
        for (const std::uint32_t element : (*known)->elements) elements_.push_back(documents.now(element));
        const auto is_live = [&](std::uint32_t element) { return index.is_live(element); };
        if (!std::ranges::all_of(elements_, is_live)) continue;
        lists_[index.winning_number(number)] = add_with_elements(*content, true);
    }
}

std::optional<OrderingList> OrderingLists::read(std::uint32_t document, std::uint32_t revision) {
    const auto content = index_->content(document, revision);
    if (!content) return std::nullopt;
    const ListContent*& list = lists_[content->number];
    if (list == nullptr) {
        const auto read = read_ordering_content(content->text, arena_);
        list = read ? add(*read) : &not_a_list_;
    }
    if (list == &not_a_list_) return std::nullopt;
    return OrderingList{document, revision, list};
}

OrderingList OrderingLists::read_winning(std::uint32_t document, const OrderingContent& content) {
    const ListContent*& list = lists_[index_->winning_number(document)];
    if (list == nullptr) list = add(content);
    return {document, index_->document(document).winning_position(), list};
}

std::vector<std::uint32_t> OrderingLists::instance_ranks() const {
    std::vector<std::uint32_t> ordered(instances_.size());
    std::iota(ordered.begin(), ordered.end(), 0);
    std::ranges::sort(ordered, {}, [&](std::uint32_t number) { return instances_.text(number); });
    std::vector<std::uint32_t> ranks(ordered.size());
    for (std::uint32_t rank = 0; rank < ordered.size(); ++rank) ranks[ordered[rank]] = rank;
    return ranks;
}

const ListContent* OrderingLists::add(const OrderingContent& content) {
    bool complete = true;
    elements_.clear();
    std::uint32_t guess = 0;  // elements are often in the order of their ids
    visit_listed_ids(content.ids, [&](std::optional<std::string_view> id) {
        const auto number = id ? index_->find(*id, guess) : std::nullopt;
        if (number && index_->is_live(*number)) {
            elements_.push_back(*number);
            guess = *number + 1;
        } else {
            complete = false;
        }
    });
    return add_with_elements(content, complete);
}

const ListContent* OrderingLists::add_with_elements(const OrderingContent& content, bool complete) {
    ListContent& list = arena_.make<ListContent>(1).front();
    list = {count_++, number_of(content.instance), content.domain,
            arena_.copy(std::span<const std::uint32_t>(elements_)), complete};
    return &list;
}

void mark_listed_elements(const DocumentIndex& index, std::vector<bool>& listed) {
    OrderingLists lists(index);
    NumberSet marked;
    const auto [first, end] = index.ordering_ids();
    for (std::uint32_t number = first; number < end; ++number) {
        const OrderingContent* content = index.ordering(number);
        if (content == nullptr || !marked.insert(index.winning_number(number))) continue;
        for (const std::uint32_t element : lists.read_winning(number, *content).content->elements) {
            listed[element] = true;
        }
    }
}

}  // namespace libzentadbpp
