#include "inspect/revision_marks.h"

#include <algorithm>

#include "inspect/names.h"

namespace zentadb {

Paint paint_of(Mark mark) {
    switch (mark) {
        case Mark::wins:
            return Paint::green;
        case Mark::conflict:
            return Paint::yellow;
        case Mark::deleted:
            return Paint::red;
        case Mark::none:
        case Mark::closed:
        case Mark::merged:
            break;
    }
    return Paint::dim;
}

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
    switch (of(index)) {
        case Mark::wins:
            return (*tree_)[index].hash() == "deleted" ? "wins, deleted" : "wins";
        case Mark::conflict:
            return "conflict";
        case Mark::deleted:
            return "deleted";
        case Mark::closed:
            return "closed";
        case Mark::merged:
            return "merged";
        case Mark::none:
            break;
    }
    return {};
}

}  // namespace zentadb
