// What copies make of their lists, and what comes of it once they are merged: see merges.json, where `copies` holds the
// states that each copy gives its data one after the other, `merged` what is read once all were replicated into the
// first, and `stored` the sync JSON after an update with that.

#include <gtest/gtest.h>

#include <fstream>

#include "documents/document_queries.h"
#include "replication/replicator.h"
#include "transformation/in_texts.h"

namespace libzentadbpp {
namespace {

using namespace in_texts;

constexpr std::string_view fast = R"({"force_fast_hash_only": true})";

std::string written(const JsonValue& value) {
    TextBuffer out;
    write_json(value, out);
    return std::string(out.view());
}

DocumentStorage merged(const DocumentStorage& source, const DocumentStorage& target) {
    SharedMemory memory;
    return replicate(source, target, memory);
}

DocumentStorage settled(const DocumentStorage& storage, std::string_view id, const std::string& revision) {
    return resolve(storage, *storage.documents().find(id), Revision(revision));
}

TEST(Merges, KeepWhatEachCopyDid) {
    std::ifstream file(ZENTADBPP_MERGES_FILE);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    Arena arena;
    const JsonValue cases = parse_json(text, arena);
    ASSERT_EQ(cases.elements().size(), 58U);
    for (const JsonValue& example : cases.elements()) {
        SCOPED_TRACE(example.find("case")->as_string());
        const DocumentStorage start = updated({}, written(*example.find("start")), fast);
        std::optional<DocumentStorage> all;
        for (const JsonValue& states : example.find("copies")->elements()) {
            DocumentStorage copy = start;
            for (const JsonValue& state : states.elements()) copy = updated(copy, written(state), fast);
            all = all ? merged(copy, *all) : copy;
        }
        const std::string data = read(*all, fast);
        EXPECT_EQ(data, written(*example.find("merged")));
        const DocumentStorage stored = updated(*all, data, fast);
        EXPECT_EQ(serialized(stored), written(*example.find("stored")));
        EXPECT_EQ(serialized(updated(stored, data, fast)), serialized(stored)) << "an update changes what it stored";
        // Updates leave lists of empty arrays alone, reads store them.
        const DocumentStorage by_read = ReadIndex(stored, "default").shown().stored();
        EXPECT_EQ(read(by_read, fast), data);
        EXPECT_TRUE(ReadIndex(by_read, "default").shown().is_stored());
    }
}

// An edit that lost against a removal is chosen by closing the removal; the edit cannot be lost on both sides.
TEST(Merges, AnEditCanBeKeptAgainstARemoval) {
    const DocumentStorage start = updated({}, R"({"l": [{"_id": "a", "n": 1}]})");
    const std::string without = R"({"l": []})";
    const DocumentStorage removed = updated(updated(start, R"({"l": [{"_id": "a", "n": 3}]})"), without);
    const DocumentStorage edited = updated(start, R"({"l": [{"_id": "a", "n": 2}]})");
    const DocumentStorage both = merged(edited, removed);
    ASSERT_EQ(read(both), R"({"_id": "root", "l": []})");
    const std::string deletion = both.find("a")->winning().revision_string();
    const DocumentStorage kept = settled(both, "a", deletion);
    EXPECT_EQ(read(kept), R"({"_id": "root", "l": [{"_id": "a", "n": 2}]})");
    EXPECT_EQ(serialized(settled(kept, "a", deletion)), serialized(kept));

    const DocumentStorage removed_twice =
        merged(updated(updated(edited, R"({"l": [{"_id": "a", "n": 4}]})"), without), removed);
    const std::string last = removed_twice.find("a")->winning().revision_string();
    EXPECT_EQ(serialized(settled(removed_twice, "a", last)), serialized(removed_twice))
        << "only deleted leaves are left";
}

// Two concurrent moves show an element in both lists. An edit in either place counts, and giving the same data again
// changes nothing.
TEST(Merges, AnElementInTwoListsCanBeEditedInOne) {
    const DocumentStorage start = updated({}, R"({"p": [{"_id": "a", "n": 1}], "q": [], "r": []})");
    const DocumentStorage both = merged(updated(start, R"({"p": [], "q": [{"_id": "a", "n": 1}], "r": []})"),
                                        updated(start, R"({"p": [], "q": [], "r": [{"_id": "a", "n": 1}]})"));
    ASSERT_EQ(read(both), R"({"_id": "root", "p": [], "q": [{"_id": "a", "n": 1}], "r": [{"_id": "a", "n": 1}]})");
    for (const char* edited : {R"({"p": [], "q": [{"_id": "a", "n": 2}], "r": [{"_id": "a", "n": 1}]})",
                               R"({"p": [], "q": [{"_id": "a", "n": 1}], "r": [{"_id": "a", "n": 2}]})"}) {
        const DocumentStorage after = updated(both, edited);
        EXPECT_EQ(read(after), R"({"_id": "root", "p": [], "q": [{"_id": "a", "n": 2}], "r": [{"_id": "a", "n": 2}]})");
        EXPECT_EQ(serialized(updated(after, edited)), serialized(after));
    }
}

// Whoever reads data cannot delete what it did not show; whoever settles for the losing version finds it whole.
TEST(Merges, AnUpdateKeepsWhatOnlyALosingVersionHas) {
    const DocumentStorage start = updated({}, R"({"l": [{"_id": "t", "n": 0}]})");
    const DocumentStorage plain =
        updated(updated(start, R"({"l": [{"_id": "t", "n": 1}]})"), R"({"l": [{"_id": "t", "n": 2}]})");
    const std::string with_list = R"({"l": [{"_id": "t", "c": [{"_id": "c1", "d": [{"_id": "d1"}]}], "n": 3}]})";
    const DocumentStorage both = merged(updated(start, with_list), plain);
    const std::string shown = read(both);
    ASSERT_EQ(shown, R"({"_id": "root", "l": [{"_id": "t", "n": 2}]})");
    const DocumentStorage after = updated(both, shown);
    const std::string winner = after.find("t")->winning().revision_string();
    const DocumentStorage chosen = settled(after, "t", winner);
    EXPECT_EQ(read(chosen),
              canonical(R"({"_id": "root", "l": [{"_id": "t", "c": [{"_id": "c1", "d": [{"_id": "d1"}]}], "n": 3}]})"));
    // Once the conflict is settled for the winner, the next update deletes it.
    const std::string loser = conflicting_revisions(*after.find("t")).front();
    EXPECT_TRUE(updated(settled(after, "t", loser), shown).find("c1")->winning().is_deleted());
}

// When the last state is stored, four lists have e0, and the update takes it out of one of them. What the others have
// decides whether it would leave its place.
TEST(Merges, AnUpdateLooksAtAllListsOfAnElement) {
    const auto in_turn = [](DocumentStorage storage, std::initializer_list<const char*> states) {
        for (const char* const state : states) storage = updated(storage, state, fast);
        return storage;
    };
    const DocumentStorage start = in_turn(
        {}, {R"({"a": [{"_id": "p0", "s": []}, {"_id": "p1", "s": []}, {"_id": "e1"}], "b": [{"_id": "e0"}]})"});
    const DocumentStorage one = in_turn(
        start, {R"({"a": [{"_id": "p1", "s": [{"_id": "e0"}, {"_id": "e1"}]}, {"_id": "p0", "s": []}], "b": []})",
                R"({"a": [{"_id": "p1", "s": []}, {"_id": "p0", "s": [{"_id": "e1"}]}], "b": [{"_id": "e0"}]})"});
    const DocumentStorage other =
        in_turn(start, {R"({"a": [{"_id": "p0", "s": []}, {"_id": "e1"}], "b": [{"_id": "p1", "s": [{"_id": "e0"}]}]})",
                        R"({"a": [{"_id": "p1", "s": [{"_id": "e0"}]}], "b": [{"_id": "p0", "s": [{"_id": "e1"}]}]})"});
    const std::string data = canonical(
        R"({"_id": "root", "a": [{"_id": "p0", "s": [{"_id": "p1", "s": [{"_id": "e0"}, {"_id": "e1"}]}]}], "b": []})");
    const DocumentStorage after = updated(merged(other, one), data, fast);
    EXPECT_EQ(read(after, fast), data);
    EXPECT_EQ(serialized(updated(after, data, fast)), serialized(after));
}

// The losing version of an object that was moved has another array than before; what a third copy put into that one
// belongs to it as well.
TEST(Merges, AnUpdateKeepsWhatAMovedLoserGetsBack) {
    const DocumentStorage start = updated({}, R"({"p": [{"_id": "P", "in": [{"_id": "k"}]}], "q": []})", fast);
    const DocumentStorage moved = updated(start, R"({"p": [], "q": [{"_id": "P", "in": [{"_id": "k"}]}]})", fast);
    const DocumentStorage added =
        updated(start, R"({"p": [{"_id": "P", "in": [{"_id": "k"}, {"_id": "n"}]}], "q": []})", fast);
    const DocumentStorage removed = updated(start, R"({"p": [], "q": []})", fast);
    const DocumentStorage all = merged(added, merged(removed, moved));
    const std::string shown = read(all, fast);
    ASSERT_EQ(shown, R"({"_id": "root", "p": [], "q": []})");
    const DocumentStorage after = updated(all, shown, fast);
    EXPECT_FALSE(after.find("n")->winning().is_deleted());
    const DocumentStorage kept = settled(after, "P", after.find("P")->winning().revision_string());
    EXPECT_NE(read(kept, fast).find(R"({"_id": "n"})"), std::string::npos) << read(kept, fast);
}

}  // namespace
}  // namespace libzentadbpp
