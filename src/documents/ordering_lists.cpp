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
    return OrderingList{document, revision, content.instance, content.domain, content.elements, content.complete};
}

OrderingLists::Content OrderingLists::parse(std::string_view text) {
    Content content;
    std::string_view domain;
    std::string_view instance;
    std::string_view ids;
    WrittenMember member;
    for (WrittenObject members(text); members.next(member);) {
        if (member.key == vocabulary::ordering_domain_key) domain = member.value;
        if (member.key == vocabulary::ordering_instance_key) instance = member.value;
        if (member.key == vocabulary::ordering_ids_key) ids = member.value;
    }
    if (!domain.starts_with('"') || !instance.starts_with('"') || !ids.starts_with('[')) return content;
    content.is_list = true;
    content.domain = DecodedString(inside_quotes(domain)).text_in(arena_);
    content.instance = DecodedString(inside_quotes(instance)).text_in(arena_);
    parse_elements(ids, content);
    return content;
}

void OrderingLists::parse_elements(std::string_view array, Content& content) {
    elements_.clear();
    const char* at = array.data() + 1;
    const char* const end = array.data() + array.size();
    std::uint32_t following = 0;  // elements often stand in the order of their ids
    while (*at != ']') {
        if (*at == ',') at += 2;
        const char* const element = at;
        at = written_value_end(at, end);
        std::optional<std::uint32_t> number;
        if (*element == '"') {
            const DecodedString id(inside_quotes({element, static_cast<std::size_t>(at - element)}));
            const bool follows = following < index_->size() && index_->id(following) == id.text();
            number = follows ? following : index_->find(id.text());
        }
        if (number && index_->is_live(*number)) {
            elements_.push_back(*number);
            following = *number + 1;
        } else {
            content.complete = false;
        }
    }
    content.elements = arena_.copy(std::span<const std::uint32_t>(elements_));
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
    std::unordered_set<const std::uint32_t*> marked;
    const auto [first, end] = ordering_documents(index);
    for (std::uint32_t number = first; number < end; ++number) {
        if (!index.is_live(number)) continue;
        const auto list = lists.read(number, index.document(number).winning_position());
        if (!list || !marked.insert(list->elements.data()).second) continue;
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
