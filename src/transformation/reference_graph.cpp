#include "transformation/reference_graph.h"

#include <stdexcept>

#include "contents/references.h"

namespace libzentadbpp {

ReferenceGraph::ReferenceGraph(const DocumentIndex& index, DomainTable& domains, Arena& arena)
    : index_(&index), domains_(&domains), arena_(&arena), by_document_(index.size()) {
    const DataStorage::Map& contents = index.storage().data().contents();
    std::vector<bool> is_shown(contents.size());
    for (std::uint32_t number = 0; number < index.size(); ++number) {
        if (!index.is_live_data(number)) continue;
        ++live_documents_;
        if (index.winning_number(number) < contents.size()) is_shown[index.winning_number(number)] = true;
    }
    // As they are stored, contents lie one behind the other.
    LargeVector<Range> by_content(contents.size());
    auto content = contents.begin();
    for (std::size_t number = 0; number < contents.size(); ++number, ++content) {
        if (is_shown[number]) by_content[number] = append(content->value.text);
    }
    for (std::uint32_t number = 0; number < index.size(); ++number) {
        const bool is_stored = index.is_live_data(number) && index.winning_number(number) < contents.size();
        if (is_stored) by_document_[number] = by_content[index.winning_number(number)];
    }
    collected_ = references_.size();
}

ReferenceGraph::ReferenceGraph(const DocumentIndex& index, DomainTable& domains, Arena& arena,
                               const ReferenceGraph& former, const Renumbering& documents,
                               std::span<std::uint32_t> domains_now)
    : index_(&index),
      domains_(&domains),
      arena_(&arena),
      collected_(former.collected_),
      is_any_left_out_(former.is_any_left_out_),
      by_document_(index.size()) {
    references_.reserve(former.references_.size());
    for (const Reference& reference : former.references_) {
        if (!reference.is_array) {
            references_.push_back({documents.now(reference.target), reference.at, false});
            continue;
        }
        std::uint32_t& domain = domains_now[reference.target];
        if (domain == Renumbering::none) domain = number_of(former.domains_->text(reference.target));
        references_.push_back({domain, reference.at, true});
    }
    const std::size_t stored = index.storage().data().contents().size();
    ByNumber<std::uint32_t> changed;  // by content: the first document that has it now, plus one
    for (std::uint32_t number = 0; number < index.size(); ++number) {
        if (!index.is_live_data(number)) continue;
        ++live_documents_;
        if (index.winning_number(number) >= stored) continue;
        if (const std::uint32_t before = documents.if_unchanged(number); before != Renumbering::none) {
            by_document_[number] = former.by_document_[before];
            continue;
        }
        std::uint32_t& first = changed[index.winning_number(number)];
        by_document_[number] = first == 0 ? append(*index.winning_content(number)) : by_document_[first - 1];
        if (first == 0) first = number + 1;
    }
}

// A reference to a document that did not exist may find it now. What nothing refers to any longer is dropped when it
// has become as much as the rest.
bool ReferenceGraph::may_be_taken_over(const Renumbering& documents) const {
    constexpr std::size_t few = 64;
    return !is_any_replaced_ && !(is_any_left_out_ && documents.any_added()) &&
           references_.size() <= 2 * collected_ + few;
}

std::uint32_t ReferenceGraph::number_of(std::string_view domain) {
    const auto known = domains_->find(domain);
    return known ? *known : domains_->add(arena_->copy(domain));
}

ReferenceGraph::Range ReferenceGraph::append(std::string_view content) {
    const std::size_t first = references_.size();
    const auto add = [&](char marker, std::string_view target, std::size_t at) {
        if (marker == vocabulary::object_reference_marker) {
            const auto number = index_->find(target);
            if (number) references_.push_back({*number, static_cast<std::uint32_t>(at), false});
            is_any_left_out_ = is_any_left_out_ || !number;
        } else {
            references_.push_back({number_of(target), static_cast<std::uint32_t>(at), true});
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
    is_any_replaced_ = true;
}

}  // namespace libzentadbpp
