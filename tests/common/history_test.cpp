#include "common/history.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

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
    unfold(history, arena, visitor);
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

// The definition, told naively.
std::string fold_naively(const std::vector<HistoryEntry>& entries, std::uint32_t entry) {
    TextBuffer text;
    write_json_string(entries[entry].text, text);
    std::vector<std::string> branches;
    for (std::uint32_t i = 0; i < entries.size(); ++i) {
        if (entries[i].parent == entry) branches.push_back(fold_naively(entries, i));
    }
    std::string out(text.view());
    if (branches.size() == 1) out.append(", ").append(branches[0]);
    if (branches.size() < 2) return out;
    for (std::size_t i = 0; i < branches.size(); ++i) {
        const bool alone = branches[i].find(", ") == std::string::npos;
        out.append(i == 0 ? ", [" : ", ").append(alone ? branches[i] : "[" + branches[i] + "]");
    }
    return out.append("]");
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
        const std::string text = folded(tree);
        ASSERT_EQ(text, "[" + fold_naively(tree, 0) + "]");

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

TEST(History, ReadsNestsOfAnyDepth) {
    constexpr std::size_t depth = 1000000;
    const std::string nest = std::string(depth, '[') + R"("B")" + std::string(depth, ']');
    EXPECT_EQ(told(R"(["A", )" + nest + "]"), "1A 2B<A");
    EXPECT_EQ(told(R"(["A", 1, )" + nest + "]"), "1A");
    EXPECT_EQ(folded({}), "[]");
}

}  // namespace
}  // namespace libzentadbpp
