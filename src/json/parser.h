#pragma once

#include <span>
#include <string_view>

#include "json/scanner.h"
#include "json/value.h"
#include "memory/arena.h"

namespace libzentadbpp {

// Brings members, as they were read, into the order that JsonValue::object wants; of equal keys the last stays.
// Returns those that are left, from the front of `members`.
[[nodiscard]] std::span<JsonMember> settle_members(std::span<JsonMember> members);

// Brings a text that begins with '@' (the compact form) into standard text, kept in the arena; leaves any other as it
// is. An empty text throws std::out_of_range("invalid string_view position"), malformed compact form a ParseError.
[[nodiscard]] std::string_view to_standard_text(std::string_view text, Arena& arena);

// Parses a whole text in either form, nested to at most deepest_text.
[[nodiscard]] JsonValue parse_json(std::string_view text, Arena& arena, Comments comments = Comments::refused);

// Parses a whole text, in either form, as a sync JSON: if the outermost value is an object, its member "d" may nest
// without limit and each member of its member "o" to deepest_content levels of its own.
[[nodiscard]] JsonValue parse_sync_json_value(std::string_view text, Arena& arena);

}  // namespace libzentadbpp
