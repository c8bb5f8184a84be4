#pragma once

#include <memory>

#include "documents/document_storage.h"
#include "json/value.h"
#include "memory/arena.h"
#include "memory/text_buffer.h"
#include "transformation/last_update.h"
#include "transformation/transformation_settings.h"

namespace libzentadbpp {

// Brings a storage up to date with the host's data: what changed gets a new revision, what is new a first one, what the
// data no longer holds a deleted one. The root of the result is the root of the data. What is new lies in the memory.
[[nodiscard]] DocumentStorage update(const DocumentStorage& storage, const JsonValue& data,
                                     const TransformationSettings& settings, Arena& arena, SharedMemory& memory);

// The same for a storage that outlives the call, and may be updated again: what the last update learned of it, if there
// is anything, makes this one faster, and what this one learned the next. The result is the same.
enum class Remember : bool { no, yes };
struct Updated {
    DocumentStorage storage;
    std::shared_ptr<const LastUpdate> last;  // of that storage; null where little can be expected of it
    bool as_it_was = false;                  // all documents are as they were: it is also one of the storage before
};
[[nodiscard]] Updated update_again(const DocumentStorage& storage, const JsonValue& data,
                                   const TransformationSettings& settings, Arena& arena, SharedMemory& memory,
                                   const std::shared_ptr<const LastUpdate>& last, Remember remember);

// Flattens data on its own and appends the JSON array of its documents, ascending by id, each with its "_id".
void flatten_object(const JsonValue& data, const TransformationSettings& settings, Arena& arena, TextBuffer& out);

}  // namespace libzentadbpp
