#include "documents/ordering_lists.h"

#include <unordered_set>

#include "common/json_scanner.h"
#include "documents/vocabulary.h"

namespace libzentadbpp {

std::optional<OrderingList> OrderingLists::read(std::uint32_t document, std::uint32_t revision) {
    const MultiVersionDocument& tree = index_->document(document);
    const auto text = tree.has_winning() && revision == tree.winning_position()
                          ? index_->winning_content(document)
                          : index_->storage().data().find(tree.revisions()[revision].datahash());
    if (!text) return std::nullopt;
    const auto [entry, is_new] = contents_.try_emplace(text->data());
    Content& content = entry->second;
    if (is_new) content = parse(*text);
    if (!content.is_list) return std::nullopt;
    return OrderingList{document, revision, content.instance, content.domain, content.elements, content.complete};
}

OrderingLists::Content OrderingLists::parse(std::string_view text) {
    const JsonValue value = JsonScanner(text, arena_).read_value(0, deepest_content);
    const JsonValue* ids = value.find(vocabulary::ordering_ids_key);
    const JsonValue* instance = value.find(vocabulary::ordering_instance_key);
    const JsonValue* domain = value.find(vocabulary::ordering_domain_key);
    if (ids == nullptr || instance == nullptr || domain == nullptr) return {};
    if (!ids->is_array() || !instance->is_string() || !domain->is_string()) return {};

    Content content{true, instance->as_string(), domain->as_string(), {}, true};
    content.elements.reserve(ids->elements().size());
    for (const JsonValue& id : ids->elements()) {
        const auto number = id.is_string() ? index_->find(id.as_string()) : std::nullopt;
        if (number && index_->is_live(*number)) {
            content.elements.push_back(*number);
        } else {
            content.complete = false;
        }
    }
    return content;
}

void mark_listed_elements(const DocumentIndex& index, std::vector<bool>& listed) {
    OrderingLists lists(index);
    std::unordered_set<const std::uint32_t*> marked;
    for (std::uint32_t number = 0; number < index.size(); ++number) {
        if (!has_ordering_id(index.id(number)) || !index.is_live(number)) continue;
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
