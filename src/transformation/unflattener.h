#pragma once

#include <optional>
#include <string_view>

#include "documents/revision.h"
#include "json/value.h"
#include "memory/text_buffer.h"
#include "transformation/read_index.h"
#include "transformation/transformation_settings.h"

namespace libzentadbpp {

// Rebuilds the host's data from a storage and appends its text: references give way to what they name, strings lose
// their markers, and what was a document gets its "_id" unless it is to be discarded. Starts at the given document and
// revision; an empty id means the storage's root, no revision the winning one. A storage without documents gives "{}".
// O(size of the result).
//
// UnflattenerException; ObjectNotFoundException where a content was pruned; ParseError "exceeded maximum nesting depth"
// where the result would nest deeper than a text may, std::length_error where it would grow out of all proportion to
// the storage, as documents that refer to each other many times over can make it.
void unflatten(const ReadIndex& index, std::string_view root_id, const std::optional<Revision>& revision,
               bool discard_id, TextBuffer& out);

// Rebuilds the data from an array of flattened documents. The root is the given id; where that is empty, the document
// "root", or else the one document that is no ordering document and that no other refers to.
void unflatten_array(const JsonValue& documents, std::string_view root_id, const TransformationSettings& settings,
                     TextBuffer& out);

}  // namespace libzentadbpp
