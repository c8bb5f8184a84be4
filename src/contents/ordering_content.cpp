#include "contents/ordering_content.h"

#include "contents/vocabulary.h"
#include "json/writer.h"
#include "text/byte_scan.h"

namespace libzentadbpp {

namespace {

// What nearly all of them look like: the three members that this library writes, without escapes. Null data if a
// content does not.
OrderingContent read_plain(std::string_view content) {
    const char* at = content.data();
    const char* const end = at + content.size();
    const auto take = [&](std::string_view expected) {
        if (!std::string_view(at, static_cast<std::size_t>(end - at)).starts_with(expected)) return false;
        at += expected.size();
        return true;
    };
    const auto take_string = [&] {
        const char* const begin = at;
        at = find_stop<StopAt::string_end>(begin, end);
        return std::string_view(begin, static_cast<std::size_t>(at - begin));
    };
    OrderingContent read;
    if (!take(R"({"d": ")")) return {};
    read.domain = take_string();
    if (!take(R"(", "i": ")")) return {};
    read.instance = take_string();
    if (!take(R"(", "s": )") || *at != '[') return {};
    read.ids = {at, static_cast<std::size_t>(end - at)};
    return read;
}

}  // namespace

std::optional<OrderingContent> read_ordering_content(std::string_view content, Arena& arena) {
    if (const OrderingContent plain = read_plain(content); plain.ids.data() != nullptr) return plain;
    OrderingContent read;
    const char* const end = content.data() + content.size();
    const char* at = content.data() + 1;
    while (*at != '}') {
        if (*at == ',') at += 2;
        const char* const key_end = written_string_end(at, end);
        const std::string_view key = inside_quotes({at, static_cast<std::size_t>(key_end - at)});
        const char* const value = key_end + 2;
        if (key == vocabulary::ordering_ids_key && *value == '[') {
            read.ids = {value, static_cast<std::size_t>(end - value)};
            break;  // members are in ascending order
        }
        at = written_value_end(value, end);
        if (*value != '"') continue;
        const DecodedString string(inside_quotes({value, static_cast<std::size_t>(at - value)}));
        if (key == vocabulary::ordering_domain_key) read.domain = string.text_in(arena);
        if (key == vocabulary::ordering_instance_key) read.instance = string.text_in(arena);
    }
    const bool is_complete =
        read.ids.data() != nullptr && read.domain.data() != nullptr && read.instance.data() != nullptr;
    return is_complete ? std::optional(read) : std::nullopt;
}

void write_ordering_content(std::string_view instance, std::string_view domain, std::span<const std::string_view> ids,
                            TextBuffer& out) {
    out.append(R"({"d": )");
    write_json_string(domain, out);
    out.append(R"(, "i": )");
    write_json_string(instance, out);
    out.append(R"(, "s": [)");
    ListSeparator separator;
    for (const std::string_view id : ids) {
        separator.append_to(out);
        write_json_string(id, out);
    }
    out.append("]}");
}

bool OrderingDocuments::contains(const MultiVersionDocument& document) { return contains(document, {}); }

bool OrderingDocuments::contains(const MultiVersionDocument& document, std::string_view winning_content) {
    if (!has_ordering_id(document.id())) return false;
    if (winning_content.data() != nullptr && is_list(winning_content)) return true;
    if (!document.has_winning() || DataStorage::is_reserved(document.winning().datahash())) return true;
    if (winning_content.data() != nullptr) return false;
    const auto content = data_->find(document.winning().datahash());
    return !content || is_list(*content);
}

bool OrderingDocuments::is_list(std::string_view content) {
    constexpr std::size_t cheap_to_repeat = 1024;
    const auto read = [&] {
        Arena arena;
        return read_ordering_content(content, arena).has_value();
    };
    if (content.size() <= cheap_to_repeat) return read();
    const auto known = long_contents_.find(content.data());
    return known != long_contents_.end() ? known->second : long_contents_.emplace(content.data(), read()).first->second;
}

}  // namespace libzentadbpp
