#pragma once

#include "json/value.h"
#include "memory/text_buffer.h"

namespace libzentadbpp {

// The difference between two flattened data sets, objects with the members "d" (arrays by key) and "o" (objects by
// key): for each member a list of operations, {"op": "remove" | "replace" | "add", "key", "before"?, "value"}. A
// missing member counts as an empty one. Appends the diff's text. O(both).
void write_diff(const JsonValue& before, const JsonValue& after, TextBuffer& out);

// Applies a diff's operations in order and appends the patched data's text. An operation without "op", "key" or (unless
// it is a "remove") "value" throws std::out_of_range("invalid map<K, T> key"). O((data + operations) log).
void write_patched(const JsonValue& before, const JsonValue& diff, TextBuffer& out);

}  // namespace libzentadbpp
