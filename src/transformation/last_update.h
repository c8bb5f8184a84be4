#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "data/data_hash.h"
#include "documents/document_storage.h"
#include "memory/arena.h"
#include "memory/large_vector.h"
#include "text/text_table.h"

namespace libzentadbpp {

// The paths of arrays, with all that was hashed for them, in the order of the walk over the data.
struct PathHashes {
    struct Path {
        std::string_view text;
        std::string_view hash;
        std::string_view ordering_id;  // null data if the array has none
    };
    std::vector<Path> paths;
    std::string texts;  // that the views are into
};

// The lists of one instance that the data did not produce, those of arrays that are gone: what they list.
struct OtherLists {
    TextTable ids;
    bool any = false;
    Arena texts;  // of the ids
};

// What an update of a handle learned, from which the next one recognizes without hashing, sorting and searching what
// did not change. It belongs to one storage, or others with the same documents, and to settings with one instance and
// one kind of hash. Immutable, and shared by handles.
struct LastUpdate {
    LastUpdate() = default;
    LastUpdate(const LastUpdate&) = delete;  // it points into itself
    LastUpdate& operator=(const LastUpdate&) = delete;

    std::string instance_id;
    HashKind hash_kind = HashKind::sha256;
    // By document in ascending order of id.
    LargeVector<std::string_view> ids;  // those of the data are into produced_ids
    std::vector<bool> settled;          // to store the winning content once more changes nothing
    std::vector<bool> stays;            // also if the data does not have it: a deleted one, or a list
    std::shared_ptr<const WinningContents> contents;

    // The documents of the data, in its order.
    struct Produced {
        std::string_view id;
        std::string_view content;  // the winning one; null data if it is not settled
        std::uint32_t number;
    };
    LargeVector<Produced> produced;
    std::string produced_ids;  // one after the other, as they are looked at
    std::shared_ptr<const PathHashes> paths;
    std::shared_ptr<const OtherLists> other_lists;
};

// Finds paths among those of the last update, and collects them for the next one.
class PathMemory {
   public:
    using Path = PathHashes::Path;

    explicit PathMemory(std::shared_ptr<const PathHashes> known) : known_(std::move(known)) {
        asked_.reserve(expected());
    }

    // The number of a path that is asked for from now on, and what is known of it. Where that has a hash with null data
    // it is unknown: the caller fills it in, with a copy of the text. Nearly always O(1).
    std::size_t ask(std::string_view text);
    [[nodiscard]] Path& path(std::size_t number) { return asked_[number]; }

    // How many paths there were.
    [[nodiscard]] std::size_t expected() const { return known_ == nullptr ? 0 : known_->paths.size(); }
    // All that was asked for.
    [[nodiscard]] std::shared_ptr<const PathHashes> collected() const;

   private:
    [[nodiscard]] std::optional<std::size_t> find(std::string_view text);

    std::shared_ptr<const PathHashes> known_;  // may be null
    std::size_t next_ = 0;
    std::optional<TextTable> by_text_;  // of the known ones, once they come in another order
    std::vector<std::size_t> first_of_text_;
    std::vector<Path> asked_;
    bool as_known_ = true;  // all that were asked for so far are the known ones, in their order
};

// Recognizes the documents that the data produces, where it does so nearly in the order of the last time.
class ExpectedDocuments {
   public:
    explicit ExpectedDocuments(const LastUpdate& last)
        : last_(&last), found_(last.ids.size()), left_alone_(last.stays) {}

    // The document of that id, if the storage has it with just this content and nothing is left to be stored; or null.
    [[nodiscard]] const LastUpdate::Produced* find_unchanged(std::string_view id, std::string_view content);

    // The documents that the update leaves as they are: those found unchanged, and those that stay.
    [[nodiscard]] const std::vector<bool>& left_alone() const { return left_alone_; }
    [[nodiscard]] bool was_found(std::uint32_t number) const { return found_[number]; }
    [[nodiscard]] std::size_t size() const { return last_->produced.size(); }
    // Whether the data produced what it did the last time, in that order.
    [[nodiscard]] bool all_in_order() const { return searched_ == 0 && next_ == last_->produced.size(); }
    // Whether one was found twice.
    [[nodiscard]] bool any_repeated() const { return any_repeated_; }

   private:
    [[nodiscard]] const LastUpdate::Produced* find(std::string_view id);

    const LastUpdate* last_;
    std::vector<bool> found_;
    std::vector<bool> left_alone_;
    bool any_repeated_ = false;
    std::size_t next_ = 0;              // where the next one is expected
    std::size_t searched_ = 0;          // those that came at another place
    std::vector<std::uint32_t> place_;  // by number, once one was searched
};

}  // namespace libzentadbpp
