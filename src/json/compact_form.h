#pragma once

#include <string_view>

#include "memory/text_buffer.h"

namespace libzentadbpp {

// The compact text form: every value begins with '@' and a type letter; strings have a length and are never escaped.
// The library works on standard text and translates the compact form when texts enter and leave.
//
//   null @N   true @T   false @F   integer @i<digits>x   real @f<number>x   string @<bytes>:<raw bytes>
//   array @l<values>x   object @d(<key bytes>:<raw key><value>)*x

// Appends the standard text of a compact text. Throws ParseError; every length is checked against what is left.
// Keeps member order and duplicate keys: the reader of the standard text deals with them.
void compact_to_standard(std::string_view compact, TextBuffer& out);

// A C text of the compact form cannot represent a string that contains a NUL byte.
struct TextContainsNul {};

// Appends the compact text of a standard text that this library wrote. Throws TextContainsNul.
void standard_to_compact(std::string_view standard, TextBuffer& out);

}  // namespace libzentadbpp
