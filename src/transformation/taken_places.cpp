#include "transformation/taken_places.h"

#include <optional>

#include "contents/references.h"

namespace libzentadbpp {

namespace {

constexpr std::string_view array_reference = "\"A";

bool is_array_reference(const JsonValue& value) {
    return value.as_string().starts_with(vocabulary::array_reference_marker);
}

}  // namespace

void TakenPlaces::look_through(std::uint32_t document) {
    const MultiVersionDocument& tree = index_->document(document);
    if (tree.revisions().size() == 1 || !looked_through_.insert(document).second) return;
    const auto winning = index_->winning_content(document);
    if (!winning || winning->find(array_reference) == std::string_view::npos) return;
    // Of several documents that share both contents, the lowest is the origin. That of long contents is the first one.
    constexpr std::size_t short_content = 256;
    const std::uint32_t winning_number = index_->winning_number(document);
    Arena arena;
    std::optional<JsonValue> winning_value;
    for (const TreeRevision& revision : tree.revisions()) {
        const auto content = index_->storage().data().find_numbered(revision.datahash());
        if (!content || content->number == winning_number) continue;
        if (content->text.size() > short_content && !compared_.insert({winning_number, content->number}).second) {
            continue;
        }
        if (content->text.find(array_reference) == std::string_view::npos) continue;
        if (!winning_value) winning_value = read_content(*winning, arena);
        compare(*winning_value, read_content(content->text, arena), document);
    }
}

// Recursion is bounded by the depth of one content.
void TakenPlaces::compare(const JsonValue& winning, const JsonValue& other, std::uint32_t document) {
    if (winning.find(vocabulary::no_flatten_key) != nullptr || other.find(vocabulary::no_flatten_key) != nullptr)
        return;
    auto theirs = other.members().begin();
    for (const auto& [key, value] : winning.members()) {
        while (theirs != other.members().end() && theirs->key < key) ++theirs;
        if (theirs == other.members().end()) break;
        if (theirs->key != key || key == vocabulary::id_key) continue;
        if (value.is_object() && theirs->value.is_object()) {
            compare(value, theirs->value, document);
        } else if (is_array_reference(value) && is_array_reference(theirs->value) &&
                   value.as_string() != theirs->value.as_string()) {
            const std::uint32_t successor = domain_of(value.as_string());
            const std::uint32_t domain = domain_of(theirs->value.as_string());
            const auto [known, is_new] = successors_.try_emplace(domain, First{document, successor});
            // Revisions and paths come in their order, documents do not.
            if (!is_new && document < known->second.document) known->second = {document, successor};
            if (pairs_.insert({successor, domain}).second) {
                predecessors_[successor].push_back(domain);
                all_successors_[domain].push_back(successor);
            }
            if (is_new) taken_.push_back(domain);
        }
    }
}

std::uint32_t TakenPlaces::domain_of(std::string_view reference) {
    const std::string_view domain = reference.substr(1);
    const auto known = domains_->find(domain);
    return known ? *known : domains_->add(arena_->copy(domain));
}

std::uint32_t TakenPlaces::successor(std::uint32_t domain) const {
    const auto found = successors_.find(domain);
    return found == successors_.end() ? none : found->second.successor;
}

std::span<const std::uint32_t> TakenPlaces::successors(std::uint32_t domain) const {
    const auto found = all_successors_.find(domain);
    return found == all_successors_.end() ? std::span<const std::uint32_t>{} : found->second;
}

std::span<const std::uint32_t> TakenPlaces::predecessors(std::uint32_t domain) const {
    const auto found = predecessors_.find(domain);
    return found == predecessors_.end() ? std::span<const std::uint32_t>{} : found->second;
}

}  // namespace libzentadbpp
