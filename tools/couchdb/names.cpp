#include "couchdb/names.h"

#include <algorithm>
#include <charconv>
#include <zentadbpp_verify.hpp>

namespace zentadb {

std::string server_id(std::string_view entry) {
    return std::string(is_library_hash(hash_in(entry)) ? entry : hash_in(entry));
}

std::string server_rev(const Revision& revision) {
    return std::to_string(revision.generation()) + "-" + server_id(revision.entry());
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
    const std::string digest = zentadbpp::sha256(text);
    std::uint64_t mark = 0;
    constexpr std::size_t digits = 2 * sizeof mark;
    std::from_chars(digest.data(), digest.data() + digits, mark, 16);
    return mark;
}

}  // namespace zentadb
