#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace libzentadbpp {

// The reserved data hashes, which take the place of a content's hash.
inline constexpr std::string_view deleted_hash = "deleted";
inline constexpr std::string_view resolved_hash = "resolved";
inline constexpr std::string_view empty_hash = "empty";

// The suffix of a first revision, and of one under a parent with the given data hash.
inline constexpr std::string_view first_suffix = "first";
[[nodiscard]] inline std::string_view suffix_under(std::string_view parent_datahash) {
    return parent_datahash.substr(0, 7);
}

// The name of one version of one document, as hosts write it: a generation, the hash of the content, and a suffix that
// distinguishes equal contents under different parents: "first", or the first seven characters of the parent's hash.
//
//   3-<data hash>_<suffix>
class Revision {
   public:
    // Throws InvalidRevisionException, or what std::stoi throws for the generation.
    explicit Revision(std::string_view revision_string);

    [[nodiscard]] std::uint32_t index() const { return index_; }
    [[nodiscard]] const std::string& datahash() const { return datahash_; }
    [[nodiscard]] const std::string& revision_string() const { return revision_string_; }  // as it was given

   private:
    std::uint32_t index_ = 0;
    std::string datahash_;
    std::string revision_string_;
};

}  // namespace libzentadbpp
