#include "documents/ordering_lists.h"

#include <unordered_set>

namespace libzentadbpp {

std::optional<OrderingList> OrderingLists::read(std::uint32_t document, std::uint32_t revision) {
    constexpr std::size_t cheap_to_repeat = 256;
    const MultiVersionDocument& tree = index_->document(document);
    const auto text = tree.has_winning() && revision == tree.winning_position()
                          ? index_->winning_content(document)
                          : index_->storage().data().find(tree.revisions()[revision].datahash());
    if (!text) return std::nullopt;
    Content content;
    if (text->size() <= cheap_to_repeat) {
        content = parse(*text);
    } else {
        const auto [entry, is_new] = long_contents_.try_emplace(text->data());
        if (is_new) entry->second = parse(*text);
        content = entry->second;
    }
    if (!content.is_list) return std::nullopt;
    return OrderingList{document,         revision,         content.instance, content.domain,
                        content.elements, content.complete, text->data()};
}

OrderingLists::Content OrderingLists::parse(std::string_view text) {
    Content content;
    bool has_elements = false;
    const char* const end = text.data() + text.size();
    const char* at = text.data() + 1;
    while (*at != '}') {
        if (*at == ',') at += 2;
        const char* const key_end = written_string_end(at, end);
        const std::string_view key = inside_quotes({at, static_cast<std::size_t>(key_end - at)});
        const char* const value = key_end + 2;
        if (key == vocabulary::ordering_ids_key && *value == '[') {
            has_elements = true;
            at = parse_elements(value, end, content);
            continue;
        }
        at = written_value_end(value, end);
        if (*value != '"') continue;
        const DecodedString string(inside_quotes({value, static_cast<std::size_t>(at - value)}));
        if (key == vocabulary::ordering_domain_key) content.domain = string.text_in(arena_);
        if (key == vocabulary::ordering_instance_key) content.instance = string.text_in(arena_);
    }
    content.is_list = has_elements && content.domain.data() != nullptr && content.instance.data() != nullptr;
    return content;
}

const char* OrderingLists::parse_elements(const char* at, const char* end, Content& content) {
    elements_.clear();
    std::uint32_t guess = 0;  // elements often stand in the order of their ids
    for (++at; *at != ']';) {
        if (*at == ',') at += 2;
        const char* const element = at;
        at = written_value_end(at, end);
        std::optional<std::uint32_t> number;
        if (*element == '"') {
            const DecodedString id(inside_quotes({element, static_cast<std::size_t>(at - element)}));
            number = index_->find(id.text(), guess);
        }
        if (number && index_->is_live(*number)) {
            elements_.push_back(*number);
            guess = *number + 1;
        } else {
            content.complete = false;
        }
    }
    content.elements = arena_.copy(std::span<const std::uint32_t>(elements_));
    return at + 1;
}

NumberRange ordering_documents(const DocumentIndex& index) {
    const auto first_from = [&](std::string_view prefix, bool behind) {
        std::uint32_t low = 0;
        for (auto left = static_cast<std::uint32_t>(index.size()); left > 0;) {
            const std::uint32_t half = left / 2;
            const std::string_view id = index.id(low + half).substr(0, prefix.size());
            if (id < prefix || (behind && id == prefix)) {
                low += half + 1;
                left -= half + 1;
            } else {
                left = half;
            }
        }
        return low;
    };
    return {first_from(ordering_id_prefix, false), first_from(ordering_id_prefix, true)};
}

void mark_listed_elements(const DocumentIndex& index, std::vector<bool>& listed) {
    OrderingLists lists(index);
    std::unordered_set<const char*> marked;
    const auto [first, end] = ordering_documents(index);
    for (std::uint32_t number = first; number < end; ++number) {
        if (!index.is_live(number)) continue;
        const auto list = lists.read(number, index.document(number).winning_position());
        if (!list || !marked.insert(list->content).second) continue;
        for (const std::uint32_t element : list->elements) listed[element] = true;
    }
}

std::vector<std::uint32_t> last_common_with_winning(const MultiVersionDocument& document) {
    const auto revisions = document.revisions();
    std::vector<bool> on_winning_path(revisions.size());
    for (std::uint32_t at = document.winning_position(); at != no_entry; at = revisions[at].parent) {
        on_winning_path[at] = true;
    }
    std::vector<std::uint32_t> common(revisions.size(), no_entry);
    for (std::uint32_t at = 0; at < revisions.size(); ++at) {
        if (on_winning_path[at]) {
            common[at] = at;
        } else if (revisions[at].parent != no_entry) {
            common[at] = common[revisions[at].parent];
        }
    }
    return common;
}

}  // namespace libzentadbpp
