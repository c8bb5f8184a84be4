#include "contents/ordering_lists.h"

#include <unordered_set>

namespace libzentadbpp {

namespace {
constexpr std::size_t cheap_to_repeat = 256;
}

std::optional<OrderingList> OrderingLists::read(std::uint32_t document, std::uint32_t revision) {
    const MultiVersionDocument& tree = index_->document(document);
    const bool is_winning = tree.has_winning() && revision == tree.winning_position();
    const auto text = is_winning ? index_->winning_content(document)
                                 : index_->storage().data().find(tree.revisions()[revision].datahash());
    if (!text) return std::nullopt;
    Known known;
    if (text->size() <= cheap_to_repeat) {
        known = parse(*text);
    } else {
        const auto [entry, is_new] = long_contents_.try_emplace(text->data());
        if (is_new) entry->second = parse(*text);
        known = entry->second;
    }
    if (!known.content) return std::nullopt;
    return OrderingList{document,
                        revision,
                        known.content->instance,
                        known.content->domain,
                        known.elements.live,
                        known.elements.complete,
                        text->data()};
}

OrderingList OrderingLists::read_winning(std::uint32_t document, const OrderingContent& content) {
    const std::string_view text = *index_->winning_content(document);
    Elements elements;
    if (text.size() <= cheap_to_repeat) {
        elements = elements_of(content.ids);
    } else {
        const auto [entry, is_new] = long_contents_.try_emplace(text.data());
        if (is_new) entry->second = {content, elements_of(content.ids)};
        elements = entry->second.elements;
    }
    const std::uint32_t winning = index_->document(document).winning_position();
    return {document, winning, content.instance, content.domain, elements.live, elements.complete, text.data()};
}

OrderingLists::Known OrderingLists::parse(std::string_view text) {
    Known known{read_ordering_content(text, arena_), {}};
    if (known.content) known.elements = elements_of(known.content->ids);
    return known;
}

OrderingLists::Elements OrderingLists::elements_of(std::string_view ids) {
    Elements elements;
    elements_.clear();
    std::uint32_t guess = 0;  // elements often stand in the order of their ids
    visit_listed_ids(ids, [&](std::optional<std::string_view> id) {
        const auto number = id ? index_->find(*id, guess) : std::nullopt;
        if (number && index_->is_live(*number)) {
            elements_.push_back(*number);
            guess = *number + 1;
        } else {
            elements.complete = false;
        }
    });
    elements.live = arena_.copy(std::span<const std::uint32_t>(elements_));
    return elements;
}

void mark_listed_elements(const DocumentIndex& index, std::vector<bool>& listed) {
    OrderingLists lists(index);
    std::unordered_set<const char*> marked;
    const auto [first, end] = index.ordering_ids();
    for (std::uint32_t number = first; number < end; ++number) {
        const OrderingContent* content = index.ordering(number);
        if (content == nullptr || !marked.insert(content->ids.data()).second) continue;
        for (const std::uint32_t element : lists.read_winning(number, *content).elements) listed[element] = true;
    }
}

}  // namespace libzentadbpp
