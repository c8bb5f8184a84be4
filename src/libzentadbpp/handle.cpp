#include "libzentadbpp/handle.h"

using namespace libzentadbpp;

std::shared_ptr<const ReadIndex> zentadbpp_document_storage::read_index(std::string_view instance_id) const {
    {
        const std::scoped_lock lock(mutex_);
        if (read_index_ != nullptr && read_index_->instance_id() == instance_id) return read_index_;
    }
    auto made = std::make_shared<const ReadIndex>(storage_, instance_id);
    const std::scoped_lock lock(mutex_);
    read_index_ = made;
    return made;
}

void zentadbpp_document_storage::replace(DocumentStorage storage) {
    storage_ = std::move(storage);
    read_index_ = nullptr;
}
