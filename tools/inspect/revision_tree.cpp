#include "inspect/revision_tree.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "cli/failure.h"
#include "store/raw_json.h"

namespace zentadb {

// Arrays are chains, whose last entry is the parent of the next, and in them, lists of branches, which all have one
// parent.
RevisionTree::RevisionTree(std::string_view history, std::string document) : document_(std::move(document)) {
    struct Array {
        bool is_chain;
        std::size_t parent;  // of what comes next
        std::size_t generation;
    };
    std::vector<Array> open;
    for (std::size_t at = 0; at < history.size();) {
        if (history[at] == '"' && !open.empty()) {
            const std::size_t end = raw_json::string_end(history, at);
            Array& array = open.back();
            const std::size_t index = revisions_.size();
            revisions_.push_back(
                {std::to_string(array.generation) + "-" + raw_json::decoded(history.substr(at + 1, end - at - 2)),
                 array.parent,
                 {}});
            if (array.parent != Revision::none) revisions_[array.parent].children.push_back(index);
            if (array.is_chain) {
                array.parent = index;
                ++array.generation;
            }
            at = end;
            continue;
        }
        if (history[at] == '[') {
            open.push_back(open.empty() ? Array{true, Revision::none, 1} : open.back());
            open.back().is_chain = open.size() % 2 == 1;
        }
        if (history[at] == ']') open.pop_back();
        ++at;
    }
}

std::size_t RevisionTree::find(std::string_view beginning) const {
    std::vector<std::size_t> found;
    for (std::size_t index = 0; index < revisions_.size(); ++index) {
        if (revisions_[index].name == beginning) return index;
        if (revisions_[index].name.starts_with(beginning)) found.push_back(index);
    }
    if (found.size() == 1) return found.front();
    if (found.empty()) {
        throw Failure(ExitCode::input, place_of(beginning) + ": no such revision",
                      "zentadb log STORE ID shows the revisions of a document.");
    }
    std::string candidates;
    for (const std::size_t index : found) candidates.append("\n  ").append(revisions_[index].name);
    throw Failure(ExitCode::input, place_of(beginning) + ": ambiguous; candidates:" + candidates);
}

std::string RevisionTree::place_of(std::string_view revision) const {
    return (document_.empty() ? "" : document_ + " ").append(revision);
}

std::vector<std::string> RevisionTree::short_names() const {
    constexpr std::size_t digits = 7;
    std::vector<std::size_t> order(revisions_.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::ranges::sort(order, {}, [this](std::size_t index) -> const std::string& { return revisions_[index].name; });

    const auto common = [](std::string_view a, std::string_view b) {
        return static_cast<std::size_t>(std::ranges::mismatch(a, b).in1 - a.begin());
    };
    std::vector<std::string> names(revisions_.size());
    for (std::size_t at = 0; at < order.size(); ++at) {
        const std::string& name = revisions_[order[at]].name;
        std::size_t length = std::max(name.find('-') + 1 + digits, name.find('_') < 12 ? name.find('_') : 0);
        if (at > 0) length = std::max(length, 1 + common(name, revisions_[order[at - 1]].name));
        if (at + 1 < order.size()) length = std::max(length, 1 + common(name, revisions_[order[at + 1]].name));
        names[order[at]] = name.substr(0, length);
    }
    return names;
}

std::vector<std::size_t> RevisionTree::sizes() const {
    std::vector<std::size_t> sizes(revisions_.size(), 1);
    for (std::size_t index = revisions_.size(); index-- > 0;) {
        if (revisions_[index].parent != Revision::none) sizes[revisions_[index].parent] += sizes[index];
    }
    return sizes;
}

}  // namespace zentadb
