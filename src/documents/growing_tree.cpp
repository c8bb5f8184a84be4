#include "documents/growing_tree.h"

#include "data/data_hash.h"
#include "data/data_storage.h"

namespace libzentadbpp {

GrowingTree::GrowingTree(const MultiVersionDocument& document, std::size_t more) : document_(&document) {
    const auto known = document.revisions();
    revisions_.reserve(known.size() + more);
    revisions_.assign(known.begin(), known.end());
}

std::optional<std::uint32_t> GrowingTree::add_child(std::uint32_t parent, std::string_view datahash) {
    constexpr std::size_t most_between = 3;
    std::size_t steps = 256;
    if (const auto child = add_below(parent, datahash, most_between, steps)) return child;
    return add_below_own_name(parent, datahash);
}

// The child under its own name; nothing if that is taken.
GrowingTree::Position GrowingTree::add(std::uint32_t parent, std::string_view datahash) {
    std::string text = std::string(datahash).append("_").append(suffix_under(revisions_[parent].datahash()));
    const std::uint32_t index = revisions_[parent].index + 1;
    auto known = document_->find(index, text);
    if (const auto added = added_.find({index, text}); added != added_.end()) known = added->second;
    if (known) return revisions_[*known].parent == parent ? known : std::nullopt;
    const auto position = static_cast<std::uint32_t>(revisions_.size());
    const auto& [key, value] = *added_.emplace(std::pair(index, std::move(text)), position).first;
    revisions_.push_back(TreeRevision::make(key.second, index, parent));
    return position;
}

// Revisions in between give a revision a name of its own: empty ones, and where many revisions with the same content
// have such children, that content once more or an earlier one. A step looks at one name.
GrowingTree::Position GrowingTree::add_below(std::uint32_t parent, std::string_view datahash, std::size_t most_between,
                                             std::size_t& steps) {
    if (const auto child = add_below_empty(parent, datahash, steps)) return child;
    if (most_between == 0) return std::nullopt;
    for (std::uint32_t at = parent; at != no_entry && steps != 0; at = revisions_[at].parent) {
        --steps;
        const std::string_view content = revisions_[at].datahash();
        if (DataStorage::is_reserved(content)) continue;
        const std::size_t before = revisions_.size();
        if (const auto between = add(parent, content)) {
            if (const auto child = add_below(*between, datahash, most_between - 1, steps)) return child;
        }
        take_back(before);
    }
    return std::nullopt;
}

// An empty revision that nothing follows would hide what it follows, so none is left.
GrowingTree::Position GrowingTree::add_below_empty(std::uint32_t parent, std::string_view datahash,
                                                   std::size_t& steps) {
    const std::size_t before = revisions_.size();
    for (Position above = parent; above && steps != 0; above = add(*above, empty_hash)) {
        --steps;
        if (const auto child = add(*above, datahash)) return child;
    }
    take_back(before);
    return std::nullopt;
}

// Branches that end before others leave no names if many copies use few contents. No other revision has a child with
// the hash of this one's revision string, and there is no such content.
GrowingTree::Position GrowingTree::add_below_own_name(std::uint32_t parent, std::string_view datahash) {
    std::uint32_t named = parent;
    while (named != 0 && DataStorage::is_reserved(revisions_[named].datahash())) named = revisions_[named].parent;
    const bool is_fast = is_hash_of_kind(revisions_[named].datahash(), HashKind::fast);
    DataHasher hasher(is_fast ? HashKind::fast : HashKind::sha256);
    const std::size_t before = revisions_.size();
    if (const auto between = add(parent, hasher(revisions_[parent].revision_string()))) {
        if (const auto child = add(*between, datahash)) return child;
    }
    take_back(before);
    return std::nullopt;
}

void GrowingTree::take_back(std::size_t count) {
    while (revisions_.size() > count) {
        added_.erase({revisions_.back().index, std::string(revisions_.back().text)});
        revisions_.pop_back();
    }
}

}  // namespace libzentadbpp
