#pragma once

#include <string_view>

#include "contents/vocabulary.h"
#include "json/canonical_object.h"
#include "json/scanner.h"
#include "json/value.h"
#include "memory/arena.h"
#include "text/pair_scan.h"

namespace libzentadbpp {

// What a content refers to: strings that begin with "A" name the domain of an array, those with "O" the id of a
// document. An object with the member "#nf" refers to nothing, and neither does a member "_id" of an inline object.

// A content as a tree.
[[nodiscard]] inline JsonValue read_content(std::string_view content, Arena& arena) {
    JsonScanner scanner(content, arena);
    scanner.read_numbers_as(Numbers::written);
    return scanner.read_value(0, deepest_content);
}

// Calls `visit(marker, target)` for every reference of a value. Recursion is bounded by the depth of one content.
template <class Visit>
void visit_references_in(const JsonValue& value, const Visit& visit) {
    if (value.is_string()) {
        const std::string_view text = value.as_string();
        if (text.starts_with(vocabulary::array_reference_marker) ||
            text.starts_with(vocabulary::object_reference_marker)) {
            visit(text.front(), text.substr(1));
        }
    } else if (value.is_array()) {
        for (const JsonValue& element : value.elements()) visit_references_in(element, visit);
    } else if (value.find(vocabulary::no_flatten_key) == nullptr) {
        for (const auto& [key, member] : value.members()) {
            if (key != vocabulary::id_key) visit_references_in(member, visit);
        }
    }
}

// Whether a written content has a key that begins like "#nf"; the writer never escapes that.
[[nodiscard]] inline bool may_hold_verbatim(std::string_view content) {
    const char* const end = content.data() + content.size();
    constexpr char marker = vocabulary::no_flatten_key.front();
    return find_pair(content.data(), end, {'"', marker, marker}) != end;
}

// Calls `visit(marker, target, at)` for every reference of a written content that holds nothing verbatim, `at` being
// where its string begins. The target lives as long as the visit.
template <class Visit>
void visit_plain_references(std::string_view content, const Visit& visit) {
    const char* const begin = content.data();
    const char* const end = begin + content.size();
    constexpr BytePair reference{'"', vocabulary::array_reference_marker, vocabulary::object_reference_marker};
    const char* at = find_pair(begin, end, reference);
    constexpr std::string_view id_member = R"("_id": )";
    // In a written text a quote before a letter opens a string, unless it is escaped.
    for (; at != end; at = find_pair(at + 1, end, reference)) {
        if (at[-1] == '\\') continue;
        const char* const string_end = written_string_end(at, end);
        if (*string_end == ':') continue;  // a key
        const std::string_view before(begin, static_cast<std::size_t>(at - begin));
        if (before.ends_with(id_member) && before[before.size() - id_member.size() - 1] != '\\') continue;
        visit(at[1], DecodedString({at + 2, static_cast<std::size_t>(string_end - at - 3)}).text(), at);
    }
}

// Calls `visit(marker, target)` for every reference of any written content.
template <class Visit>
void visit_references(std::string_view content, const Visit& visit) {
    if (may_hold_verbatim(content)) {
        Arena arena;
        return visit_references_in(read_content(content, arena), visit);
    }
    visit_plain_references(content, [&](char marker, std::string_view target, const char*) { visit(marker, target); });
}

}  // namespace libzentadbpp
