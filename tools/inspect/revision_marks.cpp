#include "inspect/revision_marks.h"

#include <algorithm>
#include <array>

#include "inspect/names.h"

namespace zentadb {

namespace {

// In the order of the marks.
constexpr std::array paints = {Paint::dim, Paint::green, Paint::yellow, Paint::red, Paint::dim, Paint::dim};
constexpr std::array mark_words = {"", "wins", "conflict", "deleted", "closed", "merged"};

}  // namespace

Paint paint_of(Mark mark) { return paints[static_cast<std::size_t>(mark)]; }

RevisionMarks::RevisionMarks(const Store& store, const std::string& id, const RevisionTree& tree)
    : tree_(&tree), is_list_(is_ordering(id)), winner_(tree.find(store.handle.winning(id))) {
    for (const std::string_view name : store.handle.conflicting(id)) conflicting_.emplace(name);
}

Mark RevisionMarks::of(std::size_t index) const {
    const Revision& revision = (*tree_)[index];
    if (index == winner_) return Mark::wins;
    if (conflicting_.contains(revision.name)) return Mark::conflict;
    if (revision.hash() == "deleted") return Mark::deleted;
    if (revision.hash() == "resolved") return Mark::closed;
    const bool is_merged =
        is_list_ && std::ranges::any_of(revision.children, [this](std::size_t child) { return is_closing_end(child); });
    return is_merged ? Mark::merged : Mark::none;
}

bool RevisionMarks::is_closing_end(std::size_t index) const {
    return (*tree_)[index].hash() == "resolved" && (*tree_)[index].children.empty();
}

bool RevisionMarks::is_quiet(std::size_t index) const { return is_list_ && is_closing_end(index); }

std::string RevisionMarks::words(std::size_t index) const {
    const bool is_deleted_winner = index == winner_ && (*tree_)[index].hash() == "deleted";
    return is_deleted_winner ? "wins, deleted" : mark_words[static_cast<std::size_t>(of(index))];
}

}  // namespace zentadb
