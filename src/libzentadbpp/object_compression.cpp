#include "libzentadbpp/object_compression.h"

#define ZLIB_CONST
#include <unistd.h>
#include <zlib.h>

#if defined(ZENTADBPP_LIBDEFLATE)
#include <libdeflate.h>
#endif

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <new>

#include "json/error.h"
#include "json/writer.h"

namespace libzentadbpp {

namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t no_digit = 0x80;

constexpr auto digit_values = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(no_digit);
    for (std::size_t i = 0; i < alphabet.size(); ++i) {
        values[static_cast<unsigned char>(alphabet[i])] = static_cast<std::uint8_t>(i);
    }
    return values;
}();

constexpr std::string_view failed_to_uncompress = "failed_to_uncompress_data";
constexpr std::string_view failed_to_allocate = "failed_to_allocate_memory_for_uncompressed_data";

std::string failure(std::string_view function, std::string_view error, int line = __builtin_LINE()) {
    return error_record(source::interface, line, function, error);
}

const Bytef* bytes_of(std::string_view text) { return reinterpret_cast<const Bytef*>(text.data()); }

uInt portion(std::uint64_t size) {
    return static_cast<uInt>(std::min<std::uint64_t>(size, std::numeric_limits<uInt>::max()));
}

// No text larger than the memory of the machine can be had, whatever the allocator promises.
double memory_size() {
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long page_size = sysconf(_SC_PAGESIZE);
    if (pages <= 0 || page_size <= 0) return 0x1p47;
    return static_cast<double>(pages) * static_cast<double>(page_size);
}

bool can_be_allocated(double size) { return size >= 0 && size <= memory_size() && size == std::trunc(size); }

constexpr std::size_t base64_size(std::size_t bytes) { return (bytes / 3 + (bytes % 3 != 0)) * 4; }

// A small text can hold a stream that inflates to a thousand times its size, and most of what hosts keep never comes
// near this.
bool is_inflated_too_far(double size, std::size_t base64_size) {
    constexpr double always_allowed = 0x1p28;
    constexpr double largest_ratio = 64;
    return size > always_allowed && size > largest_ratio * static_cast<double>(base64_size);
}

class InflateStream {
   public:
    explicit InflateStream(std::string_view compressed) : rest_(compressed) {
        begun_ = checked(inflateInit(&stream_)) == Z_OK;
    }
    ~InflateStream() {
        if (begun_) inflateEnd(&stream_);
    }
    InflateStream(const InflateStream&) = delete;
    InflateStream& operator=(const InflateStream&) = delete;

    // Inflates the whole stream, and returns whether it is sound and makes exactly `size` bytes. Memory is taken as
    // they come, so that a false size costs nothing.
    [[nodiscard]] bool run(std::uint64_t size, TextBuffer& out) {
        if (!begun_) return false;
        constexpr std::uint64_t step = std::uint64_t{1} << 18;
        constexpr std::uint64_t usual_ratio = 64;
        const std::uint64_t room = size + 1;  // a byte too many shows that the stream is longer
        out.reserve(static_cast<std::size_t>(std::min(room, usual_ratio * rest_.size() + step)));
        for (int status = Z_OK; status == Z_OK && out.size() < room;) {
            feed();
            const uInt wanted = portion(std::min(step, room - out.size()));
            stream_.next_out = reinterpret_cast<Bytef*>(out.grow(wanted));
            stream_.avail_out = wanted;
            status = checked(inflate(&stream_, Z_NO_FLUSH));
            out.truncate(out.size() - stream_.avail_out);
            if (status == Z_STREAM_END) return out.size() == size;
        }
        return false;
    }

   private:
    static int checked(int status) {
        if (status == Z_MEM_ERROR) throw std::bad_alloc();
        return status;
    }

    void feed() {
        if (stream_.avail_in != 0) return;
        stream_.avail_in = portion(rest_.size());
        stream_.next_in = bytes_of(rest_);
        rest_.remove_prefix(stream_.avail_in);
    }

    z_stream stream_{};
    std::string_view rest_;
    bool begun_ = false;
};

#if defined(ZENTADBPP_LIBDEFLATE)
// Level 6 is the quickest whose streams are not larger than those of zlib's default level. Inflating stays with zlib,
// as libdeflate accepts invalid streams that zlib refuses.
[[nodiscard]] bool deflate_default(std::string_view text, TextBuffer& out) {
    constexpr int level = 6;
    const std::unique_ptr<libdeflate_compressor, decltype(&libdeflate_free_compressor)> compressor(
        libdeflate_alloc_compressor(level), libdeflate_free_compressor);
    if (!compressor) return false;
    const std::size_t room = libdeflate_zlib_compress_bound(compressor.get(), text.size());
    char* place = out.grow(room);
    const std::size_t size = libdeflate_zlib_compress(compressor.get(), text.data(), text.size(), place, room);
    out.truncate(size);
    return size != 0;
}
#else
[[nodiscard]] bool deflate_default(std::string_view text, TextBuffer& out) {
    uLongf size = compressBound(text.size());
    auto* place = reinterpret_cast<Bytef*>(out.grow(size));
    if (compress(place, &size, bytes_of(text), text.size()) != Z_OK) return false;
    out.truncate(size);
    return true;
}
#endif

// Without looking for repetitions, so that eight bits become one at best.
[[nodiscard]] bool deflate_moderately(std::string_view text, TextBuffer& out) {
    constexpr int default_memory = 8;
    constexpr uInt step = uInt{1} << 18;
    z_stream stream{};
    if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, MAX_WBITS, default_memory, Z_HUFFMAN_ONLY) != Z_OK) {
        return false;
    }
    const std::unique_ptr<z_stream, decltype(&deflateEnd)> ending(&stream, deflateEnd);
    int status = Z_OK;
    while (status == Z_OK) {
        if (stream.avail_in == 0) {
            stream.next_in = bytes_of(text);
            stream.avail_in = portion(text.size());
            text.remove_prefix(stream.avail_in);
        }
        stream.next_out = reinterpret_cast<Bytef*>(out.grow(step));
        stream.avail_out = step;
        status = deflate(&stream, text.empty() ? Z_FINISH : Z_NO_FLUSH);
        out.truncate(out.size() - stream.avail_out);
    }
    return status == Z_STREAM_END;
}

}  // namespace

std::string compress_text(std::string_view text, TextBuffer& out) {
    TextBuffer compressed;
    bool done = deflate_default(text, compressed);
    if (done && is_inflated_too_far(static_cast<double>(text.size()), base64_size(compressed.size()))) {
        compressed.clear();
        done = deflate_moderately(text, compressed);
    }
    if (!done) return failure("compress_object", failed_to_uncompress);

    out.append(R"({"compressed": true, "data": ")");
    base64_encode(compressed.view(), out);
    out.append(R"(", "uncompressed_size": )");
    write_json_integer(static_cast<std::int64_t>(text.size()), out);
    out.push_back('}');
    return {};
}

Inflated uncompress_text(std::string_view base64, double claimed_size) {
    constexpr std::string_view function = "uncompress_object";
    if (!can_be_allocated(claimed_size) || is_inflated_too_far(claimed_size, base64.size()))
        return {{}, failure(function, failed_to_allocate)};
    try {
        TextBuffer compressed;
        Inflated result;
        if (!base64_decode(base64, compressed) ||
            !InflateStream(compressed.view()).run(static_cast<std::uint64_t>(claimed_size), result.text)) {
            return {{}, failure(function, failed_to_uncompress)};
        }
        result.text.truncate(std::min(result.text.view().find('\0'), result.text.size()));
        return result;
    } catch (const std::bad_alloc&) {
        return {{}, failure(function, failed_to_allocate), true};
    }
}

void base64_encode(std::string_view bytes, TextBuffer& out) {
    const auto byte = [bytes](std::size_t i) { return std::uint32_t{static_cast<unsigned char>(bytes[i])}; };
    char* place = out.grow(base64_size(bytes.size()));
    const auto write_group = [&place](std::uint32_t bits) {
        for (const int shift : {18, 12, 6, 0}) *place++ = alphabet[(bits >> shift) & 63];
    };
    std::size_t i = 0;
    for (; bytes.size() - i >= 3; i += 3) write_group(byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2));
    switch (bytes.size() - i) {
        case 1:
            write_group(byte(i) << 16);
            place[-1] = place[-2] = '=';
            break;
        case 2:
            write_group(byte(i) << 16 | byte(i + 1) << 8);
            place[-1] = '=';
            break;
        default:
            break;
    }
}

bool base64_decode(std::string_view text, TextBuffer& out) {
    if (text.size() % 4 != 0) return false;
    if (text.empty()) return true;
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    const std::size_t groups = text.size() / 4;
    char* place = out.grow(groups * 3);
    std::uint8_t seen = 0;
    const auto read_group = [&](std::array<char, 4> group) {
        std::uint32_t bits = 0;
        for (const char c : group) {
            const std::uint8_t value = digit_values[static_cast<unsigned char>(c)];
            seen |= value;
            bits = bits << 6 | value;
        }
        for (const int shift : {16, 8, 0}) *place++ = static_cast<char>(bits >> shift);
    };
    for (std::size_t i = 0; i + 1 < groups; ++i) {
        read_group({text[4 * i], text[4 * i + 1], text[4 * i + 2], text[4 * i + 3]});
    }
    std::array<char, 4> last{};
    text.copy(last.data(), 4, text.size() - 4);
    std::fill(last.end() - static_cast<std::ptrdiff_t>(padding), last.end(), alphabet.front());
    read_group(last);
    out.truncate(out.size() - padding);
    return (seen & no_digit) == 0;
}

}  // namespace libzentadbpp
