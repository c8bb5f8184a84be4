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
#include "memory/shared_memory.h"
#include "text/ordered_map.h"
#include "text/text_table.h"

namespace libzentadbpp {

// The text of one content, in the form of the writer, and its owner (none if the text lives as long as the call
// anyway).
struct Content {
    std::string_view text;
    std::shared_ptr<const void> owner;
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
    // The same; ObjectNotFoundException "cannot_find_object" if there is none.
    [[nodiscard]] std::string_view read_object(std::string_view hash) const;

    // Which content each hash names, counted in ascending order of their hashes, or `not_stored`, which reserved hashes
    // always are. O(contents + hashes).
    static constexpr std::uint32_t not_stored = TextTable::none;
    [[nodiscard]] LargeVector<std::uint32_t> numbers_of(std::span<const std::string_view> hashes) const;
    // For each content in that order whether one of the hashes names it. O(contents + hashes).
    [[nodiscard]] std::vector<bool> named_by(std::span<const std::string_view> hashes) const;

    // The bytes of all contents together. O(contents).
    [[nodiscard]] std::size_t bytes() const;
    // Everything stored, without the reserved entries.
    [[nodiscard]] const Map& contents() const { return contents_; }

   private:
    Map contents_;
};

// Collects contents to be added to a storage. Of several under one hash the last one counts.
class ContentChanges {
   public:
    // Copies hash and text into the memory, and returns the copy of the hash. If the memory is an arena, the text must
    // be in it, and is not copied.
    std::string_view add(std::string_view hash, std::string_view text, SharedMemory& memory);
    // Keeps what is there.
    void share(const DataStorage::Map::Entry& entry) { changes_.push_back(entry); }

    [[nodiscard]] std::size_t size() const { return changes_.size(); }
    // Leaves out what a storage has. Where that has another text under one of the hashes, returns false and leaves all
    // in.
    [[nodiscard]] bool leave_out_stored(const DataStorage& storage);
    [[nodiscard]] DataStorage applied_to(const DataStorage& storage) &&;

   private:
    DataStorage::Map::Entries changes_;
};

}  // namespace libzentadbpp
