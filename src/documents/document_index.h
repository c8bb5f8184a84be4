#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "documents/document_storage.h"

namespace libzentadbpp {

// The documents of a storage, numbered in ascending order of id, as one walk over all of them needs them. The storage must
// outlive it.
class DocumentIndex {
   public:
    explicit DocumentIndex(const DocumentStorage& storage);

    [[nodiscard]] const DocumentStorage& storage() const { return *storage_; }
    [[nodiscard]] std::size_t size() const { return documents_.size(); }
    [[nodiscard]] const MultiVersionDocument& document(std::uint32_t number) const { return *documents_[number]; }
    [[nodiscard]] std::string_view id(std::uint32_t number) const { return documents_[number]->id(); }
    // O(log documents).
    [[nodiscard]] std::optional<std::uint32_t> find(std::string_view id) const;

    // A live document has a winning revision, and that is no deleted one.
    [[nodiscard]] bool is_live(std::uint32_t number) const {
        return documents_[number]->has_winning() && !documents_[number]->winning().is_deleted();
    }

   private:
    const DocumentStorage* storage_;
    std::vector<const MultiVersionDocument*> documents_;
};

// Marks the documents that the winning content of any live document refers to as a member or an inline value ("O"
// references; the elements of arrays are named by ordering documents only). O(contents).
void mark_referenced_objects(const DocumentIndex& index, std::vector<bool>& referenced);

}  // namespace libzentadbpp
