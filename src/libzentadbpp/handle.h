#pragma once

#include <memory>
#include <mutex>
#include <string_view>
#include <utility>

#include "documents/document_storage.h"
#include "libzentadbpp/zentadbpp.h"
#include "transformation/read_index.h"
#include "transformation/update.h"

namespace libzentadbpp {

// What handles that are made from another one need not find out again. Both are of a storage that they go back to, and
// may be null.
struct PassedOn {
    std::shared_ptr<const DocumentStorage> joined;  // with its winning contents
    std::shared_ptr<const ReadIndex> read;
};

// A storage that was made from that of a handle by adding and changing documents and by adding contents.
struct Successor {
    DocumentStorage storage;
    PassedOn passed_on;
    bool is_by_update = false;
    std::shared_ptr<const LastUpdate> last_update = nullptr;
};

}  // namespace libzentadbpp

// What a handle points to.
struct zentadbpp_document_storage {
   public:
    explicit zentadbpp_document_storage(libzentadbpp::DocumentStorage given) : storage_(std::move(given)) {}
    explicit zentadbpp_document_storage(libzentadbpp::Successor successor)
        : storage_(std::move(successor.storage)),
          passed_on_(std::move(successor.passed_on)),
          was_updated_(successor.is_by_update),
          last_update_(std::move(successor.last_update)) {}

    [[nodiscard]] const libzentadbpp::DocumentStorage& storage() const { return storage_; }
    // The same with the winning contents, made when an update first needs them, and kept.
    [[nodiscard]] libzentadbpp::DocumentStorage with_winning_contents() const;
    [[nodiscard]] libzentadbpp::PassedOn passed_on() const;
    // Made when data is first read, and kept until another instance asks. Any number of threads may call this at once;
    // none waits while another makes it.
    [[nodiscard]] std::shared_ptr<const libzentadbpp::ReadIndex> read_index(std::string_view instance_id) const;
    // What is updated a second time is likely to be updated again: only then does an update remember what it learned.
    struct ForUpdate {
        std::shared_ptr<const libzentadbpp::LastUpdate> last;  // or null
        libzentadbpp::Remember remember;
    };
    [[nodiscard]] ForUpdate for_update() const;
    // What an update learned that changed nothing.
    void remember(std::shared_ptr<const libzentadbpp::LastUpdate> update) const;
    // Not while any other thread uses the handle.
    void replace(libzentadbpp::DocumentStorage storage);

   private:
    libzentadbpp::DocumentStorage storage_;
    mutable std::mutex mutex_;  // of what follows
    mutable std::shared_ptr<const libzentadbpp::DocumentStorage> joined_;
    mutable libzentadbpp::PassedOn passed_on_;  // by the handle before; null as soon as this one has its own
    mutable std::shared_ptr<const libzentadbpp::ReadIndex> read_index_;
    mutable bool was_updated_ = false;
    mutable std::shared_ptr<const libzentadbpp::LastUpdate> last_update_;
};
