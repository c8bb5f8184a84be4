#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "memory/large_vector.h"
#include "memory/prefetch.h"
#include "memory/shared_memory.h"
#include "text/ordered_map.h"
#include "text/text_order.h"

namespace libzentadbpp {

// The text of one content, in the form of the writer, and its owner (none if the text lives as long as the call
// anyway).
struct Content {
    std::string_view text;
    std::shared_ptr<const void> owner;
};

// A content of a storage and its number: how many contents have a lower hash. Reserved ones have the numbers behind
// those of all that are stored.
struct NumberedContent {
    std::uint32_t number;
    std::string_view text;
};

// Contents by data hash. Three reserved hashes have a content that is not stored. An immutable value: a change returns
// a new storage that shares what did not change.
class DataStorage {
   public:
    using Map = OrderedMap<Content>;

    DataStorage() = default;
    explicit DataStorage(Map contents) : contents_(std::move(contents)) {}

    [[nodiscard]] static bool is_reserved(std::string_view hash) {
        return hash == "deleted" || hash == "resolved" || hash == "empty";
    }

    // Whether what was found is the content of deleted revisions, and not one that is stored.
    [[nodiscard]] static bool is_of_deleted(std::string_view content);

    // The content under a hash, reserved ones included, or nothing.
    [[nodiscard]] std::optional<std::string_view> find(std::string_view hash) const;
    [[nodiscard]] std::optional<NumberedContent> find_numbered(std::string_view hash) const;
    // The same; ObjectNotFoundException "cannot_find_object" if there is none.
    [[nodiscard]] std::string_view read_object(std::string_view hash) const;

    // In place of the number of a content that is missing.
    static constexpr std::uint32_t not_stored = 0xffffffff;
    // Calls `visit(at, content)` for each of the hashes that names a stored content, reserved hashes left out.
    // O(contents + hashes).
    template <class Visit>
    void visit_named(std::span<const std::string_view> hashes, const Visit& visit) const;
    // For each content by number whether one of the hashes names it. O(contents + hashes).
    [[nodiscard]] std::vector<bool> named_by(std::span<const std::string_view> hashes) const;

    // The bytes of all contents together. O(contents).
    [[nodiscard]] std::size_t bytes() const;
    // Everything stored, without the reserved entries.
    [[nodiscard]] const Map& contents() const { return contents_; }

   private:
    Map contents_;
};

// Both sides in the order of their hashes: that touches each hash once, where a table would touch it again and again.
template <class Visit>
void DataStorage::visit_named(std::span<const std::string_view> hashes, const Visit& visit) const {
    LargeVector<const Map::Entry*> contents;
    contents.reserve(contents_.size());
    for (const auto& entry : contents_) contents.push_back(&entry);
    const std::vector<std::uint32_t> order = text_order(hashes);
    const LookAhead contents_ahead(steps_ahead::lookup, contents.size(),
                                   [&](std::size_t at) { prefetch(contents[at]->key); });
    const LookAhead hashes_ahead(steps_ahead::lookup, order.size(),
                                 [&](std::size_t at) { prefetch(hashes[order[at]]); });
    std::uint32_t number = 0;
    for (std::size_t at = 0; at < order.size(); ++at) {
        hashes_ahead.reach(at);
        const std::string_view hash = hashes[order[at]];
        int order_to_hash = 1;
        while (number < contents.size() && (order_to_hash = contents[number]->key.compare(hash)) < 0) {
            contents_ahead.reach(number);
            ++number;
        }
        if (number == contents.size()) return;
        if (order_to_hash == 0) visit(order[at], NumberedContent{number, contents[number]->value.text});
    }
}

// Collects contents to be added to a storage. Of several under one hash the last one counts.
class ContentChanges {
   public:
    void reserve(std::size_t count) { changes_.reserve(count); }
    // Copies hash and text into the memory, and returns the copy of the hash. If the memory is an arena, the text must
    // be in it, and is not copied.
    std::string_view add(std::string_view hash, std::string_view text, SharedMemory& memory);
    // Keeps what is there.
    void share(const DataStorage::Map::Entry& entry) { changes_.push_back(entry); }

    [[nodiscard]] std::size_t size() const { return changes_.size(); }
    // Leaves out what a storage has. Where that has another text under one of the hashes, returns false and leaves all
    // in.
    [[nodiscard]] bool leave_out_stored(const DataStorage& storage);
    // By number, the numbers that the contents of a storage have once these are added, of which it has none yet.
    // O(contents).
    [[nodiscard]] LargeVector<std::uint32_t> numbers_after(const DataStorage& storage) const;
    [[nodiscard]] DataStorage applied_to(const DataStorage& storage) &&;

   private:
    DataStorage::Map::Entries changes_;
};

}  // namespace libzentadbpp
