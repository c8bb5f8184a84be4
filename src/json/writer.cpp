#include "json/writer.h"

#include <algorithm>
#include <cmath>

#include "json/number_text.h"
#include "memory/small_stack.h"
#include "text/byte_scan.h"
#include "text/short_text.h"

namespace libzentadbpp {
namespace {

void write_control(char c, TextBuffer& out) {
    constexpr std::string_view digits = "0123456789abcdef";
    constexpr std::string_view short_escapes = "\bb\ff\nn\rr\tt";
    const std::size_t at = short_escapes.find(c);
    if (at != std::string_view::npos) {
        out.push_back('\\');
        out.push_back(short_escapes[at + 1]);
        return;
    }
    out.append("\\u00");
    out.push_back(digits[static_cast<unsigned char>(c) >> 4]);
    out.push_back(digits[static_cast<unsigned char>(c) & 0xf]);
}

void write_scalar(const JsonValue& value, TextBuffer& out) {
    switch (value.kind()) {
        case JsonValue::Kind::boolean:
            return out.append(value.as_boolean() ? "true" : "false");
        case JsonValue::Kind::integer:
            return write_json_integer(value.as_int32(), out);
        case JsonValue::Kind::real:
            return write_json_real(value.as_real(), out);
        case JsonValue::Kind::string:
            out.push_back('"');
            write_json_escaped(value, out);
            return out.push_back('"');
        default:
            return out.append("null");
    }
}

struct Open {
    const JsonValue* container;
    std::size_t next;
};

// Writes what precedes the next child of an open container and returns the child, or null after the last one.
const JsonValue* next_child(Open& open, TextBuffer& out) {
    const std::size_t at = open.next++;
    if (open.container->is_array()) {
        const std::span elements = open.container->elements();
        if (at == elements.size()) return nullptr;
        if (at != 0) out.append(", ");
        return &elements[at];
    }
    const std::span members = open.container->members();
    if (at == members.size()) return nullptr;
    write_json_key(members[at].key, at == 0 ? "" : ", ", out);
    return &members[at].value;
}

}  // namespace

void write_json_escaped(std::string_view text, TextBuffer& out) {
    const char* run = text.data();
    const char* const end = run + text.size();
    const char* p = run;
    while ((p = find_stop<StopAt::escape>(p, end)) != end) {
        // Some scripts of programs cannot hold U+2028 and U+2029; all else that begins like them stays.
        const bool line_mark = *p == '\xe2';
        if (line_mark && (end - p < 3 || p[1] != '\x80' || (p[2] != '\xa8' && p[2] != '\xa9'))) {
            ++p;
            continue;
        }
        out.append({run, static_cast<std::size_t>(p - run)});
        if (line_mark) {
            out.append(p[2] == '\xa8' ? "\\u2028" : "\\u2029");
            p += 3;
        } else if (*p == '"' || *p == '\\') {
            out.push_back('\\');
            out.push_back(*p++);
        } else {
            write_control(*p++, out);
        }
        run = p;
    }
    out.append({run, static_cast<std::size_t>(end - run)});
}

void write_json_escaped(const JsonValue& string, TextBuffer& out) {
    const std::string_view written = string.written_string();
    if (written.data() == nullptr) return write_json_escaped(string.as_string(), out);
    out.append(written);
}

void write_json_string(std::string_view text, TextBuffer& out) {
    if (!has_stop<StopAt::escape>(text)) {
        char* at = out.grow(text.size() + 2);
        *at++ = '"';
        at = copy_short(text, at);
        *at = '"';
        return;
    }
    out.push_back('"');
    write_json_escaped(text, out);
    out.push_back('"');
}

void write_json_key(std::string_view key, std::string_view separator, TextBuffer& out) {
    if (!has_stop<StopAt::escape>(key)) {
        char* at = out.grow(separator.size() + key.size() + 4);
        at = copy_short(separator, at);
        *at++ = '"';
        at = copy_short(key, at);
        std::ranges::copy(std::string_view("\": "), at);
        return;
    }
    out.append(separator);
    write_json_string(key, out);
    out.append(": ");
}

void write_json_real(double value, TextBuffer& out) {
    if (!std::isfinite(value)) return out.append("null");
    char digits[longest_number];
    out.append({digits, static_cast<std::size_t>(write_real(value, digits) - digits)});
}

void write_json_integer(std::int64_t value, TextBuffer& out) {
    char digits[longest_number];
    out.append({digits, static_cast<std::size_t>(write_integer(value, digits) - digits)});
}

void write_json(const JsonValue& value, TextBuffer& out) {
    SmallStack<Open, 32> open;
    const JsonValue* current = &value;
    for (;;) {
        if (current->is_array() || current->is_object()) {
            out.push_back(current->is_array() ? '[' : '{');
            open.push({current, 0});
        } else {
            write_scalar(*current, out);
        }
        do {
            if (open.empty()) return;
            current = next_child(open.top(), out);
            if (current == nullptr) {
                out.push_back(open.top().container->is_array() ? ']' : '}');
                open.pop();
            }
        } while (current == nullptr);
    }
}

}  // namespace libzentadbpp
