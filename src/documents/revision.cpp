#include "documents/revision.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <system_error>

#include "json/error.h"
#include "text/text_split.h"

namespace libzentadbpp {

namespace {

// Reads a number as std::stoi does in the C locale, whichever locale the host has set; what follows it is ignored.
std::int32_t read_int(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
    std::int32_t value = 0;
    const std::errc error = std::from_chars(text.data(), text.data() + text.size(), value).ec;
    if (error == std::errc::result_out_of_range) throw std::out_of_range("stoi argument out of range");
    if (error != std::errc()) throw std::invalid_argument("invalid stoi argument");
    return value;
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
