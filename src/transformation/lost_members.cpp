#include "transformation/lost_members.h"

#include <algorithm>
#include <span>
#include <string>
#include <unordered_set>

#include "contents/references.h"
#include "json/writer.h"

namespace libzentadbpp {

namespace {

using Given = std::pair<std::vector<std::string_view>, std::uint32_t>;

// An object with what is given, ascending by path, put in at depth `depth` of the paths.
JsonValue with_members(const JsonValue& object, std::span<const Given> given, std::size_t depth,
                       const DocumentIndex& index, Arena& arena) {
    std::vector<JsonMember> members(object.members().begin(), object.members().end());
    const auto had = static_cast<std::ptrdiff_t>(members.size());
    for (auto first = given.begin(); first != given.end();) {
        const std::string_view key = first->first[depth];
        auto last = first;
        while (last != given.end() && last->first[depth] == key) ++last;
        const auto member = std::lower_bound(members.begin(), members.begin() + had, key,
                                             [](const JsonMember& a, std::string_view b) { return a.key < b; });
        const bool is_here = member != members.begin() + had && member->key == key;
        if (first->first.size() > depth + 1) {
            const std::span<const Given> inside(&*first, static_cast<std::size_t>(last - first));
            member->value = with_members(member->value, inside, depth + 1, index, arena);
        } else {
            const std::string reference =
                std::string(1, vocabulary::object_reference_marker).append(index.id(first->second));
            const JsonValue value = JsonValue::string(arena.copy(std::string_view(reference)));
            is_here ? void(member->value = value) : members.push_back({key, value});
        }
        first = last;
    }
    std::ranges::sort(members, {}, &JsonMember::key);
    return JsonValue::object(arena.copy(std::span<const JsonMember>(members)));
}

}  // namespace

void LostMembers::offer(std::uint32_t document) {
    const MultiVersionDocument& tree = index_->document(document);
    if (!index_->is_live_data(document) || tree.winning().index == 1 || !index_->winning_content(document)) return;
    waiting_.insert(document);
}

std::optional<std::uint32_t> LostMembers::next(const std::function<bool(std::uint32_t)>& is_lost) {
    // Thousands of documents may share what they had before; no honest history takes more than this.
    constexpr std::size_t work_on_small = std::size_t{1} << 24;
    const std::size_t most_work = work_on_small + 4 * index_->content_bytes();
    while (!waiting_.empty() && work_ <= most_work) {
        const std::uint32_t document = *waiting_.begin();
        const auto [known, is_new] = takers_.try_emplace(document);
        Taker& taker = known->second;
        if (is_new) read_candidates(document, taker);
        while (taker.next < taker.candidates.size()) {
            const Candidate& candidate = taker.candidates[taker.next++];
            ++work_;
            if (!is_lost(candidate.target) || !has_room(taker.winning, candidate.path)) continue;
            if (given_.try_emplace({document, candidate.path}, candidate.target).second) return candidate.target;
        }
        waiting_.erase(waiting_.begin());
        taker.candidates.clear();
    }
    return std::nullopt;
}

void LostMembers::read_candidates(std::uint32_t document, Taker& taker) {
    const auto revisions = index_->document(document).revisions();
    const std::string_view winning = *index_->winning_content(document);
    work_ += winning.size();
    taker.winning = read_content(winning, arena_);
    std::unordered_set<std::uint32_t> seen{index_->winning_number(document)};
    Path path;
    for (std::uint32_t at = index_->document(document).winning().parent; at != no_entry; at = revisions[at].parent) {
        const auto content = index_->storage().data().find_numbered(revisions[at].datahash());
        if (!content || !seen.insert(content->number).second) continue;
        work_ += content->text.size();
        if (content->text.find("\"O") != std::string_view::npos) {
            collect(read_content(content->text, arena_), path, taker.candidates);
        }
    }
}

// Recursion is bounded by the depth of one content.
void LostMembers::collect(const JsonValue& object, Path& path, std::vector<Candidate>& candidates) {
    if (object.find(vocabulary::no_flatten_key) != nullptr) return;
    for (const auto& [key, value] : object.members()) {
        if (key == vocabulary::id_key) continue;
        path.push_back(key);
        if (value.is_object()) {
            collect(value, path, candidates);
        } else if (value.as_string().starts_with(vocabulary::object_reference_marker)) {
            if (const auto target = index_->find(value.as_string().substr(1))) candidates.push_back({path, *target});
        }
        path.pop_back();
    }
}

bool LostMembers::refers_to_deleted(const JsonValue& member) const {
    const std::string_view text = member.as_string();
    if (!text.starts_with(vocabulary::object_reference_marker)) return false;
    const auto target = index_->find(text.substr(1));
    return target && !index_->is_live(*target);
}

bool LostMembers::has_room(const JsonValue& winning, const Path& path) const {
    const JsonValue* object = &winning;
    for (auto key = path.begin();; ++key) {
        if (!object->is_object() || object->find(vocabulary::no_flatten_key) != nullptr) return false;
        const JsonValue* const member = object->find(*key);
        if (key + 1 == path.end()) return member == nullptr || refers_to_deleted(*member);
        if (member == nullptr) return false;
        object = member;
    }
}

std::vector<std::pair<std::uint32_t, std::string_view>> LostMembers::contents(Arena& arena) const {
    std::vector<std::pair<std::uint32_t, std::string_view>> contents;
    for (auto first = given_.begin(); first != given_.end();) {
        const std::uint32_t document = first->first.first;
        std::vector<Given> given;
        for (; first != given_.end() && first->first.first == document; ++first) {
            given.emplace_back(first->first.second, first->second);
        }
        Arena values;
        TextBuffer text;
        write_json(with_members(takers_.at(document).winning, given, 0, *index_, values), text);
        contents.emplace_back(document, arena.copy(text.view()));
    }
    return contents;
}

}  // namespace libzentadbpp
