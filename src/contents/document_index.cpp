#include "contents/document_index.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "contents/references.h"

namespace libzentadbpp {

DocumentIndex::DocumentIndex(const DocumentStorage& storage)
    : storage_(&storage),
      content_bytes_(storage.data().bytes()),
      winning_(storage.with_winning_contents().winning_contents()),
      contents_(winning_->texts) {
    LargeVector<std::string_view> ids;
    ids.reserve(storage.documents().size());
    documents_.reserve(storage.documents().size());
    live_.reserve(storage.documents().size());
    auto content = contents_.begin();
    for (const auto& [id, document] : storage.documents()) {
        documents_.push_back(document.get());
        live_.push_back(content->data() != nullptr ? !DataStorage::is_of_deleted(*content)
                                                   : document->has_winning() && !document->winning().is_deleted());
        ids.push_back(texts_.copy(id));
        ++content;
    }
    numbers_ = TextTable(std::move(ids));
    judge_ordering_ids();
}

void DocumentIndex::judge_ordering_ids() {
    const auto first_from = [&](bool behind) {
        std::uint32_t low = 0;
        for (auto left = static_cast<std::uint32_t>(size()); left > 0;) {
            const std::uint32_t half = left / 2;
            const std::string_view beginning = id(low + half).substr(0, ordering_id_prefix.size());
            if (beginning < ordering_id_prefix || (behind && beginning == ordering_id_prefix)) {
                low += half + 1;
                left -= half + 1;
            } else {
                left = half;
            }
        }
        return low;
    };
    constexpr std::size_t ahead = 8;
    constexpr std::size_t cheap_to_repeat = 256;
    std::unordered_map<const char*, std::size_t> judged;  // documents may share a long content
    ordering_ids_ = {first_from(false), first_from(true)};
    ordering_.resize(ordering_ids_.end - ordering_ids_.first);
    is_ordering_.resize(ordering_.size());
    for (std::uint32_t number = ordering_ids_.first; number < ordering_ids_.end; ++number) {
        prefetch_document(number + ahead);
        const bool has_content = live_[number] && contents_[number].data() != nullptr;
        const std::size_t at = number - ordering_ids_.first;
        const std::string_view content = contents_[number];
        if (has_content) {
            const auto [first_use, is_new] = content.size() <= cheap_to_repeat ? std::pair(judged.end(), true)
                                                                               : judged.try_emplace(content.data(), at);
            if (is_new) {
                if (const auto read = read_ordering_content(content, texts_)) ordering_[at] = *read;
            } else {
                ordering_[at] = ordering_[first_use->second];
            }
        }
        is_ordering_[at] = !has_content || ordering_[at].ids.data() != nullptr;
    }
}

void mark_referenced_objects(const DocumentIndex& index, std::vector<bool>& referenced) {
    // Any number of documents may share one long content; it is looked through once.
    constexpr std::size_t cheap_to_repeat = 256;
    std::unordered_set<const char*> visited;
    for (std::uint32_t number = 0; number < index.size(); ++number) {
        if (!index.is_live_data(number)) continue;
        const auto content = index.winning_content(number);
        if (!content || (content->size() > cheap_to_repeat && !visited.insert(content->data()).second)) continue;
        visit_references(*content, [&](char marker, std::string_view id) {
            if (marker != vocabulary::object_reference_marker) return;
            if (const auto target = index.find(id); target && *target != number) referenced[*target] = true;
        });
    }
}

}  // namespace libzentadbpp
