#include "libzentadbpp/handle.h"

using namespace libzentadbpp;

DocumentStorage zentadbpp_document_storage::with_winning_contents() const {
    std::shared_ptr<const DocumentStorage> before;
    {
        const std::scoped_lock lock(mutex_);
        if (joined_ != nullptr) return *joined_;
        before = before_;
    }
    auto made = std::make_shared<const DocumentStorage>(
        before == nullptr ? storage_.with_winning_contents() : storage_.with_winning_contents_after(*before));
    const std::scoped_lock lock(mutex_);
    joined_ = made;
    before_ = nullptr;
    return *made;
}

std::shared_ptr<const DocumentStorage> zentadbpp_document_storage::known_winning_contents() const {
    if (storage_.winning_contents() != nullptr) return std::make_shared<const DocumentStorage>(storage_);
    const std::scoped_lock lock(mutex_);
    return joined_ != nullptr ? joined_ : before_;
}

std::shared_ptr<const ReadIndex> zentadbpp_document_storage::read_index(std::string_view instance_id) const {
    {
        const std::scoped_lock lock(mutex_);
        if (read_index_ != nullptr && read_index_->instance_id() == instance_id) return read_index_;
    }
    auto made = std::make_shared<const ReadIndex>(with_winning_contents(), instance_id);
    const std::scoped_lock lock(mutex_);
    read_index_ = made;
    return made;
}

zentadbpp_document_storage::ForUpdate zentadbpp_document_storage::for_update() const {
    const std::scoped_lock lock(mutex_);
    const Remember remember = was_updated_ ? Remember::yes : Remember::no;
    was_updated_ = true;
    return {last_update_, remember};
}

void zentadbpp_document_storage::remember(std::shared_ptr<const LastUpdate> update) const {
    const std::scoped_lock lock(mutex_);
    last_update_ = std::move(update);
}

void zentadbpp_document_storage::replace(DocumentStorage storage) {
    storage_ = std::move(storage);
    joined_ = nullptr;
    before_ = nullptr;
    read_index_ = nullptr;
    last_update_ = nullptr;
}
