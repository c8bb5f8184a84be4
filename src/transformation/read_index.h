#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "contents/document_index.h"
#include "transformation/shown_data.h"

namespace libzentadbpp {

// What reading data takes: the documents of a storage by number, and what one instance sees of them. O(storage) to
// make, in half the time after a former one of nearly the same storage; then good for any number of reads by any number
// of threads.
class ReadIndex {
   public:
    ReadIndex(DocumentStorage storage, std::string_view instance_id, const ReadIndex* former = nullptr)
        : storage_(std::move(storage)),
          instance_id_(instance_id),
          documents_(storage_),
          shown_(documents_, instance_id_, former == nullptr ? nullptr : &former->shown_) {}
    ReadIndex(const ReadIndex&) = delete;
    ReadIndex& operator=(const ReadIndex&) = delete;

    [[nodiscard]] const DocumentStorage& storage() const { return storage_; }
    [[nodiscard]] const std::string& instance_id() const { return instance_id_; }
    [[nodiscard]] const DocumentIndex& documents() const { return documents_; }
    [[nodiscard]] const ShownData& shown() const { return shown_; }

   private:
    DocumentStorage storage_;
    std::string instance_id_;
    DocumentIndex documents_;
    ShownData shown_;
};

}  // namespace libzentadbpp
