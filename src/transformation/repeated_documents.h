#pragma once

#include <vector>

#include "data/data_hash.h"
#include "documents/document_storage.h"
#include "transformation/store_documents.h"

namespace libzentadbpp {

// Decides which contents of documents that the data has several times are stored; `documents` are ascending, those of
// one id in the order of storing. An element that merges left in two arrays is edited in one of them as a rule, and
// comes in two contents: those that any revision of the document has give way to the others. If a revision has each of
// them, the winning content stays if it is among them, else the last one. O(the contents of these documents).
void settle_repeated(std::vector<FlattenedDocument>& documents, const DocumentStorage& storage, DataHasher& hasher);

}  // namespace libzentadbpp
