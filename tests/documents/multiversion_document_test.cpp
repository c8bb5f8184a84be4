#include "documents/multiversion_document.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "data/data_hash.h"
#include "json/error.h"
#include "properties/naive.h"

namespace libzentadbpp {
namespace {

DocumentRef read(std::string_view history) {
    Arena arena;
    return MultiVersionDocument::make("id", read_history(history, arena));
}

std::string winning_of(const MultiVersionDocument& document) {
    return document.has_winning() ? document.winning().revision_string() : "none";
}

naive::Revision naive_of(const TreeRevision& revision) { return {revision.index, std::string(revision.text)}; }

void expect_like(const MultiVersionDocument& document, const naive::Tree& model) {
    naive::Tree tree;
    const auto revisions = document.revisions();
    for (std::size_t at = 0; at < revisions.size(); ++at) {
        const TreeRevision& revision = revisions[at];
        const bool is_first = revision.parent == no_entry;
        EXPECT_TRUE(is_first || revision.parent < at);
        EXPECT_TRUE(at == 0 || naive_of(revisions[at - 1]) < naive_of(revision));
        tree[naive_of(revision)] = is_first ? naive::Revision() : naive_of(revisions[revision.parent]);
        EXPECT_EQ(document.find(Revision(revision.revision_string())), at);
        EXPECT_EQ(document.find(revision.index + 1, revision.text).has_value(),
                  model.contains({revision.index + 1, std::string(revision.text)}));
    }
    EXPECT_EQ(tree, model);
    std::set<naive::Revision> leaves;
    for (const std::uint32_t at : document.leaves_or_none()) leaves.insert(naive_of(revisions[at]));
    EXPECT_EQ(leaves, naive::leaves(model));
    EXPECT_EQ(winning_of(document), leaves.empty() ? "none" : naive::text_of(naive::winner(model)));
}

std::string damaged_history(std::mt19937_64& random, int levels) {
    constexpr const char* others[] = {"5", "null", R"({"x": ["B_A"]})", "[]", "[[]]"};
    constexpr const char* revisions[] = {"\"A_x\"", "\"B_x\"", "\"C_x\"", R"("\u0041_x")", "\"resolved_x\""};
    std::string entries;
    for (std::size_t left = random() % 6; left > 0; --left) {
        const std::size_t what = random() % 10;
        const bool is_array = what < 4 && levels > 0;
        entries += ", ";
        entries +=
            is_array ? "[" + damaged_history(random, levels - 1) + "]" : (what == 4 ? others : revisions)[random() % 5];
    }
    return entries.empty() ? entries : entries.substr(2);
}

TEST(MultiVersionDocument, DamagedHistoriesAreReadAsFarAsTheyTell) {
    for (std::uint64_t seed = 1; seed <= 3000; ++seed) {
        std::mt19937_64 random(seed);
        const std::string rest = damaged_history(random, 5);
        const std::string history = R"(["A_first")" + (rest.empty() ? "" : ", " + rest) + "]";
        SCOPED_TRACE("seed " + std::to_string(seed) + ": " + history);
        const DocumentRef document = read(history);
        expect_like(*document, naive::tree_of(history));
        EXPECT_EQ(read(document->history())->history(), document->history());
        if (HasFailure()) return;
    }
}

TEST(MultiVersionDocument, FindsRevisionsByTheirStrings) {
    const DocumentRef document = read(R"(["A_x", ["B_A", "C_A"]])");
    EXPECT_EQ(document->find(Revision{"2-C_A"}), 2U);
    for (const char* text : {"2-A_x", "1-B_A", "3-B_A", "02-B_A", "2x-B_A", "2-D_A", "2-B_", "0-A_x"}) {
        EXPECT_FALSE(document->find(Revision{text})) << text;
    }
}

TEST(MultiVersionDocument, GrowsByChildren) {
    const DocumentRef first = MultiVersionDocument::first("id", "0123456789");
    EXPECT_EQ(first->history(), R"(["0123456789_first"])");
    const DocumentRef second = first->with_child(0, "B");
    const DocumentRef forked = second->with_child(0, "A");
    EXPECT_EQ(forked->history(), R"(["0123456789_first", ["A_0123456", "B_0123456"]])");
    EXPECT_EQ(second->history(), R"(["0123456789_first", "B_0123456"])") << "a document never changes";
    EXPECT_EQ(forked->with_child(0, "B")->history(), forked->history());
    EXPECT_EQ(forked->with_child(1, resolved_hash)->with_child(3, resolved_hash)->history(),
              R"(["0123456789_first", [["A_0123456", "resolved_A", "resolved_resolve"], "B_0123456"]])");
    // The name is taken by a revision of the same content under another parent.
    const DocumentRef once = read(R"(["A_x", ["0123456a_A", "0123456b_A"]])")->with_child(1, "C");
    EXPECT_EQ(once->with_child(2, "C")->history(),
              R"(["A_x", [["0123456a_A", "C_0123456"], ["0123456b_A", "empty_0123456", "C_empty"]]])");
    EXPECT_EQ(once->with_child(1, "empty")->with_child(2, "C")->history(),
              R"(["A_x", [["0123456a_A", ["C_0123456", "empty_0123456"]], )"
              R"(["0123456b_A", "0123456b_0123456", "C_0123456"]]])");
}

// An empty revision in between has a name of its own only once, and must never end a branch.
TEST(MultiVersionDocument, ClosesLeavesWithTheSameContents) {
    const DocumentRef document = read(R"(["A_x", [["P_A", ["C_P", "E_P", "F_P"]], ["Q_A", ["C_Q", "E_Q", "F_Q"]]]])");
    SharedMemory memory = SharedMemory::unshared();
    EXPECT_EQ(document->with_resolved(document->leaves(), memory)->history(),
              R"(["A_x", [["P_A", [["C_P", "resolved_C"], ["E_P", "resolved_E"], ["F_P", "resolved_F"]]], )"
              R"(["Q_A", [["C_Q", "empty_C", "resolved_empty"], ["E_Q", "empty_E", "empty_empty", "resolved_empty"], )"
              R"(["F_Q", "F_F", "resolved_F"]]]]])");
}

// Where long branches were closed and a short one is left, other branches have used up the names that few contents
// give.
TEST(MultiVersionDocument, FindsANameWhereFewContentsLeaveNone) {
    for (const HashKind kind : {HashKind::sha256, HashKind::fast}) {
        DataHasher hasher(kind);
        const std::string a(hasher("a"));
        const std::string suffix = a.substr(0, 7);
        std::string taken;
        for (const std::string& hash :
             {std::string("B"), std::string("C"), std::string("empty"), std::string("resolved"), a}) {
            taken.append(taken.empty() ? "\"" : "\", \"").append(hash).append("_").append(suffix);
        }
        const std::string leaf = "\"" + a + "_x\"";
        const DocumentRef document = read("[\"B_first\", [[\"" + a + "_w\", [" + taken + "\"]], " + leaf + "]]");
        const auto position = static_cast<std::uint32_t>(*document->find(2, a + "_x"));
        const std::string between(hasher("2-" + a + "_x"));
        for (const std::string hash : {"C", "resolved"}) {
            const DocumentRef grown = document->with_child(position, hash);
            std::string expected(document->history());
            expected.replace(
                expected.find(leaf), leaf.size(),
                "[" + leaf + ", \"" + between + "_" + suffix + "\", \"" + hash + "_" + between.substr(0, 7) + "\"]");
            EXPECT_EQ(grown->history(), expected);
            EXPECT_EQ(grown->with_child(position, hash)->history(), expected);
        }
        // A text may be made that uses up this one too.
        const DocumentRef forged = read("[\"B_first\", [[\"" + a + "_w\", [" + taken + "\", \"" + between + "_" +
                                        suffix + "\"]], " + leaf + "]]");
        EXPECT_THROW((void)forged->with_child(position, "C"), InvalidParentRevisionException);
    }
}

TEST(MultiVersionDocument, OutlivesWhatItWasMadeFrom) {
    auto arena = std::make_shared<Arena>();
    std::string history = R"(["A_x", ["\u0042_x", "C_x"]])";
    const std::string_view text = arena->copy(std::string_view(history));
    const std::string_view id = arena->copy(std::string_view("id"));
    const auto revisions = read_history(text, *arena);
    const DocumentRef copied = MultiVersionDocument::make(id, revisions);
    const DocumentRef sharing = MultiVersionDocument::make_in(*arena, arena, id, revisions, {});
    const DocumentRef with_text = MultiVersionDocument::make_in(*arena, arena, id, revisions, text);
    const std::weak_ptr<Arena> memory = arena;
    arena.reset();
    EXPECT_EQ(with_text->history(), history);
    for (const DocumentRef& document : {copied, sharing}) {
        EXPECT_EQ(document->id(), "id");
        EXPECT_EQ(document->history(), R"(["A_x", ["B_x", "C_x"]])");
        EXPECT_EQ(winning_of(*document), "2-B_x");
        EXPECT_EQ(document->with_child(1, "D")->history(), R"(["A_x", [["B_x", "D_B"], "C_x"]])");
    }
    EXPECT_FALSE(memory.expired());
}

TEST(MultiVersionDocument, RandomTreesFollowTheModel) {
    for (std::uint64_t seed = 1; seed <= 400; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937_64 random(seed);
        const std::size_t reach = 1 + random() % 8;
        // Few hashes, so that one revision is often reached along several ways.
        const std::vector<std::string> hashes = {"A",       "B",        "abcdefghA", "abcdefghB",
                                                 "deleted", "resolved", "resolved",  "\"]\\,\n\xe2\x80\xa8"};
        naive::Tree model{{{1, "A_first"}, {}}};
        DocumentRef document = MultiVersionDocument::first("id", "A");
        for (std::size_t step = random() % 40; step > 0; --step) {
            const std::size_t size = document->revisions().size();
            const auto parent = static_cast<std::uint32_t>(size - 1 - random() % std::min(reach, size));
            const std::string& hash = hashes[random() % hashes.size()];
            if (naive::add(model, naive_of(document->revisions()[parent]), hash)) {
                document = document->with_child(parent, hash);
            } else {
                // The names in between are the library's choice, but only the new revision may end a branch.
                std::set<naive::Revision> leaves = naive::leaves(model);
                leaves.erase(naive_of(document->revisions()[parent]));
                document = document->with_child(parent, hash);
                model = naive::tree_of(document->history());
                std::vector<std::string> added;
                for (const naive::Revision& leaf : naive::leaves(model)) {
                    if (!leaves.contains(leaf)) added.push_back(naive::hash_of(leaf));
                }
                EXPECT_EQ(added, hash == "resolved" ? std::vector<std::string>() : std::vector{hash});
            }
        }
        expect_like(*document, model);
        EXPECT_EQ(naive::tree_of(document->history()), model);

        // In any order, in either memory, and after writing and reading, the same document.
        std::vector<std::uint32_t> order(document->revisions().size());
        for (std::uint32_t i = 0; i < order.size(); ++i) order[i] = i;
        std::shuffle(order.begin(), order.end(), random);
        std::vector<TreeRevision> shuffled;
        for (const std::uint32_t at : order) {
            shuffled.push_back(document->revisions()[at]);
            std::uint32_t& parent = shuffled.back().parent;
            if (parent == no_entry) continue;
            parent = static_cast<std::uint32_t>(std::find(order.begin(), order.end(), parent) - order.begin());
        }
        Arena arena;
        const DocumentRef others[] = {
            MultiVersionDocument::make("id", shuffled),
            MultiVersionDocument::make_in(arena, nullptr, "id", shuffled, {}),
            read(document->history()),
        };
        for (const DocumentRef& other : others) {
            expect_like(*other, model);
            EXPECT_EQ(other->history(), document->history());
        }
    }
}

}  // namespace
}  // namespace libzentadbpp
