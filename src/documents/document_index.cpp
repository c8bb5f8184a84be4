#include "documents/document_index.h"

#include <algorithm>
#include <unordered_set>

#include "common/arena.h"
#include "common/json_scanner.h"
#include "documents/hash_key.h"
#include "documents/vocabulary.h"

namespace libzentadbpp {

namespace {

// Recursion is bounded by the depth of one content.
template <class Visit>
void visit_references(const JsonValue& value, const Visit& visit) {
    if (value.is_string()) {
        const std::string_view text = value.as_string();
        if (text.starts_with(vocabulary::object_reference_marker)) visit(text.substr(1));
    } else if (value.is_array()) {
        for (const JsonValue& element : value.elements()) visit_references(element, visit);
    } else if (value.find(vocabulary::no_flatten_key) == nullptr) {
        for (const auto& [key, member] : value.members()) {
            if (key != vocabulary::id_key) visit_references(member, visit);
        }
    }
}

}  // namespace

std::vector<std::string_view> winning_contents(const DocumentStorage& storage) {
    struct Wanted {
        HashKey hash;
        std::uint32_t number;
    };
    std::vector<std::string_view> contents(storage.documents().size());
    std::vector<Wanted> wanted;
    wanted.reserve(contents.size());
    std::uint32_t number = 0;
    for (const auto& entry : storage.documents()) {
        if (entry.value->has_winning()) {
            const std::string_view hash = entry.value->winning().datahash();
            if (DataStorage::is_reserved(hash)) {
                contents[number] = *storage.data().find(hash);
            } else {
                wanted.push_back({HashKey(hash), number});
            }
        }
        ++number;
    }
    std::sort(wanted.begin(), wanted.end(), [](const Wanted& a, const Wanted& b) { return a.hash < b.hash; });
    auto next = wanted.begin();
    for (const auto& entry : storage.data().contents()) {
        const HashKey stored(entry.key);
        while (next != wanted.end() && next->hash < stored) ++next;
        for (; next != wanted.end() && next->hash.text() == entry.key; ++next) {
            contents[next->number] = entry.value.text;
        }
    }
    return contents;
}

DocumentIndex::DocumentIndex(const DocumentStorage& storage)
    : storage_(&storage), contents_(winning_contents(storage)), numbers_(storage.documents().size()) {
    documents_.reserve(storage.documents().size());
    live_.reserve(storage.documents().size());
    for (const auto& entry : storage.documents()) {
        documents_.push_back(entry.value.get());
        live_.push_back(entry.value->has_winning() && !entry.value->winning().is_deleted());
        numbers_.add(entry.key);
    }
}

void mark_referenced_objects(const DocumentIndex& index, std::vector<bool>& referenced) {
    // Any number of documents may share one long content; it is looked through once.
    constexpr std::size_t cheap_to_repeat = 256;
    std::unordered_set<const char*> visited;
    for (std::uint32_t number = 0; number < index.size(); ++number) {
        if (!index.is_live(number) || has_ordering_id(index.id(number))) continue;
        const auto content = index.winning_content(number);
        if (!content || (content->size() > cheap_to_repeat && !visited.insert(content->data()).second)) continue;
        if (content->find("\"O") == std::string_view::npos) continue;
        Arena arena;
        visit_references(JsonScanner(*content, arena).read_value(0, deepest_content), [&](std::string_view id) {
            if (const auto target = index.find(id); target && *target != number) referenced[*target] = true;
        });
    }
}

}  // namespace libzentadbpp
