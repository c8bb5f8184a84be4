#include "data/data_storage.h"

#include <cstring>
#include <utility>

#include "json/error.h"
#include "text/text_order.h"

namespace libzentadbpp {

namespace {

constexpr char deleted_content[] = R"({"_deleted": true})";

std::optional<std::string_view> reserved_content(std::string_view hash) {
    if (hash == "deleted") return deleted_content;
    if (hash == "resolved" || hash == "empty") return "{}";
    return std::nullopt;
}

}  // namespace

bool DataStorage::is_of_deleted(std::string_view content) { return content.data() == deleted_content; }

std::optional<std::string_view> DataStorage::find(std::string_view hash) const {
    if (auto reserved = reserved_content(hash)) return reserved;
    const Content* content = contents_.find(hash);
    return content == nullptr ? std::nullopt : std::optional(content->text);
}

std::string_view DataStorage::read_object(std::string_view hash) const {
    const auto text = find(hash);
    if (!text) raise<ObjectNotFoundException>(source::datastorage, "read_object", "cannot_find_object", hash);
    return *text;
}

LargeVector<std::uint32_t> DataStorage::numbers_of(std::span<const std::string_view> hashes) const {
    LargeVector<std::string_view> stored;
    stored.reserve(contents_.size());
    for (const auto& entry : contents_) stored.push_back(entry.key);
    return TextTable(std::move(stored)).find_all(hashes);
}

std::vector<bool> DataStorage::named_by(std::span<const std::string_view> hashes) const {
    std::vector<bool> named(contents_.size());
    for (const std::uint32_t number : numbers_of(hashes)) {
        if (number != not_stored) named[number] = true;
    }
    return named;
}

std::size_t DataStorage::bytes() const {
    std::size_t bytes = 0;
    for (const auto& entry : contents_) bytes += entry.value.text.size();
    return bytes;
}

std::string_view ContentChanges::add(std::string_view hash, std::string_view text, SharedMemory& memory) {
    const bool stays = memory.is_arena();
    auto [bytes, owner] = memory.allocate(hash.size() + (stays ? 0 : text.size()));
    std::memcpy(bytes, hash.data(), hash.size());
    if (!stays) {
        std::memcpy(bytes + hash.size(), text.data(), text.size());
        text = {bytes + hash.size(), text.size()};
    }
    changes_.push_back({{bytes, hash.size()}, {text, std::move(owner)}});
    return changes_.back().key;
}

bool ContentChanges::leave_out_stored(const DataStorage& storage) {
    std::vector<bool> is_stored;
    is_stored.reserve(changes_.size());
    for (const auto& [hash, content] : changes_) {
        const Content* const stored = storage.contents().find(hash);
        if (stored != nullptr && stored->text != content.text) return false;
        is_stored.push_back(stored != nullptr);
    }
    auto stored = is_stored.begin();
    std::erase_if(changes_, [&](const auto&) { return *stored++; });
    return true;
}

DataStorage ContentChanges::applied_to(const DataStorage& storage) && {
    if (changes_.empty()) return storage;
    sort_by_text(changes_, [](const auto& change) { return change.key; });
    std::size_t kept = 0;
    for (std::size_t i = 0; i < changes_.size(); ++i) {
        if (i + 1 < changes_.size() && changes_[i].key == changes_[i + 1].key) continue;
        if (i != kept) changes_[kept] = std::move(changes_[i]);
        ++kept;
    }
    changes_.resize(kept);
    return DataStorage(storage.contents().with(std::move(changes_)));
}

}  // namespace libzentadbpp
