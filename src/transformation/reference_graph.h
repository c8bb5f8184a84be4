#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "contents/document_index.h"
#include "contents/renumbering.h"
#include "memory/arena.h"
#include "memory/by_number.h"
#include "memory/large_vector.h"
#include "memory/prefetch.h"
#include "transformation/domain_table.h"

namespace libzentadbpp {

// What a content refers to: an array by the number of its domain, or a document of the index by its own.
struct Reference {
    std::uint32_t target;
    std::uint32_t at;  // where it begins in a plain content
    bool is_array;
};

// What the winning contents of live documents refer to. Ordering documents refer to nothing, and references to
// documents that do not exist are left out.
class ReferenceGraph {
   public:
    // Adds the domains of all arrays that anything refers to. O(contents).
    ReferenceGraph(const DocumentIndex& index, DomainTable& domains, Arena& arena);
    // The same, with what contents that did not change referred to in a former one. `domains_now` has the numbers of
    // the domains known so far, by the former ones, and others are added. O(documents + changed contents).
    ReferenceGraph(const DocumentIndex& index, DomainTable& domains, Arena& arena, const ReferenceGraph& former,
                   const Renumbering& documents, std::span<std::uint32_t> domains_now);
    // Whether another can be made from this one.
    [[nodiscard]] bool may_be_taken_over(const Renumbering& documents) const;

    [[nodiscard]] std::span<const Reference> of(std::uint32_t document) const {
        const Range range = by_document_[document];
        return std::span(references_).subspan(range.first, range.count);
    }
    // Bring near what is known of a document, and after that its references.
    void prefetch_range(std::uint32_t document) const { prefetch_at(&by_document_[document]); }
    void prefetch_references(std::uint32_t document) const {
        const Range range = by_document_[document];
        if (range.count != 0) prefetch_at(&references_[range.first]);
    }
    // Whether the winning content of a document was looked through and has no member that begins like "#nf".
    [[nodiscard]] bool is_plain(std::uint32_t document) const { return by_document_[document].is_plain; }
    // Calls `visit(document)` for every document that refers to an array for which `is_wanted(domain)` holds. Documents
    // may share a content, whose references are looked at once.
    template <class IsWanted, class Visit>
    void visit_documents_with(const IsWanted& is_wanted, const Visit& visit) const {
        NumberSet looked_at;  // first references of contents
        NumberSet found;
        const auto refers = [&](const Reference& reference) {
            return reference.is_array && is_wanted(reference.target);
        };
        for (std::uint32_t document = 0; document < by_document_.size(); ++document) {
            const Range range = by_document_[document];
            if (range.count == 0) continue;
            if (looked_at.insert(range.first) && std::ranges::any_of(of(document), refers)) found.insert(range.first);
            if (found.contains(range.first)) visit(document);
        }
    }
    // Where the references of a document begin among all. Only documents that share a content have the same place, and
    // of one content there are few.
    [[nodiscard]] std::uint32_t first_of(std::uint32_t document) const { return by_document_[document].first; }
    // How many live documents there are, the ordering documents left out.
    [[nodiscard]] std::size_t live_documents() const { return live_documents_; }

    // The references of another content than the winning one, in the place of those that a document had.
    void replace(std::uint32_t document, std::string_view content);

   private:
    struct Range {
        std::uint32_t first = 0;
        std::uint32_t count = 0;
        bool is_plain = false;
    };
    [[nodiscard]] std::uint32_t number_of(std::string_view domain);
    [[nodiscard]] Range append(std::string_view content);

    const DocumentIndex* index_;
    DomainTable* domains_;
    Arena* arena_;
    std::size_t live_documents_ = 0;
    std::vector<Reference> references_;
    std::size_t collected_ = 0;  // how many there were before some were taken over and others added
    bool is_any_left_out_ = false;
    bool is_any_replaced_ = false;
    LargeVector<Range> by_document_;
};

}  // namespace libzentadbpp
