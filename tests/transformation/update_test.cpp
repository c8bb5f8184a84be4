#include "transformation/update.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "in_texts.h"
#include "json/error.h"

namespace libzentadbpp {
namespace {

using namespace in_texts;
using Revisions = std::vector<std::string>;

// Brought up to date with each of these in turn.
DocumentStorage updated_in_turn(std::initializer_list<std::string_view> versions, std::string_view config = "{}") {
    DocumentStorage storage;
    for (const std::string_view data : versions) storage = updated(storage, data, config);
    return storage;
}

std::string suffix(std::string_view content) { return hash(content).substr(0, 7); }

TEST(Update, WhatIsGoneIsDeletedOnceAndStaysDeleted) {
    const struct {
        const char* with;
        const char* without;
        std::string read_later;
    } cases[] = {
        {R"({"#df": 1, "o": {"_id": "t", "x": 1}})", R"({"#df": 1})", R"({"#df": 1, "_id": "root"})"},
        {R"({"#df": 1, "a": [{"_id": "t", "x": 1}]})", R"({"#df": 1, "a": []})",
         R"({"#df": 1, "_id": "root", "a": []})"},
        {R"({"#df": 1, "a": [{"_id": "t", "x": 1}, {"_id": "u"}]})", R"({"#df": 1, "a": [{"_id": "u"}]})",
         R"({"#df": 1, "_id": "root", "a": [{"_id": "u"}]})"},
    };
    for (const auto& [with, without, read_later] : cases) {
        const Revisions deleted = {"1-" + hash("{\"x\": 1}") + "_first", "2-deleted_" + suffix("{\"x\": 1}")};
        const DocumentStorage gone = updated_in_turn({with, without});
        EXPECT_EQ(revisions(gone, "t"), deleted) << with;
        EXPECT_EQ(read(gone), canonical(read_later)) << with;
        EXPECT_EQ(serialized(updated(gone, without)), serialized(gone)) << with;
        const DocumentStorage brought_back = updated(gone, with);
        EXPECT_EQ(revisions(brought_back, "t"), deleted) << with;
        EXPECT_EQ(read(brought_back), canonical(read_later)) << with;
    }
}

TEST(Update, AnotherRoot) {
    const DocumentStorage storage = updated_in_turn({R"({"_id": "r1", "a": 1})", R"({"_id": "r2", "a": 2})"});
    EXPECT_EQ(storage.root(), "r2");
    EXPECT_TRUE(storage.find("r1")->winning().is_deleted());
    EXPECT_EQ(read(storage), R"({"_id": "r2", "a": 2})");
    EXPECT_EQ(updated(storage, R"({"_id": "r1", "a": 3})").root(), "r1");
}

TEST(Update, EveryInstanceKeepsItsOrder) {
    const std::string a = with_hashes("ord-«a-ordering-«root->l-»»");
    const std::string b = with_hashes("ord-«b-ordering-«root->l-»»");
    DocumentStorage storage = updated({}, R"({"l": [{"_id": "x"}, {"_id": "y"}]})", R"({"instance_id": "a"})");
    const Revisions of_a = revisions(storage, a);
    storage = updated(storage, R"({"l": [{"_id": "y"}, {"_id": "x"}]})", R"({"instance_id": "b"})");
    EXPECT_EQ(revisions(storage, a), of_a);
    EXPECT_EQ(revisions(storage, b).size(), 1u);
    EXPECT_EQ(read(storage, R"({"discard_id": false, "instance_id": "a"})"),
              R"({"_id": "root", "l": [{"_id": "x"}, {"_id": "y"}]})");
    EXPECT_EQ(read(storage, R"({"instance_id": "b"})"), R"({"_id": "root", "l": [{"_id": "y"}, {"_id": "x"}]})");
    storage = updated(storage, "{}", R"({"instance_id": "b"})");
    EXPECT_EQ(revisions(storage, a), of_a);
    EXPECT_FALSE(storage.find(b)->winning().is_deleted());
}

TEST(Update, TheLastElementMovesAway) {
    const DocumentStorage start = updated({}, R"({"a": [{"_id": "e"}], "b": [{"_id": "f"}]})");
    const std::string_view later[] = {
        R"({"_id": "root", "a": [], "b": [{"_id": "f"}, {"_id": "e"}]})",
        R"({"_id": "root", "a": [], "b": [], "c": [{"_id": "e"}, {"_id": "f"}]})",
        R"({"#df": 1, "_id": "root", "a": [], "b": [{"_id": "f"}], "o": {"_id": "e"}})",
        R"({"_id": "root", "b": [{"_id": "e"}]})",
    };
    for (const std::string_view data : later) {
        const DocumentStorage moved = updated(start, data);
        EXPECT_EQ(read(moved), data);
        EXPECT_EQ(serialized(updated(moved, data)), serialized(moved)) << data;
    }
    const DocumentStorage gone = updated_in_turn({R"({"a": [{"_id": "e"}]})", R"({"b": [{"_id": "e"}]})"});
    EXPECT_EQ(read(updated(gone, R"({"a": [], "b": [{"_id": "e"}]})")),
              R"({"_id": "root", "a": [], "b": [{"_id": "e"}]})");
}

TEST(Update, AHashOfAnotherKindIsAnotherContent) {
    const DocumentStorage storage =
        updated(updated({}, R"({"a": 1})"), R"({"a": 1})", R"({"force_fast_hash_only": true})");
    EXPECT_EQ(revisions(storage, "root").back(),
              "2-" + hash("{\"a\": 1}", HashKind::fast) + "_" + suffix("{\"a\": 1}"));
}

// What a storage knows of its winning contents goes on with small updates: it is what looking all of them up finds.
TEST(Update, WinningContentsAndTheirNumbersGoOn) {
    std::vector<int> texts(100);
    const auto host = [&] {
        std::string notes;
        for (std::size_t i = 0; i < texts.size(); ++i) {
            notes.append(i == 0 ? "" : ", ").append(R"({"_id": "n)").append(std::to_string(i));
            notes.append(R"(", "t": )").append(std::to_string(texts[i])).append("}");
        }
        return R"({"_id": "r", "notes": [)" + notes + "]}";
    };
    DocumentStorage storage = updated({}, host()).with_winning_contents();
    for (std::size_t step = 1; step < 30; ++step) {
        SCOPED_TRACE(step);
        // Contents that are new, that two documents share, and that were there before.
        texts[step * 7 % 100] = texts[step * 13 % 100] = static_cast<int>(step % 10);
        if (step % 6 == 0) texts.pop_back();
        storage = updated(storage, host());
        ASSERT_NE(storage.winning_contents(), nullptr);
        const DocumentStorage again(storage.documents(), storage.data(), storage.root());
        const WinningContents expected = *again.with_winning_contents().winning_contents();
        EXPECT_EQ(storage.winning_contents()->texts, expected.texts);
        EXPECT_EQ(storage.winning_contents()->numbers, expected.numbers);
    }
}

TEST(Update, ContentsThatOneIdGetsTwiceAreRevisionsInTurn) {
    const DocumentStorage storage = updated({}, R"({"a": [{"_id": "e", "x": 1}, {"_id": "e", "x": 2}]})");
    EXPECT_EQ(revisions(storage, "e"),
              Revisions({with_hashes("1-«{\"x\": 1}»_first"), with_hashes("2-«{\"x\": 2}»_") + suffix("{\"x\": 1}")}));
    EXPECT_EQ(read(storage), R"({"_id": "root", "a": [{"_id": "e", "x": 2}, {"_id": "e", "x": 2}]})");
}

// Forty notes with lists of their own.
std::string notes(std::initializer_list<std::pair<int, const char*>> others = {}) {
    std::map<int, std::string> all;  // by place
    for (int i = 0; i < 40; ++i) {
        const std::string number = std::to_string(i);
        all[10 * i] = R"({"_id": "n)" + number + R"(", "title": "x", "tasks": [{"_id": "t)" + number + R"("}]})";
    }
    for (const auto& [place, note] : others) all[place] = note;
    std::string text = R"({"notes": [)";
    std::string_view separator;
    for (const auto& [place, note] : all) {
        if (note.empty()) continue;
        text.append(separator).append(note);
        separator = ", ";
    }
    return text + "]}";
}

TEST(Update, IsTheSameWithWhatTheLastOneLearned) {
    const struct {
        const char* what;
        std::string data;
        const char* config = "{}";
    } steps[] = {
        {"new", notes()},
        {"nothing", notes()},
        {"nothing again", notes()},
        {"a changed one", notes({{70, R"({"_id": "n7", "title": "y", "tasks": [{"_id": "t7"}]})"}})},
        {"new ones at the beginning, inside and at the end",
         notes({{-1, R"({"_id": "a0"})"}, {75, R"({"_id": "n70", "l": [{"_id": "z1"}]})"}, {999, R"({"_id": "z0"})"}})},
        {"one gone, its element moved", notes({{70, ""}, {80, R"({"_id": "n8", "tasks": [{"_id": "t7"}]})"}})},
        {"all back", notes()},
        {"one gone, whose list stays", notes({{70, ""}})},
        {"an element of that list in another one",
         notes({{70, ""}, {80, R"({"_id": "n8", "tasks": [{"_id": "t7"}]})"}})},
        {"it is back with its list", notes()},
        {"all in another order", notes({{0, ""}, {395, R"({"_id": "n0", "title": "x", "tasks": [{"_id": "t0"}]})"}})},
        {"one twice", notes({{5, R"({"_id": "n9", "title": "y"})"}})},
        {"one twice, unchanged", notes({{5, R"({"_id": "n1", "o": [{"_id": "t5"}]})"}})},
        {"nothing", notes()},
        {"another instance", notes(), R"({"instance_id": "b"})"},
        {"another instance again", notes(), R"({"instance_id": "b"})"},
        {"another hash", notes(), R"({"force_fast_hash_only": true, "instance_id": "b"})"},
        {"an empty list", notes({{70, R"({"_id": "n7", "title": "x", "tasks": []})"}}), R"({"instance_id": "b"})"},
        {"another path", R"({"other": [{"_id": "n0", "title": "x", "tasks": [{"_id": "t0"}]}]})"},
        {"nothing", notes()},
    };
    DocumentStorage storage;
    std::shared_ptr<const LastUpdate> last;
    for (const auto& [what, data, config] : steps) {
        for (int time = 0; time < 2; ++time) {
            const std::string expected = serialized(updated(storage, data, config));
            Arena arena;
            SharedMemory memory;
            const TransformationSettings settings(parse_json(config, arena));
            const Updated result =
                update_again(storage, parse_json(data, arena), settings, arena, memory, last, Remember::yes);
            EXPECT_TRUE(serialized(result.storage) == expected) << what;
            if (what == std::string_view("nothing again")) {
                EXPECT_TRUE(result.as_it_was && result.last != nullptr && result.last == last) << what;
            }
            storage = result.storage;
            last = result.last;
        }
    }
}

}  // namespace
}  // namespace libzentadbpp
