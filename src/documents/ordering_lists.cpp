#include "documents/ordering_lists.h"

#include "common/json_scanner.h"
#include "documents/vocabulary.h"

namespace libzentadbpp {

std::optional<OrderingList> read_ordering_list(const DocumentIndex& index, std::uint32_t document,
                                               std::uint32_t revision, Arena& arena) {
    const MultiVersionDocument& tree = index.document(document);
    const auto content = tree.has_winning() && revision == tree.winning_position()
                             ? index.winning_content(document)
                             : index.storage().data().find(tree.revisions()[revision].datahash());
    if (!content) return std::nullopt;
    const JsonValue value = JsonScanner(*content, arena).read_value(0, deepest_content);
    const JsonValue* ids = value.find(vocabulary::ordering_ids_key);
    const JsonValue* instance = value.find(vocabulary::ordering_instance_key);
    const JsonValue* domain = value.find(vocabulary::ordering_domain_key);
    if (ids == nullptr || instance == nullptr || domain == nullptr) return std::nullopt;
    if (!ids->is_array() || !instance->is_string() || !domain->is_string()) return std::nullopt;

    OrderingList list{document, revision, instance->as_string(), domain->as_string(), {}, true};
    list.elements.reserve(ids->elements().size());
    for (const JsonValue& id : ids->elements()) {
        const auto number = id.is_string() ? index.find(id.as_string()) : std::nullopt;
        if (number && index.is_live(*number)) {
            list.elements.push_back(*number);
        } else {
            list.complete = false;
        }
    }
    return list;
}

void mark_listed_elements(const DocumentIndex& index, Arena& arena, std::vector<bool>& listed) {
    for (std::uint32_t number = 0; number < index.size(); ++number) {
        if (!has_ordering_id(index.id(number)) || !index.is_live(number)) continue;
        const auto list = read_ordering_list(index, number, index.document(number).winning_position(), arena);
        if (!list) continue;
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
