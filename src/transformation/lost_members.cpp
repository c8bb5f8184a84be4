#include "transformation/lost_members.h"

#include <algorithm>
#include <span>
#include <string>
#include <unordered_set>

#include "contents/references.h"
#include "json/writer.h"

namespace libzentadbpp {

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
            if (is_lost(candidate.target) && give(document, candidate)) return candidate.target;
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
    for (std::uint32_t at = index_->document(document).winning().parent; at != no_entry; at = revisions[at].parent) {
        const auto content = index_->storage().data().find_numbered(revisions[at].datahash());
        if (!content || !seen.insert(content->number).second) continue;
        work_ += content->text.size();
        if (content->text.find("\"O") != std::string_view::npos) {
            collect(read_content(content->text, arena_), taker.winning, new_way(nullptr, {}), taker.candidates);
        }
    }
}

LostMembers::Way& LostMembers::new_way(Way* before, std::string_view key) {
    return arena_.make<Way>(1).front() = {before, key};
}

// Collects what the winning content has room for. Recursion is bounded by the depth of one content.
void LostMembers::collect(const JsonValue& object, const JsonValue& winning, Way& way,
                          std::vector<Candidate>& candidates) {
    if (object.find(vocabulary::no_flatten_key) != nullptr || winning.find(vocabulary::no_flatten_key) != nullptr)
        return;
    for (const auto& [key, value] : object.members()) {
        if (key == vocabulary::id_key) continue;
        const bool is_reference = value.as_string().starts_with(vocabulary::object_reference_marker);
        const auto target = is_reference ? index_->find(value.as_string().substr(1)) : std::nullopt;
        if (!value.is_object() && !target) continue;
        const JsonValue* const ours = winning.find(key);
        if (target) {
            if (ours == nullptr || refers_to_deleted(*ours)) candidates.push_back({&way, key, *target});
        } else if (ours != nullptr && ours->is_object()) {
            collect(value, *ours, new_way(&way, key), candidates);
        }
    }
}

bool LostMembers::refers_to_deleted(const JsonValue& member) const {
    const std::string_view text = member.as_string();
    if (!text.starts_with(vocabulary::object_reference_marker)) return false;
    const auto target = index_->find(text.substr(1));
    return target && !index_->is_live(*target);
}

// Recursion is bounded by the depth of one content.
LostMembers::Given& LostMembers::given_at(std::uint32_t document, Way& way) {
    if (way.given == nullptr) {
        if (way.before == nullptr) {
            way.given = &given_[document];
        } else {
            std::unique_ptr<Given>& inside = given_at(document, *way.before).inside[way.key];
            if (inside == nullptr) inside = std::make_unique<Given>();
            way.given = inside.get();
        }
    }
    return *way.given;
}

// Gives a document a member, unless it has something there already.
bool LostMembers::give(std::uint32_t document, const Candidate& candidate) {
    std::unique_ptr<Given>& member = given_at(document, *candidate.way).inside[candidate.key];
    if (member != nullptr) return false;
    member = std::make_unique<Given>();
    member->target = candidate.target;
    return true;
}

JsonValue LostMembers::with_members(const JsonValue& object, const Given& given, Arena& arena) const {
    std::vector<JsonMember> members(object.members().begin(), object.members().end());
    const auto had = static_cast<std::ptrdiff_t>(members.size());
    for (const auto& [key, inside] : given.inside) {
        const auto member = std::lower_bound(members.begin(), members.begin() + had, key,
                                             [](const JsonMember& a, std::string_view b) { return a.key < b; });
        const bool is_here = member != members.begin() + had && member->key == key;
        if (!inside->inside.empty()) {
            member->value = with_members(member->value, *inside, arena);
        } else {
            const std::string reference =
                std::string(1, vocabulary::object_reference_marker).append(index_->id(inside->target));
            const JsonValue value = JsonValue::string(arena.copy(std::string_view(reference)));
            is_here ? void(member->value = value) : members.push_back({key, value});
        }
    }
    std::ranges::sort(members, {}, &JsonMember::key);
    return JsonValue::object(arena.copy(std::span<const JsonMember>(members)));
}

std::vector<std::pair<std::uint32_t, std::string_view>> LostMembers::contents(Arena& arena) const {
    std::vector<std::pair<std::uint32_t, std::string_view>> contents;
    for (const auto& [document, given] : given_) {
        Arena values;
        TextBuffer text;
        write_json(with_members(takers_.at(document).winning, given, values), text);
        contents.emplace_back(document, arena.copy(text.view()));
    }
    return contents;
}

}  // namespace libzentadbpp
