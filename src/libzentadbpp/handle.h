#pragma once

#include <memory>
#include <mutex>
#include <string_view>
#include <utility>

#include "documents/document_storage.h"
#include "libzentadbpp/zentadbpp.h"
#include "transformation/read_index.h"

// What a handle points to.
struct zentadbpp_document_storage {
   public:
    explicit zentadbpp_document_storage(libzentadbpp::DocumentStorage given) : storage_(std::move(given)) {}

    [[nodiscard]] const libzentadbpp::DocumentStorage& storage() const { return storage_; }
    // The same with the winning contents, made when an update first needs them, and kept.
    [[nodiscard]] libzentadbpp::DocumentStorage with_winning_contents() const;
    // Made when data is first read, and kept until another instance asks. Any number of threads may call this at once;
    // none waits while another makes it.
    [[nodiscard]] std::shared_ptr<const libzentadbpp::ReadIndex> read_index(std::string_view instance_id) const;
    // Not while any other thread uses the handle.
    void replace(libzentadbpp::DocumentStorage storage);

   private:
    libzentadbpp::DocumentStorage storage_;
    mutable std::mutex mutex_;  // of the pointers
    mutable std::shared_ptr<const libzentadbpp::DocumentStorage> joined_;
    mutable std::shared_ptr<const libzentadbpp::ReadIndex> read_index_;
};
