// zentadbpp_three_way.hpp: what a host needs to resolve a conflict: the last common version, the versions, and their
// merge. Part of zentadbpp.hpp.
//
// A member that only one version changed has that version's value, also inside nested objects. A text that both changed
// is merged line by line. Anything else that both changed is a clash, for a person to decide. The result depends on the
// revisions alone, so copies that know the same revisions get the same bytes.
//
//     const zentadbpp::ThreeWay help = zentadbpp::three_way(store, "t1");
//     if (help.clashes.empty()) put_into_data(help.merged);  // then resolve, and update

#ifndef ZENTADBPP_THREE_WAY_HPP
#define ZENTADBPP_THREE_WAY_HPP

#include <algorithm>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>
#include <zentadbpp.hpp>
#include <zentadbpp_json.hpp>

namespace zentadbpp {

namespace detail {

using Lines = std::vector<std::string_view>;

// Each line with its end.
inline Lines lines_of(std::string_view text) {
    Lines lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
        lines.push_back(text.substr(0, end));
        text.remove_prefix(end);
    }
    return lines;
}

// For each line of one text, the matching line of another; both ascend together. Lines that occur once in both texts
// are anchors, and so are, between two anchors, lines that occur once there.
class LineMatcher {
   public:
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    LineMatcher(const Lines& from, const Lines& to) : from_(from), to_(to), match_(from.size(), none) {
        match({0, from.size()}, {0, to.size()}, 0);
    }
    std::vector<std::size_t> result() && { return std::move(match_); }

   private:
    struct Range {
        std::size_t begin;
        std::size_t end;
        bool empty() const { return begin == end; }
    };
    static constexpr int deepest = 32;  // limits the cost of hostile texts

    void match(Range from, Range to, int depth) {
        while (!from.empty() && !to.empty() && from_[from.begin] == to_[to.begin]) match_[from.begin++] = to.begin++;
        while (!from.empty() && !to.empty() && from_[from.end - 1] == to_[to.end - 1]) match_[--from.end] = --to.end;
        if (from.empty() || to.empty() || depth == deepest) return;
        const std::vector<std::pair<std::size_t, std::size_t>> anchors = anchors_in(from, to);
        if (anchors.empty()) return;
        for (const auto& [a, b] : anchors) {
            match({from.begin, a}, {to.begin, b}, depth + 1);
            match_[a] = b;
            from.begin = a + 1;
            to.begin = b + 1;
        }
        match(from, to, depth + 1);
    }

    // The longest ascending sequence of lines that occur once on both sides.
    std::vector<std::pair<std::size_t, std::size_t>> anchors_in(Range from, Range to) const {
        struct Seen {
            std::size_t in_from = 0;
            std::size_t in_to = 0;
            std::size_t position = 0;
        };
        std::map<std::string_view, Seen> seen;
        for (std::size_t at = to.begin; at < to.end; ++at) {
            Seen& line = seen[to_[at]];
            ++line.in_to;
            line.position = at;
        }
        for (std::size_t at = from.begin; at < from.end; ++at) ++seen[from_[at]].in_from;

        std::vector<std::pair<std::size_t, std::size_t>> pairs;
        std::vector<std::size_t> previous;  // of each pair, the one before it
        std::vector<std::size_t> ends;      // of the sequences of each length, the one that ends earliest
        for (std::size_t at = from.begin; at < from.end; ++at) {
            const Seen& line = seen[from_[at]];
            if (line.in_from != 1 || line.in_to != 1) continue;
            const auto place =
                std::lower_bound(ends.begin(), ends.end(), line.position,
                                 [&](std::size_t end, std::size_t position) { return pairs[end].second < position; });
            previous.push_back(place == ends.begin() ? none : *(place - 1));
            if (place == ends.end()) {
                ends.push_back(pairs.size());
            } else {
                *place = pairs.size();
            }
            pairs.emplace_back(at, line.position);
        }
        std::vector<std::pair<std::size_t, std::size_t>> longest;
        for (std::size_t at = ends.empty() ? none : ends.back(); at != none; at = previous[at]) {
            longest.push_back(pairs[at]);
        }
        std::reverse(longest.begin(), longest.end());
        return longest;
    }

    const Lines& from_;
    const Lines& to_;
    std::vector<std::size_t> match_;
};

// Lines of all three divide the texts; between two of them at most one side may have changed something.
inline std::optional<std::string> merged_lines(std::string_view common, std::string_view a, std::string_view b) {
    const Lines base = lines_of(common);
    const Lines in_a = lines_of(a);
    const Lines in_b = lines_of(b);
    const std::vector<std::size_t> to_a = LineMatcher(base, in_a).result();
    const std::vector<std::size_t> to_b = LineMatcher(base, in_b).result();
    const auto between = [](const Lines& lines, std::size_t begin, std::size_t end) {
        std::string text;
        for (std::size_t at = begin; at < end; ++at) text += lines[at];
        return text;
    };
    std::string merged;
    std::size_t at_base = 0;
    std::size_t at_a = 0;
    std::size_t at_b = 0;
    for (std::size_t at = 0; at <= base.size(); ++at) {
        const bool is_end = at == base.size();
        if (!is_end && (to_a[at] == LineMatcher::none || to_b[at] == LineMatcher::none)) continue;
        const std::size_t end_a = is_end ? in_a.size() : to_a[at];
        const std::size_t end_b = is_end ? in_b.size() : to_b[at];
        const std::string of_base = between(base, at_base, at);
        const std::string of_a = between(in_a, at_a, end_a);
        const std::string of_b = between(in_b, at_b, end_b);
        if (of_a != of_base && of_b != of_base && of_a != of_b) return std::nullopt;
        merged += of_a != of_base ? of_a : of_b;
        if (!is_end) merged += base[at];
        at_base = at + 1;
        at_a = end_a + 1;
        at_b = end_b + 1;
    }
    return merged;
}

}  // namespace detail

// Merges two versions of a value. Either of them, or the common one, may be null for a missing value. The common one
// may be `Json::Kind::unknown`.
class ThreeWayMerge {
   public:
    using Place = std::vector<std::string>;  // keys

    // Null if the value is missing after the merge. At a clash, the value of `a`.
    std::optional<Json> operator()(const Json* common, const Json* a, const Json* b) {
        Place place;
        return merged(common, a, b, place);
    }

    // The places that both changed in different ways.
    const std::vector<Place>& clashes() const { return clashes_; }

   private:
    static bool is_same(const Json* a, const Json* b) {
        if (a == nullptr || b == nullptr) return a == b;
        // An array of documents is not part of the content: the library merges its elements and their order.
        const auto is_list = [](const Json& value) {
            return value.is_array() && std::all_of(value.items.begin(), value.items.end(),
                                                   [](const Json& element) { return !element.id().empty(); });
        };
        return *a == *b || (is_list(*a) && is_list(*b));
    }

    // An object with "#nf" changes as a whole, and objects with different ids are not mixed.
    static bool can_mix(const Json& a, const Json& b) {
        return a.is_object() && b.is_object() && a.find("#nf") == nullptr && b.find("#nf") == nullptr &&
               is_same(a.find("_id"), b.find("_id"));
    }

    static std::optional<Json> copy(const Json* value) {
        return value == nullptr ? std::nullopt : std::optional<Json>(*value);
    }

    std::optional<Json> merged(const Json* common, const Json* a, const Json* b, Place& place) {
        if (is_same(a, b) || is_same(common, b)) return copy(a);
        if (is_same(common, a)) return copy(b);
        if (a != nullptr && b != nullptr && can_mix(*a, *b)) return members(common, *a, *b, place);
        if (common != nullptr && a != nullptr && b != nullptr && common->is_string() && a->is_string() &&
            b->is_string()) {
            if (auto lines = detail::merged_lines(common->text, a->text, b->text)) return Json::of(std::move(*lines));
        }
        clashes_.push_back(place);
        return copy(a);
    }

    Json members(const Json* common, const Json& a, const Json& b, Place& place) {
        const auto common_member = [&](const std::string& key) {
            if (common != nullptr && common->kind == Json::Kind::unknown) return common;
            return common != nullptr && common->is_object() ? common->find(key) : nullptr;
        };
        Json result = Json::object();
        const auto add = [&](const std::string& key) {
            place.push_back(key);
            std::optional<Json> value = merged(common_member(key), a.find(key), b.find(key), place);
            place.pop_back();
            if (!value) return;
            result.keys.push_back(key);
            result.items.push_back(std::move(*value));
        };
        std::size_t at_b = 0;
        for (const std::string& key : a.keys) {
            while (at_b < b.keys.size() && b.keys[at_b] < key) add(b.keys[at_b++]);
            if (at_b < b.keys.size() && b.keys[at_b] == key) ++at_b;
            add(key);
        }
        while (at_b < b.keys.size()) add(b.keys[at_b++]);
        return result;
    }

    std::vector<Place> clashes_;
};

// Versions of one document, the winning one first, merged.
struct MergedVersions {
    std::string common;          // the last common revision
    std::optional<Json> merged;  // with a version's value at each clash; empty if the winner has no content
    std::vector<ThreeWayMerge::Place> clashes;  // ascending; the empty place if a version has no content
};

// `histories` has the history of each version, newest first, as revision strings. `content_of` returns the content of a
// revision, or nothing if it is deleted or was pruned.
template <typename ContentOf>
MergedVersions merge_versions(const std::vector<std::vector<std::string>>& histories, const ContentOf& content_of) {
    // A closing revision does not describe the document.
    const auto newest_among = [](const std::set<std::string>& others, const std::vector<std::string>& history) {
        for (const std::string& revision : history) {
            if (others.count(revision) != 0 && revision.find("-resolved_") == std::string::npos) return revision;
        }
        return std::string();
    };
    // One after the other, each with its common version with those before it.
    std::set<std::string> in_all(histories.front().begin(), histories.front().end());
    std::set<std::string> in_any = in_all;
    std::optional<Json> merged = content_of(histories.front().front());
    bool has_all = merged.has_value();
    ThreeWayMerge merge;
    for (std::size_t at = 1; at < histories.size(); ++at) {
        const std::vector<std::string>& history = histories[at];
        const std::optional<Json> version = content_of(history.front());
        if (merged && version) {
            const std::optional<Json> common = content_of(newest_among(in_any, history));
            const Json unknown{Json::Kind::unknown, {}, {}, {}};
            merged = merge(common ? &*common : &unknown, &*merged, &*version);
        }
        has_all = has_all && version.has_value();
        in_any.insert(history.begin(), history.end());
        std::set<std::string> both;
        for (const std::string& revision : history) {
            if (in_all.count(revision) != 0) both.insert(revision);
        }
        in_all = std::move(both);
    }
    std::vector<ThreeWayMerge::Place> clashes = merge.clashes();
    if (!has_all) clashes = {{}};
    std::sort(clashes.begin(), clashes.end());
    clashes.erase(std::unique(clashes.begin(), clashes.end()), clashes.end());
    return {newest_among(in_all, histories.front()), std::move(merged), std::move(clashes)};
}

// A document in conflict. Contents and values are JSON texts.
struct ThreeWay {
    struct Version {
        std::string revision;
        bool deleted = false;
        std::optional<std::string> content;  // empty if it is deleted or was pruned
    };
    // A place that more than one version changed, with its values; empty if that version has no such member.
    struct Clash {
        std::string place;  // in the syntax of jq, from the document: ".text"; "." if a version has no content
        std::optional<std::string> common;
        std::vector<std::optional<std::string>> versions;
    };

    std::string id;
    Version common;                     // the last common version
    std::vector<Version> versions;      // the winning one, then the conflicting ones in ascending order
    std::optional<std::string> merged;  // at a clash the value of the winner; empty if the winner has no content
    std::vector<Clash> clashes;
};

namespace detail {

class ThreeWayHelp {
   public:
    ThreeWayHelp(const Handle& store, const Text& id, const Text& config) : store_(store), id_(id), config_(config) {}

    ThreeWay result() const {
        std::vector<std::string> revisions{store_.winning(id_).str()};
        for (const std::string_view loser : store_.conflicting(id_)) revisions.emplace_back(loser);
        ThreeWay help;
        help.id = id_.c_str();
        std::vector<std::vector<std::string>> histories;
        std::vector<std::optional<Json>> contents;
        for (const std::string& revision : revisions) {
            histories.push_back(history_of(revision));
            contents.push_back(content_of(revision));
            help.versions.push_back(version(revision, contents.back()));
        }
        const MergedVersions merge =
            merge_versions(histories, [this](const std::string& revision) { return content_of(revision); });
        const std::optional<Json> common = content_of(merge.common);
        help.common = version(merge.common, common);
        if (merge.merged) help.merged = merge.merged->dump();
        for (const ThreeWayMerge::Place& place : merge.clashes) {
            ThreeWay::Clash& clash = help.clashes.emplace_back();
            for (const std::string& key : place) clash.place += member_step(key);
            if (place.empty()) clash.place = ".";
            clash.common = value_at(common, place);
            for (const std::optional<Json>& content : contents) clash.versions.push_back(value_at(content, place));
        }
        return help;
    }

   private:
    static bool is_deleted(const std::string& revision) { return revision.find("-deleted_") != std::string::npos; }

    static ThreeWay::Version version(const std::string& revision, const std::optional<Json>& content) {
        return {revision, is_deleted(revision), content ? std::optional<std::string>(content->dump()) : std::nullopt};
    }

    std::optional<Json> content_of(const std::string& revision) const {
        if (revision.empty() || is_deleted(revision)) return std::nullopt;
        try {
            return Json::parse(store_.data(id_, revision, config_));
        } catch (const Error& error) {
            if (error.key() != "missing_root_document_data") throw;
            return std::nullopt;  // pruned
        }
    }

    // Newest first.
    std::vector<std::string> history_of(const std::string& revision) const {
        std::vector<std::string> revisions;
        for (Json& entry : Json::parse(store_.history(id_, revision)).items) revisions.push_back(std::move(entry.text));
        return revisions;
    }

    static std::optional<std::string> value_at(const std::optional<Json>& content, const ThreeWayMerge::Place& place) {
        const Json* value = content ? &*content : nullptr;
        for (const std::string& key : place) {
            value = value != nullptr && value->is_object() ? value->find(key) : nullptr;
        }
        return value == nullptr ? std::nullopt : std::optional<std::string>(value->dump());
    }

    const Handle& store_;
    const Text& id_;
    const Text& config_;
};

}  // namespace detail

// Fails as `winning` and `data` do.
[[nodiscard]] inline ThreeWay three_way(const Handle& store, const Text& id, const Text& config = "{}") {
    return detail::ThreeWayHelp(store, id, config).result();
}
[[nodiscard]] inline ThreeWay three_way(const Text& sync_json, const Text& id, const Text& config = "{}") {
    return three_way(Handle(sync_json), id, config);
}

}  // namespace zentadbpp

#endif
