#pragma once

#include <cstdint>
#include <set>
#include <span>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "contents/document_index.h"
#include "json/value.h"
#include "memory/arena.h"
#include "memory/by_number.h"
#include "transformation/domain_table.h"
#include "transformation/work_limit.h"

namespace libzentadbpp {

// Which array took the place of which: the winning content of a document has an array at a member at which another of
// its revisions has one of another domain. That happens when an object moves, because the domains of its arrays contain
// the path to it.
class TakenPlaces {
   public:
    TakenPlaces(const DocumentIndex& index, DomainTable& domains, Arena& arena)
        : index_(&index), domains_(&domains), arena_(&arena), work_(index.content_bytes()) {}

    // Compares all revisions of a document with the winning one, once. O(their contents); nothing once documents that
    // share long contents took too much.
    void look_through(std::uint32_t document);

    static constexpr std::uint32_t none = 0xffffffff;
    // The array that took the place of this one, by the documents that were looked through; none: no array did. Of
    // several the one of the lowest document, then of the lowest revision that has the other, then at the smallest
    // path.
    [[nodiscard]] std::uint32_t successor(std::uint32_t domain) const;
    // All arrays that did.
    [[nodiscard]] std::span<const std::uint32_t> successors(std::uint32_t domain) const;
    // The arrays with a successor, in the order in which they were found.
    [[nodiscard]] std::span<const std::uint32_t> taken() const { return taken_; }
    // The arrays whose place this one took.
    [[nodiscard]] std::span<const std::uint32_t> predecessors(std::uint32_t domain) const;

   private:
    struct First {
        std::uint32_t document;  // that says so
        std::uint32_t successor;
    };
    [[nodiscard]] bool may_refer_to_arrays(const NumberedContent& content);
    void compare(const JsonValue& winning, const JsonValue& other, std::uint32_t document);
    [[nodiscard]] std::uint32_t domain_of(std::string_view reference);

    const DocumentIndex* index_;
    DomainTable* domains_;
    Arena* arena_;
    WorkLimit work_;
    enum class Refers : std::uint8_t { unknown, no, maybe };
    ByNumber<Refers> refers_;  // by content: to arrays
    std::set<std::uint32_t> looked_through_;
    std::set<std::pair<std::uint32_t, std::uint32_t>> compared_;  // long contents, which documents may share
    std::unordered_map<std::uint32_t, First> successors_;
    std::vector<std::uint32_t> taken_;
    std::set<std::pair<std::uint32_t, std::uint32_t>> pairs_;
    std::unordered_map<std::uint32_t, std::vector<std::uint32_t>> all_successors_;
    std::unordered_map<std::uint32_t, std::vector<std::uint32_t>> predecessors_;
};

}  // namespace libzentadbpp
