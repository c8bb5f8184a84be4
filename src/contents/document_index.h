#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "contents/ordering_content.h"
#include "documents/document_storage.h"
#include "memory/arena.h"
#include "memory/large_vector.h"
#include "memory/prefetch.h"
#include "text/text_table.h"

namespace libzentadbpp {

// The documents of a storage, numbered in ascending order of id, with what a walk over all of them needs again and
// again. The storage must outlive it.
class DocumentIndex {
   public:
    explicit DocumentIndex(const DocumentStorage& storage);

    [[nodiscard]] const DocumentStorage& storage() const { return *storage_; }
    [[nodiscard]] std::size_t size() const { return documents_.size(); }
    [[nodiscard]] std::size_t content_bytes() const { return content_bytes_; }  // of all contents
    [[nodiscard]] const MultiVersionDocument& document(std::uint32_t number) const { return *documents_[number]; }
    // Valid as long as the index.
    [[nodiscard]] std::string_view id(std::uint32_t number) const { return numbers_.text(number); }
    [[nodiscard]] std::optional<std::uint32_t> find(std::string_view id) const { return numbers_.find(id); }
    // The same, faster if the guess or one of the next few is right.
    [[nodiscard]] std::optional<std::uint32_t> find(std::string_view id, std::uint32_t guess) const {
        constexpr std::uint32_t tries = 3;
        const auto end = std::min<std::size_t>(size(), std::size_t{guess} + tries);
        for (std::uint32_t number = guess; number < end; ++number) {
            if (numbers_.text(number) == id) return number;
        }
        return find(id);
    }

    // The content of the winning revision, or nothing.
    [[nodiscard]] std::optional<std::string_view> winning_content(std::uint32_t number) const {
        const std::string_view content = contents_[number];
        return content.data() == nullptr ? std::nullopt : std::optional(content);
    }
    // Its number, or DataStorage::not_stored.
    [[nodiscard]] std::uint32_t winning_number(std::uint32_t number) const { return winning_->numbers[number]; }
    // The content of any revision, or nothing.
    [[nodiscard]] std::optional<NumberedContent> content(std::uint32_t number, std::uint32_t revision) const;
    // Brings near what a look at a document will need.
    void prefetch_document(std::size_t number) const {
        prefetch(contents_[number]);
        prefetch_at(documents_[number]);
    }
    // Bring near where the content and the id of a document are, and after that both.
    void prefetch_entry(std::uint32_t number) const {
        prefetch_at(&contents_[number]);
        numbers_.prefetch_entry(number);
    }
    void prefetch_content(std::uint32_t number) const {
        prefetch(contents_[number]);
        prefetch(numbers_.text(number));
    }
    // A live document has a winning revision that is not deleted.
    [[nodiscard]] bool is_live(std::uint32_t number) const { return live_[number]; }

    // The numbers from `first` up to `end` are those of the documents with ordering ids.
    struct Range {
        std::uint32_t first;
        std::uint32_t end;
    };
    [[nodiscard]] Range ordering_ids() const { return ordering_ids_; }
    [[nodiscard]] bool is_ordering(std::uint32_t number) const {
        return number >= ordering_ids_.first && number < ordering_ids_.end &&
               is_ordering_[number - ordering_ids_.first];
    }
    // What the winning revision of a document with an ordering id says, or nothing.
    [[nodiscard]] const OrderingContent* ordering(std::uint32_t number) const {
        const OrderingContent& content = ordering_[number - ordering_ids_.first];
        return content.ids.data() == nullptr ? nullptr : &content;
    }
    // Neither deleted nor the library's own.
    [[nodiscard]] bool is_live_data(std::uint32_t number) const { return live_[number] && !is_ordering(number); }

   private:
    void judge_ordering_ids();

    const DocumentStorage* storage_;
    std::size_t content_bytes_;
    std::vector<const MultiVersionDocument*> documents_;
    std::shared_ptr<const WinningContents> winning_;
    std::span<const std::string_view> contents_;
    std::vector<bool> live_;
    // The ids side by side: random access to them then touches much less memory.
    Arena texts_;
    TextTable numbers_;
    Range ordering_ids_{};
    std::vector<OrderingContent> ordering_;
    std::vector<bool> is_ordering_;
};

// Marks the documents that the winning content of any other live document refers to as a member or an inline value ("O"
// references; the elements of arrays are named by ordering documents only). O(contents).
void mark_referenced_objects(const DocumentIndex& index, std::vector<bool>& referenced);

}  // namespace libzentadbpp
