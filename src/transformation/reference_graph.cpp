#include "transformation/reference_graph.h"

#include <stdexcept>

#include "contents/references.h"

namespace libzentadbpp {

ReferenceGraph::ReferenceGraph(const DocumentIndex& index, DomainTable& domains, Arena& arena)
    : index_(&index), domains_(&domains), arena_(&arena), by_document_(index.size()) {
    constexpr std::size_t ahead = 8;
    // Once this is more than all contents hold, documents share some, and each is looked through once more at most.
    std::size_t looked_through = 0;
    std::unordered_map<const char*, Range> again;
    for (std::uint32_t number = 0; number < index.size(); ++number) {
        index.prefetch_document(number + ahead);
        by_document_[number] = {};
        if (!index.is_live_data(number)) continue;
        ++live_documents_;
        const auto content = index.winning_content(number);
        if (!content) continue;
        looked_through += content->size();
        if (looked_through <= index.content_bytes()) {
            by_document_[number] = append(*content);
            continue;
        }
        const auto [known, is_new] = again.try_emplace(content->data());
        if (is_new) known->second = append(*content);
        by_document_[number] = known->second;
    }
}

ReferenceGraph::Range ReferenceGraph::append(std::string_view content) {
    const std::size_t first = references_.size();
    const auto add = [&](char marker, std::string_view target, std::size_t at) {
        if (marker == vocabulary::object_reference_marker) {
            const auto number = index_->find(target);
            if (number) references_.push_back({*number, static_cast<std::uint32_t>(at), false});
        } else {
            const auto known = domains_->find(target);
            const std::uint32_t domain = known ? *known : domains_->add(arena_->copy(target));
            references_.push_back({domain, static_cast<std::uint32_t>(at), true});
        }
    };
    const bool is_plain = content.size() <= 0xffffffff && !may_hold_verbatim(content);
    if (is_plain) {
        visit_plain_references(content, [&](char marker, std::string_view target, const char* at) {
            add(marker, target, static_cast<std::size_t>(at - content.data()));
        });
    } else {
        visit_references(content, [&](char marker, std::string_view target) { add(marker, target, 0); });
    }
    if (references_.size() >= 0xffffffff) throw std::length_error("too many references");
    return {static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(references_.size() - first), is_plain};
}

void ReferenceGraph::replace(std::uint32_t document, std::string_view content) {
    by_document_[document] = append(content);
}

}  // namespace libzentadbpp
