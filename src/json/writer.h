#pragma once

#include <string_view>

#include "json/value.h"
#include "memory/text_buffer.h"

namespace libzentadbpp {

// Append the standard text of a value: members in key order, ", " and ": " between, numbers and strings in the one form
// that hashes depend on. Never recurses.
void write_json(const JsonValue& value, TextBuffer& out);
void write_json_string(std::string_view text, TextBuffer& out);  // with its quotes
void write_json_real(double value, TextBuffer& out);
void write_json_integer(std::int64_t value, TextBuffer& out);
// What write_json_string writes between the quotes.
void write_json_escaped(std::string_view text, TextBuffer& out);
void write_json_escaped(const JsonValue& string, TextBuffer& out);
// A key as a string, with what parts it from the member before and ": " behind it.
void write_json_key(std::string_view key, std::string_view separator, TextBuffer& out);

}  // namespace libzentadbpp
