#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace libzentadbpp {

// The reserved data hashes: they stand where a content's hash would.
inline constexpr std::string_view deleted_hash = "deleted";
inline constexpr std::string_view resolved_hash = "resolved";
inline constexpr std::string_view empty_hash = "empty";

// The suffix of a first revision, and of one under a parent with the given data hash.
inline constexpr std::string_view first_suffix = "first";
[[nodiscard]] inline std::string_view suffix_under(std::string_view parent_datahash) {
    return parent_datahash.substr(0, 7);
}

// One version of one document: a generation, the hash of its content, and a suffix that tells equal contents under
// different parents apart: "first", or the first seven characters of the parent's hash.
//
//   3-<data hash>_<suffix>
//
// Ordered by generation, then by the bytes of the revision string. Throws InvalidRevisionException.
class Revision {
   public:
    Revision() = default;                                           // the null revision: no revision at all
    explicit Revision(std::string_view revision_string);            // keeps the text as it stands
    Revision(std::uint32_t index, std::string_view datahash_uuid);  // splits the second at "_"
    Revision(std::uint32_t index, std::string_view datahash, std::string_view uuid);

    // Each fails with its bare key where the state has no such part.
    [[nodiscard]] std::uint32_t index() const;
    [[nodiscard]] const std::string& datahash() const;
    [[nodiscard]] const std::string& revision_string() const;
    [[nodiscard]] std::string datahash_uuid() const;
    [[nodiscard]] const std::string& uuid() const { return uuid_; }

    [[nodiscard]] bool is_null() const { return index_ == 0 && datahash_.empty() && uuid_.empty(); }
    [[nodiscard]] bool is_deleted() const { return datahash_ == deleted_hash; }
    [[nodiscard]] bool is_resolved() const { return datahash_ == resolved_hash; }

    [[nodiscard]] static Revision generate_revision(const Revision& parent, std::string_view datahash);
    [[nodiscard]] static Revision deleted_revision(const Revision& parent);
    [[nodiscard]] static Revision resolved_revision(const Revision& parent);

    friend bool operator==(const Revision& a, const Revision& b) {
        return a.index_ == b.index_ && a.datahash_ == b.datahash_ && a.uuid_ == b.uuid_;
    }
    friend bool operator<(const Revision& a, const Revision& b);

   private:
    std::uint32_t index_ = 0;
    std::string datahash_;
    std::string uuid_;
    std::string revision_string_;
};

}  // namespace libzentadbpp
