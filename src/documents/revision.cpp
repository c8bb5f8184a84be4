#include "documents/revision.h"

#include <limits>
#include <stdexcept>
#include <vector>

#include "json/error.h"
#include "text/text_split.h"

namespace libzentadbpp {

namespace {

// A state that the caller should have ruled out: reported by its bare key.
[[noreturn]] void invalid_state(const char* key) { throw InvalidRevisionException(key); }

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

std::string compose(std::uint32_t index, std::string_view datahash, std::string_view uuid) {
    std::string text = std::to_string(index);
    text.reserve(text.size() + datahash.size() + uuid.size() + 2);
    return text.append("-").append(datahash).append("_").append(uuid);
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
    uuid_ = names[1];
}

Revision::Revision(std::uint32_t index, std::string_view datahash_uuid) : index_(index) {
    const auto names = split(datahash_uuid, '_');
    if (names.size() != 2) {
        raise<InvalidRevisionException>(source::revision, "Revision", "invalid_revision_string_format", datahash_uuid);
    }
    datahash_ = names[0];
    uuid_ = names[1];
    revision_string_ = compose(index, datahash_, uuid_);
}

Revision::Revision(std::uint32_t index, std::string_view datahash, std::string_view uuid)
    : index_(index), datahash_(datahash), uuid_(uuid), revision_string_(compose(index, datahash, uuid)) {}

std::uint32_t Revision::index() const {
    if (is_null()) invalid_state("invalid_revision_state_index_zero");
    return index_;
}

const std::string& Revision::datahash() const {
    if (datahash_.empty()) invalid_state("invalid_revision_state_datahash_empty");
    return datahash_;
}

const std::string& Revision::revision_string() const {
    if (is_null()) invalid_state("invalid_revision_state_null");
    return revision_string_;
}

std::string Revision::datahash_uuid() const {
    if (datahash_.empty()) invalid_state("invalid_revision_state_datahash_empty");
    if (uuid_.empty()) invalid_state("invalid_revision_state_uuid_empty");
    return datahash_ + "_" + uuid_;
}

Revision Revision::generate_revision(const Revision& parent, std::string_view datahash) {
    if (parent.is_null()) return {1, datahash, first_suffix};
    if (parent.datahash() == datahash) {
        raise<InvalidRevisionException>(source::revision, "generate_revision",
                                        "cannot_generate_new_revision_for_same_datahash");
    }
    return {parent.index() + 1, datahash, suffix_under(parent.datahash())};
}

Revision Revision::deleted_revision(const Revision& parent) {
    return {parent.index() + 1, deleted_hash, suffix_under(parent.datahash())};
}

Revision Revision::resolved_revision(const Revision& parent) {
    return {parent.index() + 1, resolved_hash, suffix_under(parent.datahash())};
}

bool operator<(const Revision& a, const Revision& b) {
    if (a.index_ != b.index_) return a.index_ < b.index_;
    return a.index_ != 0 && a.revision_string_ < b.revision_string_;
}

}  // namespace libzentadbpp
