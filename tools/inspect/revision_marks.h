#pragma once

#include <string>
#include <unordered_set>

#include "cli/terminal.h"
#include "inspect/revision_tree.h"
#include "store/store.h"

namespace zentadb {

enum class Mark { none, wins, conflict, deleted, closed, merged };

[[nodiscard]] Paint paint_of(Mark mark);

// What the revisions of a document are, to those who look at its tree.
class RevisionMarks {
   public:
    RevisionMarks(const Store& store, const std::string& id, const RevisionTree& tree);

    [[nodiscard]] std::size_t winner() const { return winner_; }
    [[nodiscard]] Mark of(std::size_t index) const;
    // Whether a drawing can do without a revision: the closing of a list that was merged with others, which its own
    // mark says.
    [[nodiscard]] bool is_quiet(std::size_t index) const;
    // "wins", "wins, deleted", "conflict", "deleted", "closed", "merged", or nothing.
    [[nodiscard]] std::string words(std::size_t index) const;

   private:
    [[nodiscard]] bool is_closing_end(std::size_t index) const;

    const RevisionTree* tree_;
    bool is_list_;
    std::size_t winner_;
    std::unordered_set<std::string> conflicting_;
};

}  // namespace zentadb
