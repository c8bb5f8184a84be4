#include "documents/revision.h"

#include <limits>
#include <stdexcept>
#include <vector>

#include "json/error.h"
#include "text/text_split.h"

namespace libzentadbpp {

namespace {

constexpr bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Reads a number as std::stoi does in the C locale, whichever locale the host has set; what follows it is ignored.
std::int32_t read_int(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size() && is_space(text[at])) ++at;
    const bool negative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) ++at;

    const std::size_t digits = at;
    const std::int64_t limit = std::int64_t{std::numeric_limits<std::int32_t>::max()} + (negative ? 1 : 0);
    std::int64_t value = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        value = value * 10 + (text[at] - '0');
        if (value > limit) throw std::out_of_range("stoi argument out of range");
    }
    if (at == digits) throw std::invalid_argument("invalid stoi argument");
    return static_cast<std::int32_t>(negative ? -value : value);
}

}  // namespace

Revision::Revision(std::string_view revision_string) : revision_string_(revision_string) {
    if (revision_string.empty()) raise<InvalidRevisionException>(source::revision, "Revision", "empty_revision");
    const auto invalid_format = [&] {
        raise<InvalidRevisionException>(source::revision, "parse_revision", "invalid_revision_format", revision_string);
    };
    const auto parts = split(revision_string, '-');
    if (parts.size() != 2) invalid_format();
    const auto names = split(parts[1], '_');
    if (names.size() != 2) invalid_format();
    index_ = static_cast<std::uint32_t>(read_int(parts[0]));
    datahash_ = names[0];
}

}  // namespace libzentadbpp
