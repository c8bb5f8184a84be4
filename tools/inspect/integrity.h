#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zentadb {

// Checks a sync JSON for damage that the library does not look for, because it does not verify hashes and names:
// whether contents hash to their names, revisions name their parents, and referenced documents exist. It finds what
// storage or transfer did to a text. It is not a signature: whoever forges a text can make its hashes match.
//
// Only the public interface of the library is used, and docs/format.md.

enum class Trouble : std::uint8_t {
    // The library makes no such text, so this is damage.
    wrong_content,      // the text of a content does not hash to its name
    wrong_suffix,       // a revision does not name its parent
    wrong_ordering_id,  // an ordering document's id is not that of its list
    missing_document,   // a content refers to a document that is not there
    no_leaf,            // a document has no revision that could win
    duplicate_key,      // of two entries under one key the first is not read
    not_read,           // a content that no revision names, or a history that is read only in part
    unknown_member,     // the library does not know this member of the sync JSON, and drops it

    // There may be a good reason for this, or it is damage.
    missing_content,        // what a revision names is not there: it was pruned or is lost
    unreferenced_document,  // no content that is there refers to the document
    unknown_hash,           // not of the library's making, such as a server's: it cannot be checked
    unreadable_content,     // not UTF-8: its references cannot be checked, while its hash was
    written_differently,    // nothing is lost, but the library would write the text in another way
};

[[nodiscard]] constexpr bool is_damage(Trouble trouble) { return trouble < Trouble::missing_content; }

struct Finding {
    Trouble trouble{};
    std::string document{};  // id of the document it is about; the first one, if a content is shared
    std::string revision{};  // revision string, if it is about one
    std::string detail{};    // data hash of a content, id of what is missing, key
};

// One line for people.
[[nodiscard]] std::string describe(const Finding& finding);

struct IntegrityReport {
    std::string refused{};  // the library's error if it does not read the text; the rest is empty then
    std::vector<Finding> findings{};
    std::size_t documents = 0;
    std::size_t revisions = 0;
    std::size_t contents = 0;
    std::size_t checked_contents = 0;  // those whose hash is of a known kind

    [[nodiscard]] bool is_damaged() const;
};

// `sync_json` may be compressed, or in the compact form. USE_BEL_FORMAT must not be set, as the check needs the
// standard text. Time and memory grow with the size of the text, times its logarithm. Throws std::bad_alloc.
[[nodiscard]] IntegrityReport check_integrity(const std::string& sync_json);

}  // namespace zentadb
