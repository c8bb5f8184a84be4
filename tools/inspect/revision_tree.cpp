#include "inspect/revision_tree.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <numeric>

#include "cli/failure.h"

namespace zentadb {

using nlohmann::json;

std::string_view Revision::hash() const {
    const std::string_view text = name;
    const std::size_t begin = text.find('-') + 1;
    return text.substr(begin, text.rfind('_') - begin);
}

RevisionTree::RevisionTree(std::string_view history) {
    struct Branch {
        const json* entries;
        std::size_t parent;
        std::size_t generation;
    };
    const json parsed = json::parse(history, nullptr, false);
    std::vector<Branch> open{{&parsed, Revision::none, 1}};
    while (!open.empty()) {
        Branch at = open.back();
        open.pop_back();
        const auto push = [&](const json& entry) {
            const std::size_t index = revisions_.size();
            revisions_.push_back({std::to_string(at.generation++) + "-" + entry.get<std::string>(), at.parent, {}});
            if (at.parent != Revision::none) revisions_[at.parent].children.push_back(index);
            at.parent = index;
        };
        if (at.entries->is_string()) push(*at.entries);
        if (!at.entries->is_array()) continue;
        for (const json& entry : *at.entries) {
            if (entry.is_string()) {
                push(entry);
                continue;
            }
            for (auto branch = entry.rbegin(); branch != entry.rend(); ++branch) {
                open.push_back({&*branch, at.parent, at.generation});
            }
            break;
        }
    }
}

std::size_t RevisionTree::find(std::string_view beginning) const {
    std::vector<std::size_t> found;
    for (std::size_t index = 0; index < revisions_.size(); ++index) {
        if (revisions_[index].name == beginning) return index;
        if (revisions_[index].name.starts_with(beginning)) found.push_back(index);
    }
    if (found.size() == 1) return found.front();
    const std::string name(beginning);
    if (found.empty()) {
        throw Failure(Outcome::input, name + ": the document has no such revision",
                      "zentadb log shows the revisions of a document.");
    }
    std::string advice = "Write more of it. These begin like this:";
    for (const std::size_t index : found) advice.append("\n  ").append(revisions_[index].name);
    throw Failure(Outcome::input, name + ": several revisions begin like this", advice);
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
