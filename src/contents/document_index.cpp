#include "contents/document_index.h"

#include <algorithm>
#include <vector>

#include "contents/references.h"
#include "memory/by_number.h"

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

std::optional<NumberedContent> DocumentIndex::content(std::uint32_t number, std::uint32_t revision) const {
    const MultiVersionDocument& tree = document(number);
    if (!tree.has_winning() || revision != tree.winning_position()) {
        return storage_->data().find_numbered(tree.revisions()[revision].datahash());
    }
    if (contents_[number].data() == nullptr) return std::nullopt;
    return NumberedContent{winning_number(number), contents_[number]};
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
    ByNumber<std::uint32_t> judged;  // by content: which document, counted from one; documents may share a long content
    ordering_ids_ = {first_from(false), first_from(true)};
    ordering_.resize(ordering_ids_.end - ordering_ids_.first);
    is_ordering_.resize(ordering_.size());
    const LookAhead ahead(steps_ahead::document, ordering_.size(),
                          [&](std::size_t at) { prefetch_document(ordering_ids_.first + at); });
    for (std::uint32_t number = ordering_ids_.first; number < ordering_ids_.end; ++number) {
        const std::size_t at = number - ordering_ids_.first;
        ahead.reach(at);
        const bool is_stored = winning_number(number) < storage_->data().contents().size();  // and not that of "empty"
        const bool has_content = live_[number] && is_stored;
        if (has_content) {
            std::uint32_t& first_use = judged[winning_number(number)];
            if (first_use != 0) {
                ordering_[at] = ordering_[first_use - 1];
            } else if (const auto read = read_ordering_content(contents_[number], texts_)) {
                ordering_[at] = *read;
            }
            if (first_use == 0) first_use = static_cast<std::uint32_t>(at) + 1;
        }
        is_ordering_[at] = !has_content || ordering_[at].ids.data() != nullptr;
    }
}

void mark_referenced_objects(const DocumentIndex& index, std::vector<bool>& referenced) {
    // Any number of documents may share one long content. The second one refers to all that the first does, and to the
    // first as well.
    NumberSet once;
    NumberSet twice;
    for (std::uint32_t number = 0; number < index.size(); ++number) {
        if (!index.is_live_data(number)) continue;
        const auto content = index.winning_content(number);
        const std::uint32_t content_number = index.winning_number(number);
        if (!content || (!once.insert(content_number) && !twice.insert(content_number))) continue;
        visit_references(*content, [&](char marker, std::string_view id) {
            if (marker != vocabulary::object_reference_marker) return;
            if (const auto target = index.find(id); target && *target != number) referenced[*target] = true;
        });
    }
}

}  // namespace libzentadbpp
