#include "data/data_storage.h"

#include <array>
#include <cstring>
#include <utility>

#include "json/error.h"
#include "text/sort_unique.h"
#include "text/text_order.h"

namespace libzentadbpp {

namespace {

constexpr char deleted_content[] = R"({"_deleted": true})";
constexpr std::array<std::string_view, 2> reserved_contents{deleted_content, "{}"};

std::optional<std::uint32_t> reserved_content(std::string_view hash) {
    if (hash == "deleted") return 0;
    if (hash == "resolved" || hash == "empty") return 1;
    return std::nullopt;
}

}  // namespace

bool DataStorage::is_of_deleted(std::string_view content) { return content.data() == deleted_content; }

std::optional<std::string_view> DataStorage::find(std::string_view hash) const {
    const auto content = find_numbered(hash);
    return content ? std::optional(content->text) : std::nullopt;
}

std::optional<NumberedContent> DataStorage::find_numbered(std::string_view hash) const {
    if (const auto reserved = reserved_content(hash)) {
        return NumberedContent{static_cast<std::uint32_t>(contents_.size()) + *reserved, reserved_contents[*reserved]};
    }
    const auto [number, content] = contents_.place_of(hash);
    if (content == nullptr) return std::nullopt;
    return NumberedContent{static_cast<std::uint32_t>(number), content->text};
}

std::string_view DataStorage::read_object(std::string_view hash) const {
    const auto text = find(hash);
    if (!text) raise<ObjectNotFoundException>(source::datastorage, "read_object", "cannot_find_object", hash);
    return *text;
}

std::vector<bool> DataStorage::named_by(std::span<const std::string_view> hashes) const {
    std::vector<bool> named(contents_.size());
    visit_named(hashes, [&](std::size_t, const NumberedContent& content) { named[content.number] = true; });
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

LargeVector<std::uint32_t> ContentChanges::numbers_after(const DataStorage& storage) const {
    std::vector<std::pair<std::size_t, std::string_view>> added;  // how many contents come before each
    added.reserve(changes_.size());
    for (const auto& [hash, content] : changes_) added.emplace_back(storage.contents().place_of(hash).number, hash);
    sort_unique(added);

    LargeVector<std::uint32_t> numbers(storage.contents().size() + reserved_contents.size());
    std::uint32_t before = 0;
    for (std::uint32_t number = 0; number < numbers.size(); ++number) {
        while (before < added.size() && added[before].first <= number) ++before;
        numbers[number] = number + before;
    }
    return numbers;
}

DataStorage ContentChanges::applied_to(const DataStorage& storage) && {
    if (changes_.empty()) return storage;
    const bool any_equal = sort_by_text(changes_, [](const auto& change) { return change.key; });
    if (!any_equal) return DataStorage(storage.contents().with(std::move(changes_)));
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
