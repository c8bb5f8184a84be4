#include "contents/ordering_content.h"

#include "contents/vocabulary.h"
#include "json/writer.h"

namespace libzentadbpp {

std::optional<OrderingContent> read_ordering_content(std::string_view content, Arena& arena) {
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

bool is_ordering_document(std::string_view id, std::optional<std::string_view> winning_content) {
    if (!has_ordering_id(id)) return false;
    if (!winning_content) return true;
    Arena arena;
    return read_ordering_content(*winning_content, arena).has_value();
}

bool is_ordering_document(const MultiVersionDocument& document, const DataStorage& data) {
    if (!has_ordering_id(document.id())) return false;
    if (!document.has_winning() || DataStorage::is_reserved(document.winning().datahash())) return true;
    return is_ordering_document(document.id(), data.find(document.winning().datahash()));
}

}  // namespace libzentadbpp
