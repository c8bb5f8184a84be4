#pragma once

#include <charconv>
#include <cstddef>
#include <string_view>
#include <zentadbpp_verify.hpp>

namespace zentadb {

// How the library names documents, contents and revisions. A revision is "<generation>-<entry>", an entry of a history
// "<hash>_<suffix>".

inline constexpr std::string_view ordering_prefix = "ord-";
[[nodiscard]] inline bool is_ordering(std::string_view id) { return id.starts_with(ordering_prefix); }

// Whether the word in the place of a hash ends a branch: it is deleted, or closed.
[[nodiscard]] inline bool is_ended(std::string_view hash) { return hash == "deleted" || hash == "resolved"; }
// Whether a word is in the place of a hash, so that no content has this name.
[[nodiscard]] inline bool is_reserved(std::string_view hash) { return is_ended(hash) || hash == "empty"; }
[[nodiscard]] inline bool is_library_hash(std::string_view hash) {
    return is_reserved(hash) || zentadbpp::hash_kind(hash) != zentadbpp::HashKind::unknown;
}

[[nodiscard]] inline std::size_t generation_in(std::string_view revision) {
    std::size_t generation = 0;
    std::from_chars(revision.data(), revision.data() + revision.size(), generation);
    return generation;
}
[[nodiscard]] inline std::string_view entry_in(std::string_view revision) {
    return revision.substr(revision.find('-') + 1);
}
[[nodiscard]] inline std::string_view hash_in(std::string_view entry) { return entry.substr(0, entry.find('_', 1)); }
[[nodiscard]] inline std::string_view suffix_in(std::string_view entry) { return entry.substr(entry.find('_', 1) + 1); }
[[nodiscard]] inline bool is_deletion(std::string_view revision) { return hash_in(entry_in(revision)) == "deleted"; }

}  // namespace zentadb
