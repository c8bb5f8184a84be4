#include "json/canonical_object.h"

#include <cstddef>

#include "json/string.h"
#include "memory/arena.h"

namespace libzentadbpp {

const char* written_value_end(const char* begin, const char* end) {
    std::size_t open = 0;
    const char* at = begin;
    do {
        switch (*at) {
            case '"':
                at = written_string_end(at, end);
                break;
            case '{':
            case '[':
                ++open;
                ++at;
                break;
            case '}':
            case ']':
                --open;
                ++at;
                break;
            case ',':
            case ':':
            case ' ':
                ++at;
                break;
            default:
                while (*at != ',' && *at != '}' && *at != ']') ++at;
        }
    } while (open != 0);
    return at;
}

void DecodedString::decode() {
    Arena arena;
    decoded_ = decode_string(text_, arena);
    text_ = decoded_;
}

int compare_written_key(std::string_view escaped, std::string_view key) {
    return DecodedString(escaped).text().compare(key);
}

bool WrittenObject::next(WrittenMember& member) {
    if (*at_ == ',') at_ += 2;
    if (*at_ == '}') return false;
    const char* key_end = written_string_end(at_, end_);
    member.key = {at_ + 1, static_cast<std::size_t>(key_end - at_ - 2)};
    const char* value = key_end + 2;
    at_ = written_value_end(value, end_);
    member.value = {value, static_cast<std::size_t>(at_ - value)};
    return true;
}

void write_object_with(std::string_view object, std::span<const WrittenMember> members, TextBuffer& out) {
    ListSeparator separator;
    const auto write = [&](const WrittenMember& member) {
        separator.append_to(out);
        out.push_back('"');
        out.append(member.key);
        out.append("\": ");
        out.append(member.value);
    };
    out.push_back('{');
    auto due = members.begin();
    WrittenMember own;
    for (WrittenObject own_members(object); own_members.next(own);) {
        int order = -1;
        while (due != members.end() && (order = compare_written_key(own.key, due->key)) > 0) write(*due++);
        if (due != members.end() && order == 0) continue;
        write(own);
    }
    while (due != members.end()) write(*due++);
    out.push_back('}');
}

}  // namespace libzentadbpp
