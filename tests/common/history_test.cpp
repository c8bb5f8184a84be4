#include "common/history.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "common/error.h"
#include "common/json_writer.h"

namespace libzentadbpp {
namespace {

struct Collector final : HistoryVisitor {
    std::vector<HistoryEntry> entries;
    std::vector<std::uint32_t> generations;

    std::uint32_t visit(std::string_view entry, std::uint32_t generation, std::uint32_t parent) override {
        entries.push_back({entry, parent});
        generations.push_back(generation);
        return static_cast<std::uint32_t>(entries.size() - 1);
    }
};

std::string folded(const std::vector<HistoryEntry>& entries) {
    TextBuffer out;
    fold(entries, out);
    return std::string(out.view());
}

// Each entry as <generation><text> under its parent's text.
std::string told(std::string_view history) {
    Arena arena;
    Collector visitor;
    try {
        unfold(history, arena, visitor);
    } catch (const InvalidRevisionException& failure) {
        return failure.what();
    }
    std::string lines;
    for (std::size_t i = 0; i < visitor.entries.size(); ++i) {
        const HistoryEntry& entry = visitor.entries[i];
        if (i > 0) lines.append(" ");
        lines.append(std::to_string(visitor.generations[i])).append(entry.text);
        if (entry.parent != no_entry) lines.append("<").append(visitor.entries[entry.parent].text);
    }
    return lines;
}

TEST(History, UnfoldTellsEntriesAndPassesOverTheRest) {
    const struct {
        const char* history;
        const char* entries;
    } cases[] = {
        {"[]", ""},
        {R"(["A"])", "1A"},
        {R"(["A","B","C"])", "1A 2B<A 3C<B"},
        {R"(["A", "B", ["C", ["D", "E"]]])", "1A 2B<A 3C<B 3D<B 4E<D"},
        {R"(["A", [["B", [["C", "D"], "E"]], "F"]])", "1A 2B<A 3C<B 4D<C 3E<B 2F<A"},
        {R"( [ "A" , [ "B" , [ ] , [ "C" ] ] ] )", "1A 2B<A 2C<A"},
        {R"(["\u0041\n\"", "B"])", "1A\n\" 2B<A\n\""},
        {R"(["A", ""])", "1A 2<A"},
        // A branch that begins with branches belongs to the parent that they all have.
        {R"(["A", ["B", [["C", ["D"]]]]])", "1A 2B<A 2C<A 2D<A"},
        // Whatever follows branches tells nothing.
        {R"(["A", ["B"], "C", ["D"]])", "1A 2B<A"},
        {R"(["A", [["B", ["C"], "D"], "E"], "F"])", "1A 2B<A 3C<B 2E<A"},
        // An entry of another kind ends its chain, and is passed over among branches.
        {R"(["A", 1, "B"])", "1A"},
        {R"(["A", {"x": ["B", {}]}, ["B"]])", "1A"},
        {R"(["A", [1, "B", null, {"x": "y"}, ["C", true, "D"], "E"]])", "1A 2B<A 2C<A 2E<A"},
    };
    for (const auto& [history, entries] : cases) EXPECT_EQ(told(history), entries) << history;
}

TEST(History, UnfoldWantsAFirstEntry) {
    const struct {
        const char* history;
        const char* error;
    } cases[] = {
        {"[1]", "revision_not_a_string"},
        {R"([1, "A"])", "revision_not_a_string"},
        {R"([["A"], "B"])", "revision_not_a_string"},
        {"[null, []]", "revision_not_a_string"},
        {R"([{}, "A"])", "revision_not_a_string"},
        {R"([""])", "empty_revstring"},
        {R"(["", "A"])", "empty_revstring"},
    };
    for (const auto& [history, error] : cases) {
        const std::string message = told(history);
        EXPECT_NE(message.find(R"("filename" : "src/common/utils")"), std::string::npos) << history << message;
        EXPECT_NE(message.find(R"("function" : "unfold", "error" : ")" + std::string(error) + "\" }"),
                  std::string::npos)
            << history << message;
    }
}

TEST(History, FoldsNothingIntoAnEmptyArray) { EXPECT_EQ(folded({}), "[]"); }

// The definition, told naively.
void fold_naively(const std::vector<HistoryEntry>& entries, std::uint32_t entry, std::string& out) {
    TextBuffer text;
    write_json_string(entries[entry].text, text);
    out.append(text.view());
    std::vector<std::uint32_t> children;
    for (std::uint32_t i = 0; i < entries.size(); ++i) {
        if (entries[i].parent == entry) children.push_back(i);
    }
    if (children.empty()) return;
    if (children.size() == 1) {
        out.append(", ");
        fold_naively(entries, children[0], out);
        return;
    }
    out.append(", [");
    for (std::size_t i = 0; i < children.size(); ++i) {
        std::string branch;
        fold_naively(entries, children[i], branch);
        TextBuffer alone;
        write_json_string(entries[children[i]].text, alone);
        if (i > 0) out.append(", ");
        out.append(branch == alone.view() ? branch : "[" + branch + "]");
    }
    out.append("]");
}

TEST(History, FoldsRandomTreesAndUnfoldsThemAgain) {
    constexpr const char* odd[] = {"\"", "\\", "\n", "\x01", "\xe2\x80\xa8", "]", ",", "\xff", "/"};
    for (std::uint64_t seed = 1; seed <= 300; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937_64 random(seed);
        const std::size_t size = 1 + random() % 40;
        const std::size_t reach = 1 + random() % 6;  // 1 makes a chain, more a bush
        std::vector<std::string> texts;
        for (std::size_t i = 0; i < size; ++i)
            texts.push_back("e" + std::to_string(i) + odd[random() % std::size(odd)]);
        std::vector<HistoryEntry> tree;
        for (std::size_t i = 0; i < size; ++i) {
            const std::size_t back = 1 + random() % std::min(reach, std::max<std::size_t>(i, 1));
            tree.push_back({texts[i], i == 0 ? no_entry : static_cast<std::uint32_t>(i - back)});
        }
        std::string expected = "[";
        fold_naively(tree, 0, expected);
        expected.append("]");
        const std::string text = folded(tree);
        ASSERT_EQ(text, expected);

        Arena arena;
        Collector read;
        unfold(text, arena, read);
        ASSERT_EQ(read.entries.size(), size);
        for (std::size_t i = 0; i < size; ++i) {
            const auto original = static_cast<std::size_t>(
                std::find(texts.begin(), texts.end(), std::string(read.entries[i].text)) - texts.begin());
            ASSERT_LT(original, size);
            const std::uint32_t parent = read.entries[i].parent;
            ASSERT_EQ(parent == no_entry, original == 0);
            ASSERT_EQ(read.generations[i], parent == no_entry ? 1 : read.generations[parent] + 1);
            if (parent == no_entry) continue;
            ASSERT_EQ(read.entries[parent].text, texts[tree[original].parent]);
        }
        EXPECT_EQ(folded(read.entries), text) << "reading keeps the order of the branches";
    }
}

// Quadratic work or recursion on any of these would not end, or overflow the stack.
TEST(History, HugeTreesAreLinear) {
    constexpr std::uint32_t size = 1000000;
    struct Shape {
        const char* name;
        std::uint32_t (*parent)(std::uint32_t);
    };
    const Shape shapes[] = {
        {"chain", [](std::uint32_t i) { return i - 1; }},
        {"fan", [](std::uint32_t) { return 0U; }},
        {"comb, two levels of nesting for each fork", [](std::uint32_t i) { return i < 3 ? 0U : (i - 1) / 2 * 2; }},
        {"fan of chains", [](std::uint32_t i) { return i <= 1000 ? 0U : i - 1000; }},
    };
    for (const Shape& shape : shapes) {
        SCOPED_TRACE(shape.name);
        std::vector<HistoryEntry> tree = {{"e", no_entry}};
        for (std::uint32_t i = 1; i < size; ++i) tree.push_back({"e", shape.parent(i)});
        const std::string text = folded(tree);
        Arena arena;
        Collector read;
        unfold(text, arena, read);
        ASSERT_EQ(read.entries.size(), size);
        EXPECT_TRUE(folded(read.entries) == text);
    }
}

TEST(History, ReadsEmptyNestsOfAnyDepth) {
    constexpr std::size_t depth = 1000000;
    const std::string open(depth, '[');
    const std::string close(depth, ']');
    EXPECT_EQ(told(R"(["A", )" + open + R"("B")" + close + "]"), "1A 2B<A");
    EXPECT_EQ(told(R"(["A", 1, )" + open + R"("B")" + close + "]"), "1A");
}

}  // namespace
}  // namespace libzentadbpp
