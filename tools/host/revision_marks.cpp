#include "host/revision_marks.h"

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
            break;
    }
    return Paint::dim;
}

RevisionMarks::RevisionMarks(const Store& store, const std::string& id, const RevisionTree& tree)
    : tree_(&tree), winner_(tree.find(store.handle.winning(id))) {
    for (const std::string_view name : store.handle.conflicting(id)) conflicting_.emplace(name);
}

Mark RevisionMarks::of(std::size_t index) const {
    const Revision& revision = (*tree_)[index];
    if (index == winner_) return Mark::wins;
    if (conflicting_.contains(revision.name)) return Mark::conflict;
    if (revision.hash() == "deleted") return Mark::deleted;
    return revision.hash() == "resolved" ? Mark::closed : Mark::none;
}

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
        case Mark::none:
            break;
    }
    return {};
}

}  // namespace zentadb
