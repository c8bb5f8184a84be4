#include "json/compact_form.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string>
#include <system_error>
#include <vector>

#include "json/error.h"
#include "json/number_text.h"
#include "json/number_token.h"
#include "json/scanner.h"
#include "json/writer.h"
#include "memory/arena.h"

namespace libzentadbpp {
namespace {

[[noreturn]] void fail(const std::string& what) { throw ParseError("compact form: " + what); }

class CompactReader {
   public:
    CompactReader(std::string_view text, TextBuffer& out) : left_(text), out_(&out) {}

    void run() {
        do {
            write_next();
        } while (!open_.empty());
        if (!left_.empty()) throw ParseError("unexpected trailing " + described(left_.front()));
    }

   private:
    enum class Open : std::uint8_t { empty_array, array, empty_object, object };

    // The value that comes next, as far as its first child, or the end of the innermost open one.
    void write_next() {
        if (!open_.empty()) {
            Open& open = open_.back();
            const bool is_object = open == Open::empty_object || open == Open::object;
            if (peek() == 'x') {
                left_.remove_prefix(1);
                out_->push_back(is_object ? '}' : ']');
                open_.pop_back();
                return;
            }
            if (open == Open::array || open == Open::object) out_->append(", ");
            open = is_object ? Open::object : Open::array;
            if (is_object) {
                write_string("key");
                out_->append(": ");
            }
        }
        write_value();
    }

    void write_value() {
        if (take() != '@') fail("expected '@'");
        const char type = peek();
        if (type >= '0' && type <= '9') return write_string("string");
        left_.remove_prefix(1);
        switch (type) {
            case 'N':
                return out_->append("null");
            case 'T':
                return out_->append("true");
            case 'F':
                return out_->append("false");
            case 'i':
                return write_integer_body();
            case 'f':
                return write_real_body();
            case 'l':
                out_->push_back('[');
                return open_.push_back(Open::empty_array);
            case 'd':
                out_->push_back('{');
                return open_.push_back(Open::empty_object);
            default:
                fail("unknown type " + described(type));
        }
    }

    void write_string(const char* what) {
        std::uint64_t length = 0;
        const auto [end, error] = std::from_chars(left_.data(), left_.data() + left_.size(), length);
        if (error == std::errc::invalid_argument) fail(std::string("expected the length of a ") + what);
        left_.remove_prefix(static_cast<std::size_t>(end - left_.data()));
        if (take() != ':') fail(std::string("expected ':' after the length of a ") + what);
        if (error != std::errc() || length > left_.size()) fail(std::string(what) + " longer than the text");
        const auto size = static_cast<std::size_t>(length);
        write_json_string(left_.substr(0, size), *out_);
        left_.remove_prefix(size);
    }

    void write_integer_body() {
        const std::string_view body = take_number();
        std::int32_t value = 0;
        const auto [end, error] = std::from_chars(body.data(), body.data() + body.size(), value);
        if (error == std::errc::result_out_of_range) fail("integer out of range");
        if (error != std::errc() || end != body.data() + body.size()) fail("malformed integer");
        write_json_integer(value, *out_);
    }

    void write_real_body() {
        const std::string_view body = take_number();
        const NumberToken token = scan_number(body.data(), body.data() + body.size());
        if (token.fault != NumberToken::Fault::none || token.text.size() != body.size()) fail("malformed number");
        write_json_real(read_real(body), *out_);
    }

    // The body of a number and its "x".
    std::string_view take_number() {
        const std::size_t size = std::min(left_.find_first_not_of("0123456789+-.eE"), left_.size());
        const std::string_view body = left_.substr(0, size);
        left_.remove_prefix(size);
        if (take() != 'x') fail("expected 'x' after a number");
        return body;
    }

    [[nodiscard]] char peek() const {
        if (left_.empty()) fail("unexpected end");
        return left_.front();
    }
    char take() {
        const char c = peek();
        left_.remove_prefix(1);
        return c;
    }

    std::string_view left_;
    TextBuffer* out_;
    std::vector<Open> open_;
};

void write_compact_string(std::string_view text, TextBuffer& out) {
    if (text.find('\0') != std::string_view::npos) throw TextContainsNul();
    write_json_integer(static_cast<std::int64_t>(text.size()), out);
    out.push_back(':');
    out.append(text);
}

void write_compact_number(std::string_view text, TextBuffer& out) {
    const NumberToken token = scan_number(text.data(), text.data() + text.size());
    out.append(token.is_written_integer() ? "@i" : "@f");
    out.append(text);
    out.push_back('x');
}

}  // namespace

void compact_to_standard(std::string_view compact, TextBuffer& out) { CompactReader(compact, out).run(); }

void standard_to_compact(std::string_view standard, TextBuffer& out) {
    Arena decoded;
    JsonScanner scanner(standard, decoded);
    while (scanner.position() != standard.size()) {
        const char c = scanner.next_token();
        switch (c) {
            case ',':
            case ':':
                break;
            case '[':
                out.append("@l");
                break;
            case '{':
                out.append("@d");
                break;
            case ']':
            case '}':
                out.push_back('x');
                break;
            case '"': {
                const std::string_view text = scanner.read_string();
                const bool is_key = scanner.position() < standard.size() && standard[scanner.position()] == ':';
                if (!is_key) out.push_back('@');
                write_compact_string(text, out);
                break;
            }
            default:
                scanner.put_back();
                const std::string_view text = scanner.skip_value(0, 0);
                if (c == 'n') {
                    out.append("@N");
                } else if (c == 't' || c == 'f') {
                    out.append(c == 't' ? "@T" : "@F");
                } else {
                    write_compact_number(text, out);
                }
        }
    }
}

}  // namespace libzentadbpp
