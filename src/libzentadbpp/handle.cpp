#include "libzentadbpp/handle.h"

using namespace libzentadbpp;

DocumentStorage zentadbpp_document_storage::with_winning_contents() const {
    {
        const std::scoped_lock lock(mutex_);
        if (joined_ != nullptr) return *joined_;
    }
    auto made = std::make_shared<const DocumentStorage>(storage_.with_winning_contents());
    const std::scoped_lock lock(mutex_);
    joined_ = made;
    return *made;
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

void zentadbpp_document_storage::replace(DocumentStorage storage) {
    storage_ = std::move(storage);
    joined_ = nullptr;
    read_index_ = nullptr;
}
