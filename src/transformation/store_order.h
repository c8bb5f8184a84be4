#pragma once

#include "documents/document_storage.h"
#include "transformation/read_index.h"

namespace libzentadbpp {

// The storage of an index with the ordering documents of the index's instance rewritten where they are outdated.
[[nodiscard]] DocumentStorage store_order(const ReadIndex& index);

}  // namespace libzentadbpp
