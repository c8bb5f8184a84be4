#pragma once

#include "documents/document_storage.h"
#include "json/value.h"
#include "memory/arena.h"
#include "memory/text_buffer.h"
#include "transformation/transformation_settings.h"

namespace libzentadbpp {

// Brings a storage up to date with the host's data: what changed gets a new revision, what is new a first one, what the
// data no longer holds a deleted one. The root of the result is the root of the data. What is new lies in the memory.
[[nodiscard]] DocumentStorage update(const DocumentStorage& storage, const JsonValue& data,
                                     const TransformationSettings& settings, Arena& arena, SharedMemory& memory);

// Flattens data on its own and appends the JSON array of its documents, ascending by id, each with its "_id".
void flatten_object(const JsonValue& data, const TransformationSettings& settings, Arena& arena, TextBuffer& out);

}  // namespace libzentadbpp
