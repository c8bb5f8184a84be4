#include "couchdb/names.h"

#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace zentadb {

bool is_library_hash(std::string_view hash) {
    if (hash == "deleted" || hash == "resolved" || hash == "empty") return true;
    if (hash.starts_with('x') && hash.size() > 1) {
        return hash.find_first_not_of("0123456789", 1) == std::string_view::npos;
    }
    return hash.size() == 64 && hash.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

std::size_t generation_of(const Revision& revision) {
    std::size_t generation = 0;
    std::from_chars(revision.name.data(), revision.name.data() + revision.name.find('-'), generation);
    return generation;
}

std::string_view entry_of(const Revision& revision) {
    return std::string_view(revision.name).substr(revision.name.find('-') + 1);
}

std::string_view hash_of(std::string_view entry) { return entry.substr(0, entry.find('_')); }

bool is_ended(std::string_view entry) { return hash_of(entry) == "deleted" || hash_of(entry) == "resolved"; }

std::string server_id(std::string_view entry) {
    return std::string(is_library_hash(hash_of(entry)) ? entry : hash_of(entry));
}

std::string server_rev(const Revision& revision) {
    return std::to_string(generation_of(revision)) + "-" + server_id(entry_of(revision));
}

std::vector<std::size_t> tips_of(const RevisionTree& tree) {
    std::vector<std::size_t> tips;
    for (std::size_t at = 0; at < tree.revisions().size(); ++at) {
        if (tree[at].children.empty()) tips.push_back(at);
    }
    return tips;
}

bool is_acceptable_id(std::string_view id) {
    const auto is_plain = [](char character) {
        return character > ' ' && character != ',' && character != '-' && character != 0x7f;
    };
    const std::size_t at = id.find('_');
    const bool is_split = at == std::string_view::npos ||
                          (at > 0 && at + 1 < id.size() && id.find('_', at + 1) == std::string_view::npos);
    return !id.empty() && is_split && std::ranges::all_of(id, is_plain);
}

std::uint64_t mark_of(std::string_view document, std::string_view rev) {
    std::string text(document);
    text.append(1, '\0').append(rev);
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
    std::uint64_t mark = 0;
    for (std::size_t at = 0; at < 8; ++at) mark = mark << 8 | digest[at];
    return mark;
}

}  // namespace zentadb
