#pragma once

#include <optional>
#include <string_view>

#include "documents/revision.h"
#include "json/value.h"
#include "memory/text_buffer.h"
#include "transformation/read_index.h"
#include "transformation/transformation_settings.h"

namespace libzentadbpp {

// Rebuilds the host's data from a storage and appends its text. It replaces references by their targets, removes the
// markers of strings, and gives documents their "_id" unless the settings discard it. Starts at the given document and
// revision; an empty id means the storage's root, no revision the winning one. A storage without documents gives "{}".
// O(size of the result).
//
// UnflattenerException; ObjectNotFoundException if a content was pruned; ParseError "exceeded maximum nesting depth" if
// the result would nest deeper than a text may; std::length_error if it would grow out of proportion to the storage,
// because documents refer to each other many times.
void unflatten(const ReadIndex& index, std::string_view root_id, const std::optional<Revision>& revision,
               bool discard_id, TextBuffer& out);

// Rebuilds the data from an array of flattened documents. The root is the given id; if that is empty, the document
// "root", or else the only document that is not an ordering document and that no other refers to.
void unflatten_array(const JsonValue& documents, std::string_view root_id, const TransformationSettings& settings,
                     TextBuffer& out);

}  // namespace libzentadbpp
