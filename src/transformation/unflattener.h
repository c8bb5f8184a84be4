#pragma once

#include <optional>
#include <string_view>

#include "common/json_value.h"
#include "common/text_buffer.h"
#include "documents/document_storage.h"
#include "transformation/transformation_settings.h"

namespace libzentadbpp {

// Rebuilds the host's data from a storage and appends its text: references give way to what they name, strings lose
// their markers, and what was a document gets its "_id". Starts at the given document and revision; an empty id means
// the storage's root, no revision the winning one. A storage without documents gives "{}".
//
// UnflattenerException; ObjectNotFoundException where a content was pruned; ParseError "exceeded maximum nesting depth"
// where the result would nest deeper than a text may, std::length_error where it would grow out of all proportion to
// the storage, as documents that refer to each other many times over can make it.
void unflatten(const DocumentStorage& storage, std::string_view root_id, const std::optional<Revision>& revision,
               const TransformationSettings& settings, TextBuffer& out);

// Rebuilds the data as unflatten does, and answers the storage with the ordering documents of the configured instance
// brought up to date.
[[nodiscard]] DocumentStorage read_and_reorder(const DocumentStorage& storage, const TransformationSettings& settings,
                                               TextBuffer& out);

// Rebuilds the data from an array of flattened documents. The root is the given id; where that is empty, the document
// "root", or else the one document that is no ordering document and that no other refers to.
void unflatten_array(const JsonValue& documents, std::string_view root_id, const TransformationSettings& settings,
                     TextBuffer& out);

}  // namespace libzentadbpp
