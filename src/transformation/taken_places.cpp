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
    if (!winning) return;
    // Of several documents that share both contents, the lowest is the origin. That of long contents is the first one.
    constexpr std::size_t short_content = 256;
    const std::uint32_t winning_number = index_->winning_number(document);
    if (!may_refer_to_arrays({winning_number, *winning})) return;
    Arena arena;
    std::optional<JsonValue> winning_value;
    for (const TreeRevision& revision : tree.revisions()) {
        const auto content = index_->storage().data().find_numbered(revision.datahash());
        if (!content || content->number == winning_number) continue;
        if (content->text.size() > short_content && !compared_.insert({winning_number, content->number}).second) {
            continue;
        }
        if (!may_refer_to_arrays(*content)) continue;
        if (!work_.take(content->text.size() + (winning_value ? 0 : winning->size()))) return;
        if (!winning_value) winning_value = read_content(*winning, arena);
        compare(*winning_value, read_content(content->text, arena), document);
    }
}

bool TakenPlaces::may_refer_to_arrays(const NumberedContent& content) {
    Refers& known = refers_[content.number];
    if (known == Refers::unknown) {
        known = content.text.find(array_reference) == std::string_view::npos ? Refers::no : Refers::maybe;
    }
    return known == Refers::maybe;
}

// Recursion is bounded by the depth of one content. A winning content may be long and meet many short ones.
void TakenPlaces::compare(const JsonValue& winning, const JsonValue& other, std::uint32_t document) {
    if (winning.find(vocabulary::no_flatten_key) != nullptr || other.find(vocabulary::no_flatten_key) != nullptr)
        return;
    for (const auto& [key, theirs] : other.members()) {
        if (key == vocabulary::id_key || !(theirs.is_object() || is_array_reference(theirs))) continue;
        const JsonValue* const ours = winning.find(key);
        if (ours == nullptr) continue;
        if (ours->is_object() && theirs.is_object()) {
            compare(*ours, theirs, document);
        } else if (is_array_reference(*ours) && is_array_reference(theirs) && ours->as_string() != theirs.as_string()) {
            const std::uint32_t successor = domain_of(ours->as_string());
            const std::uint32_t domain = domain_of(theirs.as_string());
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
