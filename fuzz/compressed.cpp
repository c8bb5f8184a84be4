// Compressed objects and Base64, beside what zlib says of the same bytes.

#define ZLIB_CONST
#include <zlib.h>

#include "checks.h"
#include "generate.h"
#include "json/random_json.h"
#include "libzentadbpp/object_compression.h"

namespace fuzzing {
namespace {

using namespace libzentadbpp;

std::string deflated(const std::string& text) {
    TextBuffer object;
    TextBuffer stream;
    EXPECT_EQ(compress_text(text, object), "");
    EXPECT_TRUE(base64_decode(c_api::unquoted(c_api::member(object.view(), "data")), stream));
    return std::string(stream.view());
}

// Whether the bytes begin with a sound stream that makes exactly so many.
bool is_sound(const std::string& stream, std::size_t size) {
    std::string text(size + 1, '\0');
    uLongf made = text.size();
    uLong read = stream.size();
    return uncompress2(reinterpret_cast<Bytef*>(text.data()), &made, reinterpret_cast<const Bytef*>(stream.data()),
                       &read) == Z_OK &&
           made == size;
}

void check_base64(const std::string& bytes) {
    TextBuffer encoded;
    TextBuffer decoded;
    base64_encode(bytes, encoded);
    EXPECT_TRUE(base64_decode(encoded.view(), decoded));
    EXPECT_EQ(decoded.view(), bytes);
    TextBuffer other;
    if (!base64_decode(bytes, other) || bytes.empty()) return;
    TextBuffer again;
    base64_encode(other.view(), again);
    EXPECT_EQ(again.view().substr(0, again.size() - 4), std::string_view(bytes).substr(0, bytes.size() - 4));
}

// A stream that is sound or damaged, with an honest size or another.
void check_stream(Choices& choices) {
    Generator generate(choices);
    const std::string text = choices.one_in(3) ? generate.json() : generate.any_set();
    std::string stream = choices.one_in(12) ? choices.bytes(40) : deflated(text);
    for (std::size_t left = choices.below(3); left > 0 && !stream.empty(); --left) {
        stream[choices.below(stream.size())] ^= static_cast<char>(1U << choices.below(8));
    }
    if (choices.one_in(8)) stream.resize(choices.below(stream.size() + 10));
    const std::size_t size = choices.one_in(6) ? choices.below(1000) : text.size();
    const std::string claim = choices.one_in(8) ? generate.number() : std::to_string(size);
    const std::string object = compressed_object(stream, claim);

    const c_api::Answer opened = c_api::taken(sync_json_uncompress(object.c_str()));
    expect_sound(opened, false);
    if (claim == std::to_string(size)) {
        const bool was_damaged = opened.error.find("\"failed_to_uncompress_data\"") != std::string::npos;
        EXPECT_EQ(was_damaged, !is_sound(stream, size)) << opened.error;
    }
    if (opened.value && !c_api::is_compressed(*opened.value) && !testing_json::may_hold_minus_zero(*opened.value)) {
        EXPECT_EQ(c_api::uncompressed(c_api::compressed(*opened.value)), *opened.value);
    }
    const c_api::Answer handle = c_api::open(object);
    expect_sound(handle, true);
    EXPECT_TRUE(opened.value || !handle.handle) << opened.error;
}

}  // namespace
}  // namespace fuzzing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace fuzzing;
    Choices choices(data, size);
    if (choices.one_in(4)) {
        check_base64(choices.rest());
    } else {
        check_stream(choices);
    }
    return 0;
}
