#include "documents/history.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "json/writer.h"

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
    EXPECT_EQ(folded({}), "[]");
}

}  // namespace
}  // namespace libzentadbpp
