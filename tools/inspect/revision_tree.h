#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "inspect/names.h"

namespace zentadb {

// One revision in the tree of its document.
struct Revision {
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    std::string name;  // the revision string
    std::size_t parent = none;
    std::vector<std::size_t> children;

    [[nodiscard]] std::size_t generation() const { return generation_in(name); }
    // "<hash>_<suffix>", as it is in a history.
    [[nodiscard]] std::string_view entry() const { return entry_in(name); }
    // The hash of its content, or one of the words "deleted", "resolved" and "empty".
    [[nodiscard]] std::string_view hash() const { return hash_in(entry()); }
    [[nodiscard]] std::string_view suffix() const { return suffix_in(entry()); }
    [[nodiscard]] bool is_leaf() const { return children.empty() && hash() != "resolved"; }
};

// The revisions of a document, parents before their children.
class RevisionTree {
   public:
    // From a history array of a sync JSON; it is not checked, whatever its depth. `document` is its name in messages.
    explicit RevisionTree(std::string_view history, std::string document = {});

    [[nodiscard]] const std::vector<Revision>& revisions() const { return revisions_; }
    [[nodiscard]] const Revision& operator[](std::size_t index) const { return revisions_[index]; }

    // The revision of a name or of the only one that begins like this. Throws Failure (input).
    [[nodiscard]] std::size_t find(std::string_view beginning) const;
    // Each name cut so that it still names its revision, generation and seven characters at least.
    [[nodiscard]] std::vector<std::string> short_names() const;
    // The size of each revision's subtree.
    [[nodiscard]] std::vector<std::size_t> sizes() const;
    // A revision as messages call it: "trip.sync: t1 2-5bedd7d".
    [[nodiscard]] std::string place_of(std::string_view revision) const;

   private:
    std::string document_;
    std::vector<Revision> revisions_;
};

}  // namespace zentadb
