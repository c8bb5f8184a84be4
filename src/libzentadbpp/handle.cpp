#include "libzentadbpp/handle.h"

using namespace libzentadbpp;

DocumentStorage zentadbpp_document_storage::with_winning_contents() const {
    std::shared_ptr<const DocumentStorage> before;
    {
        const std::scoped_lock lock(mutex_);
        if (joined_ != nullptr) return *joined_;
        before = passed_on_.joined;
    }
    auto made = std::make_shared<const DocumentStorage>(
        before == nullptr ? storage_.with_winning_contents() : storage_.with_winning_contents_after(*before));
    const std::scoped_lock lock(mutex_);
    joined_ = made;
    passed_on_.joined = nullptr;
    return *made;
}

PassedOn zentadbpp_document_storage::passed_on() const {
    const std::scoped_lock lock(mutex_);
    PassedOn known = passed_on_;
    if (storage_.winning_contents() != nullptr) known.joined = std::make_shared<const DocumentStorage>(storage_);
    if (joined_ != nullptr) known.joined = joined_;
    if (read_index_ != nullptr) known.read = read_index_;
    return known;
}

std::shared_ptr<const ReadIndex> zentadbpp_document_storage::read_index(std::string_view instance_id) const {
    std::shared_ptr<const ReadIndex> former;
    {
        const std::scoped_lock lock(mutex_);
        if (read_index_ != nullptr && read_index_->instance_id() == instance_id) return read_index_;
        former = read_index_ != nullptr ? read_index_ : passed_on_.read;
        if (former != nullptr && former->instance_id() == instance_id && former->storage().is_copy_of(storage_)) {
            passed_on_.read = nullptr;
            return read_index_ = former;
        }
    }
    auto made = std::make_shared<const ReadIndex>(with_winning_contents(), instance_id, former.get());
    const std::scoped_lock lock(mutex_);
    read_index_ = made;
    passed_on_.read = nullptr;
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
    passed_on_ = {nullptr, std::move(read_index_)};
    last_update_ = nullptr;
}
