#include "documents/document_index.h"

#include <algorithm>
#include <unordered_set>
#include <utility>
#include <vector>

#include "common/arena.h"
#include "common/json_scanner.h"
#include "common/pair_scan.h"
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

WinningContents winning_contents(const DocumentStorage& storage) {
    LargeVector<std::string_view> contents(storage.documents().size());
    LargeVector<std::string_view> hashes;  // of the winning revisions, and whose they are
    std::vector<std::uint32_t> documents;
    hashes.reserve(contents.size());
    documents.reserve(contents.size());
    std::uint32_t number = 0;
    for (const auto& entry : storage.documents()) {
        if (entry.value->has_winning()) {
            const std::string_view hash = entry.value->winning().datahash();
            if (DataStorage::is_reserved(hash)) {
                contents[number] = *storage.data().find(hash);
            } else {
                hashes.push_back(hash);
                documents.push_back(number);
            }
        }
        ++number;
    }
    LargeVector<std::string_view> stored;
    stored.reserve(storage.data().contents().size());
    for (const auto& entry : storage.data().contents()) stored.push_back(entry.value.text);
    std::vector<bool> named(stored.size());
    auto document = documents.begin();
    for (const std::uint32_t at : storage.data().numbers_of(hashes)) {
        if (at != DataStorage::not_stored) {
            contents[*document] = stored[at];
            named[at] = true;
        }
        ++document;
    }
    return {std::move(contents), std::ranges::find(named, false) == named.end()};
}

DocumentIndex::DocumentIndex(const DocumentStorage& storage)
    : storage_(&storage), content_bytes_(storage.data().bytes()), contents_(winning_contents(storage).texts) {
    LargeVector<std::string_view> ids;
    ids.reserve(storage.documents().size());
    documents_.reserve(storage.documents().size());
    live_.reserve(storage.documents().size());
    for (const auto& entry : storage.documents()) {
        documents_.push_back(entry.value.get());
        live_.push_back(entry.value->has_winning() && !entry.value->winning().is_deleted());
        ids.push_back(id_texts_.copy(entry.key));
    }
    numbers_ = TextTable(std::move(ids));
}

void mark_referenced_objects(const DocumentIndex& index, std::vector<bool>& referenced) {
    // Any number of documents may share one long content; it is looked through once.
    constexpr std::size_t cheap_to_repeat = 256;
    std::unordered_set<const char*> visited;
    for (std::uint32_t number = 0; number < index.size(); ++number) {
        if (!index.is_live(number) || has_ordering_id(index.id(number))) continue;
        const auto content = index.winning_content(number);
        if (!content || (content->size() > cheap_to_repeat && !visited.insert(content->data()).second)) continue;
        const char* const end = content->data() + content->size();
        if (find_pair(content->data(), end, '"', vocabulary::object_reference_marker) == end) continue;
        Arena arena;
        visit_references(JsonScanner(*content, arena).read_value(0, deepest_content), [&](std::string_view id) {
            if (const auto target = index.find(id); target && *target != number) referenced[*target] = true;
        });
    }
}

}  // namespace libzentadbpp
