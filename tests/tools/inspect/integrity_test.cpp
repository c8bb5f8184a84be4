#include "inspect/integrity.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "c_api/samples.h"
#include "c_api/zenta.h"
#include "store/raw_json.h"

using namespace c_api;
using zentadb::check_integrity;
using zentadb::Trouble;

namespace {

std::string made(sync_json_result result) { return taken(result).text(); }

// A set with everything that a byte can be part of: two branches, a deletion, an object of its own, two orders of a
// list, a number, text beyond ASCII.
const std::string& sample(bool fast_hash) {
    static const std::vector<std::string> both = [] {
        std::vector<std::string> sets;
        for (const char* more : {"", R"(, "force_fast_hash_only": true)"}) {
            const std::string config = std::string(R"({"instance_id": "a")") + more + "}";
            const auto update = [&](const char* data, const std::string& before, const std::string& settings) {
                return made(update_sync_json(data, before.c_str(), settings.c_str()));
            };
            const std::string first =
                update(R"({"t": "é", "l": [{"_id": "e1"}, {"_id": "e2", "n": 0.5}], "#df": 1, "own": {"k": "v"}})",
                       "{}", config);
            const std::string left = update(R"({"t": "left", "l": [{"_id": "e2", "n": 7}, {"_id": "e1"}]})", first,
                                            std::string(R"({"instance_id": "b")") + more + "}");
            const std::string right =
                update(R"({"t": "right", "l": [{"_id": "e1"}, {"_id": "e2", "n": 8}], "#df": 1, "own": {"k": "w"}})",
                       first, config);
            sets.push_back(made(replicate_sync_json(left.c_str(), right.c_str(), "{}")));
        }
        return sets;
    }();
    return both[fast_hash ? 1 : 0];
}

// What each byte of a written sync JSON is part of.
std::vector<std::string> kinds_of(const std::string& text) {
    std::vector<std::string> kinds(text.size(), "structure");
    const auto mark = [&](std::string_view part, const char* kind) {
        std::fill_n(kinds.begin() + (part.data() - text.data()), part.size(), kind);
    };
    const auto mark_strings = [&](std::string_view part, const auto& mark_string) {
        for (std::size_t at = part.find('"'); at != std::string_view::npos; at = part.find('"', at)) {
            const std::size_t end = zentadb::raw_json::string_end(part, at);
            mark_string(part.substr(at + 1, end - at - 2));
            at = end;
        }
    };
    zentadb::raw_json::for_each_member(text, [&](std::string_view name, std::string_view part) {
        mark(name, "member name");
        if (name == "r") return mark(part.substr(1, part.size() - 2), "root");
        zentadb::raw_json::for_each_member(part, [&](std::string_view key, std::string_view value) {
            mark(key, name == "d" ? "id" : "content name");
            if (name == "o") mark(value, "content");
            mark_strings(value, [&](std::string_view string) {
                if (name == "d") {
                    mark(string.substr(0, string.find('_')), "history");
                    mark(string.substr(string.find('_')), "suffix");
                } else if (string.starts_with('O') || string.starts_with('A')) {
                    mark(string, "reference");
                }
            });
        });
    });
    return kinds;
}

struct Counts {
    std::size_t refused = 0;
    std::size_t damage = 0;
    std::size_t doubt = 0;
    std::size_t harmless = 0;
    std::size_t unseen = 0;
};

std::ostream& operator<<(std::ostream& out, const Counts& counts) {
    return out << "refused " << counts.refused << ", damage " << counts.damage << ", doubt " << counts.doubt
               << ", harmless " << counts.harmless << ", unseen " << counts.unseen;
}

// Flips every bit of the text, one at a time. A flip that changes what the library reads must be reported.
std::map<std::string, Counts> flip_all(const std::string& text) {
    const auto original = open(text).value;
    const std::vector<std::string> kinds = kinds_of(text);
    const std::size_t known = check_integrity(text).findings.size();
    std::map<std::string, Counts> counts;
    std::string flipped = text;
    for (std::size_t at = 0; at < text.size(); ++at) {
        for (unsigned bit = 0; bit < 8; ++bit) {
            flipped[at] = static_cast<char>(static_cast<unsigned char>(text[at]) ^ (1U << bit));
            if (flipped[at] == '\0') continue;  // ends the text, as every C text
            Counts& count = counts[kinds[at]];
            const Answer read = open(flipped);
            const auto report = check_integrity(flipped);
            EXPECT_EQ(read.error, without_line(report.refused));
            if (!read.value) {
                ++count.refused;
            } else if (read.value == original) {
                ++count.harmless;
                EXPECT_FALSE(report.is_damaged()) << flipped;
            } else if (report.is_damaged()) {
                ++count.damage;
            } else if (report.findings.size() > known) {
                ++count.doubt;
            } else {
                ++count.unseen;
            }
        }
        flipped[at] = text[at];
    }
    return counts;
}

// The numbers of flips are those of docs/promises.md.
std::size_t unseen_in(const std::string& title, const std::string& text, const std::vector<std::string>& allowed = {}) {
    std::size_t unseen = 0;
    for (const auto& [kind, count] : flip_all(text)) {
        std::cout << title << ", " << kind << ": " << count << '\n';
        if (std::ranges::find(allowed, kind) == allowed.end()) {
            EXPECT_EQ(count.unseen, 0U) << title << ", " << kind;
        }
        unseen += count.unseen;
    }
    return unseen;
}

TEST(Integrity, EveryFlippedBitIsRefusedToldOrHarmless) {
    unseen_in("SHA-256", sample(false));
    unseen_in("fast hash", sample(true));
    unseen_in("compressed", compressed(sample(true)));
}

// What was pruned left names behind that nothing can be compared with.
TEST(Integrity, PruningTakesAwayWhatNamesAreCheckedBy) {
    const std::string pruned = made(sync_json_prune(sample(true).c_str(), 1, false));
    EXPECT_GT(unseen_in("pruned", pruned, {"history", "id"}), 0U);
}

TEST(Integrity, EachTroubleHasItsName) {
    const std::string& sound = sample(false);
    const auto with = [&](const std::string& from, const std::string& to) {
        std::string text = sound;
        const std::size_t at = text.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return text.replace(at, from.size(), to);
    };
    const auto root = [](const std::string& history, const std::string& rest = "") {
        return R"({"d": {"root": )" + history + "}" + rest + R"(, "r": "root"})";
    };
    std::string spacious;
    for (const char c : sound) spacious += c == '{' ? "{\r\n\t" : std::string(1, c);
    using enum Trouble;
    const std::vector<std::pair<std::string, std::vector<Trouble>>> cases{
        {sound, {}},
        {"{}", {}},
        {with("!left", "!lest"), {wrong_content}},
        {with("_first\"", "_fifth\""), {wrong_suffix}},
        {with("\"ord-", "\"ord-0"), {wrong_ordering_id}},
        {with("\"e1\": [", "\"e0\": ["), {missing_document, unreferenced_document}},
        {root(R"(["empty_first", "resolved_empty"])"), {no_leaf}},
        {root(R"(["empty_first"], "root": ["empty_first"])"), {duplicate_key}},
        {root(R"(["empty_first", ["deleted_empty"], 5])"), {not_read}},
        {root(R"(["empty_first"])", R"(, "o": {"x1": {}})"), {not_read}},
        {root(R"(["empty_first"])", R"(, "O": {})"), {unknown_member}},
        {root(R"(["x1_first"])"), {missing_content}},
        {root(R"(["empty_first"], "z": ["empty_first"])"), {unreferenced_document}},
        {root(R"(["md5_first"])", R"(, "o": {"md5": {}})"), {unknown_hash}},
        {made(update_sync_json("{\"a\": \"\xff\"}", "{}", "{}")), {unreadable_content}},
        {spacious, {written_differently}},
        {compressed(sound), {}},
        {compressed(spacious), {}},
    };
    for (const auto& [text, expected] : cases) {
        std::vector<Trouble> found;
        std::string told;
        for (const auto& finding : check_integrity(text).findings) {
            found.push_back(finding.trouble);
            told += describe(finding) + '\n';
        }
        EXPECT_EQ(found, expected) << text << '\n' << told;
    }
    EXPECT_EQ(check_integrity("{").refused, "unexpected end of input");
}

}  // namespace
