#include "json/parser.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "json/compact_form.h"
#include "memory/text_buffer.h"
#include "text/first_bytes.h"
#include "text/sort_unique.h"

namespace libzentadbpp {
namespace {

// The members of an object whose brace was consumed; `read_member` returns the value under a key.
template <class ReadMember>
JsonValue read_members(JsonScanner& scanner, ReadMember read_member) {
    std::vector<JsonMember> members;
    for (char token = scanner.next_token(); token != '}'; token = scanner.after_member()) {
        const std::string_view key = scanner.read_key(token);
        members.push_back({key, read_member(key)});
    }
    const std::span<const JsonMember> settled = settle_members(members);
    return JsonValue::object(scanner.arena().copy(settled));
}

// Every content counts its nesting from itself. In a diff the contents lie in the operations of an array.
JsonValue read_contents(JsonScanner& scanner) {
    constexpr std::size_t operation_depth = 3;
    const Numbers around = scanner.numbers();
    scanner.read_numbers_as(Numbers::written);
    const bool is_object = scanner.next_token() == '{';
    if (!is_object) scanner.put_back();
    const JsonValue contents =
        is_object ? read_members(scanner, [&](std::string_view) { return scanner.read_value(0, deepest_content); })
                  : scanner.read_value(1, 1 + operation_depth + deepest_content);
    scanner.read_numbers_as(around);
    return contents;
}

JsonValue read_sync_json(JsonScanner& scanner) {
    if (scanner.next_token() != '{') {
        scanner.put_back();
        return scanner.read_value(0, deepest_text);
    }
    return read_members(scanner, [&](std::string_view key) {
        if (key == "o") return read_contents(scanner);
        return scanner.read_value(1, key == "d" ? no_depth_limit : deepest_text);
    });
}

Numbers numbers_of(std::string_view text) { return text.front() == '@' ? Numbers::written : Numbers::given; }

}  // namespace

std::span<JsonMember> settle_members(std::span<JsonMember> members) {
    const auto ascending = [](const JsonMember& a, const JsonMember& b) { return is_before(a.key, b.key); };
    return members.first(sort_keeping_last(members, ascending));
}

std::string_view to_standard_text(std::string_view text, Arena& arena) {
    if (text.empty()) throw std::out_of_range("invalid string_view position");
    if (text.front() != '@') return text;
    TextBuffer standard;
    compact_to_standard(text, standard);
    return arena.copy(standard.view());
}

JsonValue parse_json(std::string_view text, Arena& arena, Comments comments) {
    JsonScanner scanner(to_standard_text(text, arena), arena, comments);
    scanner.read_numbers_as(numbers_of(text));
    const JsonValue value = scanner.read_value(0, deepest_text);
    scanner.expect_end();
    return value;
}

JsonValue parse_sync_json_value(std::string_view text, Arena& arena) {
    JsonScanner scanner(to_standard_text(text, arena), arena);
    scanner.read_numbers_as(numbers_of(text));
    const JsonValue value = read_sync_json(scanner);
    scanner.expect_end();
    return value;
}

}  // namespace libzentadbpp
