#pragma once

#include <optional>
#include <string>
#include <zentadbpp.hpp>

#include "store/files.h"

namespace zentadb {

// A store is a file that holds a sync JSON, compressed or not.
struct Store {
    std::string path;
    zentadbpp::Handle handle;
    bool compressed = false;
    std::string text{};  // that it was opened from, if it is only read
};

// Opens the store in a file, or the one that comes from standard input. Throws Failure (damaged) if it is not a sync
// JSON.
[[nodiscard]] Store open_store(const std::string& path);

// A store that is to be changed. It is locked from here on, so that nobody's change is lost between reading and
// writing.
//
//     StoreChange change(path, output);
//     change.commit(change.store().handle.resolve(id, rev));
class StoreChange {
   public:
    enum class Missing { fails, is_empty };

    // With an output, that is written instead, and the store is only read. From "-" it goes to "-".
    explicit StoreChange(const std::string& path, const std::string& output = {}, Missing missing = Missing::fails);

    [[nodiscard]] Store& store() { return store_; }
    // Writes the new state, compressed if the store was. Writes nothing if the file already contains it.
    void commit(const zentadbpp::Handle& changed);
    // Whether stores that are written from now on are compressed.
    void compress(bool compressed) { compressed_ = compressed; }

   private:
    std::optional<FileLock> lock_;
    std::string text_;
    Store store_;
    std::string output_;
    bool compressed_ = false;
};

}  // namespace zentadb
