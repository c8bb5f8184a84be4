#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "memory/text_buffer.h"

namespace libzentadbpp {

// A compressed object: {"compressed": true, "data": <Base64 of a zlib stream>, "uncompressed_size": <bytes>}.

// Appends the compressed object of a text to `out` (standard JSON text). A text that would inflate too far to be opened
// again is compressed less. On failure appends nothing and returns the error record; on success returns the empty text.
[[nodiscard]] std::string compress_text(std::string_view text, TextBuffer& out);

struct Inflated {
    TextBuffer text;             // cut at the first NUL byte, as every text is
    std::string error;           // an error record; empty on success
    bool out_of_memory = false;  // rather than that the object is damaged
};
// Inflates "data" of a compressed object whose "uncompressed_size" reads as `claimed_size`. The claim is checked before
// any memory of that size is taken: more than 256 MiB and more than 64 times the length of `base64` is refused, as is
// more than the machine has.
[[nodiscard]] Inflated uncompress_text(std::string_view base64, double claimed_size);

void base64_encode(std::string_view bytes, TextBuffer& out);
// False if a character is outside the alphabet or the length is not a multiple of four; `out` is then unspecified.
[[nodiscard]] bool base64_decode(std::string_view text, TextBuffer& out);

}  // namespace libzentadbpp
