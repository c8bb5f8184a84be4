// One document that copies changed apart: merging is the union, in any order.

#include <gtest/gtest.h>

#include <string_view>
#include <utility>
#include <vector>

#include "documents/document_merge.h"
#include "properties/naive.h"
#include "properties/seeds.h"

namespace libzentadbpp {
namespace {

DocumentRef merged(const DocumentRef& target, const DocumentRef& source) {
    const DocumentRef merge = merge_documents(*target, *source);
    return merge != nullptr ? merge : target;
}

naive::Tree naive_tree(const DocumentRef& document) { return naive::tree_of(document->history()); }

// Copies that changed one document apart, with few contents, so that they often come to the same one on different ways.
std::vector<DocumentRef> random_copies(Random& random, bool is_ordering) {
    constexpr std::string_view hashes[] = {"a", "b", "c", "aaaaaaa1", "aaaaaaa2", deleted_hash};
    std::vector<DocumentRef> copies;
    for (int i = 0; i < 4; ++i) {
        copies.push_back(is_ordering ? MultiVersionDocument::first("ord-1", hashes[random.below(3)])
                                     : MultiVersionDocument::first("d", "a"));
    }
    if (random.one_in(2)) {  // all from one conflict
        for (const char* hash : {"a", "b", "c"}) copies[0] = copies[0]->with_child(0, hash);
        for (DocumentRef& copy : copies) copy = merged(copy, copies[0]);
    }
    for (std::size_t steps = random.below(24); steps-- != 0;) {
        DocumentRef& copy = copies[random.below(copies.size())];
        const auto leaves = copy->leaves_or_none();
        const std::uint32_t leaf = leaves[random.below(leaves.size())];
        switch (random.below(5)) {
            case 0:
                copy = merged(copy, copies[random.below(copies.size())]);
                break;
            case 1:
            case 2:
                if (leaves.size() > 1) copy = copy->with_child(leaf, resolved_hash);
                break;
            default:
                copy = copy->with_child(leaf, hashes[random.below(std::size(hashes))]);
        }
    }
    return copies;
}

void check_merge(const DocumentRef& a, const DocumentRef& b) {
    const naive::Merge expected = naive::merged(naive_tree(a), naive_tree(b));
    const DocumentRef both = merged(a, b);
    ASSERT_EQ(naive_tree(both), expected.tree);
    ASSERT_EQ(merged(b, a)->history(), both->history()) << "not commutative";
    ASSERT_TRUE(both->has_winning());
    for (const DocumentRef& known : {a, b, both}) {
        ASSERT_EQ(merge_documents(*both, *known), nullptr) << "not idempotent";
    }
}

void check_three(const DocumentRef& a, const DocumentRef& b, const DocumentRef& c) {
    const DocumentRef ab = merged(a, b);
    const DocumentRef bc = merged(b, c);
    const DocumentRef left = merged(ab, c);
    const DocumentRef right = merged(a, bc);
    bool names_met = false;
    for (const auto& [target, source] : {std::pair(a, b), std::pair(b, c), std::pair(ab, c), std::pair(a, bc)}) {
        names_met = names_met || naive::merged(naive_tree(target), naive_tree(source)).names_met;
    }
    if (!names_met) {
        ASSERT_EQ(left->history(), right->history()) << "not associative";
    }
    const DocumentRef settled = merged(left, right);
    for (const DocumentRef& known : {a, b, c, ab, bc, left, right}) {
        ASSERT_EQ(merge_documents(*settled, *known), nullptr) << "does not settle";
    }
}

TEST(MergeDocuments, IsTheUnionInAnyOrder) {
    for_seeds(1, 3000, [](std::uint64_t seed) {
        Random random(seed);
        const auto copies = random_copies(random, seed % 3 == 0);
        for (const DocumentRef& a : copies) {
            for (const DocumentRef& b : copies) ASSERT_NO_FATAL_FAILURE(check_merge(a, b));
        }
        ASSERT_NO_FATAL_FAILURE(check_three(copies[0], copies[1], copies[2]));
        ASSERT_NO_FATAL_FAILURE(check_three(copies[3], copies[1], copies[0]));
    });
}

struct Names {
    std::string_view first, next, beside;
};

// A chain, where wanted with a fork at each of its revisions.
DocumentRef huge(const Names& names, std::uint32_t length, bool forks) {
    std::vector<TreeRevision> tree{TreeRevision::make(names.first, 1, no_entry)};
    std::uint32_t above = 0;
    for (std::uint32_t index = 2; index <= length; ++index) {
        const std::uint32_t parent = std::exchange(above, static_cast<std::uint32_t>(tree.size()));
        tree.push_back(TreeRevision::make(names.next, index, parent));
        if (forks) tree.push_back(TreeRevision::make(names.beside, index, parent));
    }
    return MultiVersionDocument::make("ord-1", tree);
}

// Recursion would overflow the stack here, and anything quadratic would not end.
TEST(MergeDocuments, TakesHugeTrees) {
    for (const auto& [length, forks] : {std::pair(1000000U, false), std::pair(100000U, true)}) {
        const DocumentRef parts[] = {huge({"c_first", "c_x", "c_y"}, length, forks),
                                     huge({"b_first", "b_x", "b_y"}, length / 2, forks),
                                     huge({"a_first", "a_x", "a_y"}, length / 3, forks)};
        const DocumentRef all = merged(merged(parts[0], parts[1]), parts[2]);
        EXPECT_EQ(all->winning().index, length + 1);
        EXPECT_EQ(merged(parts[2], merged(parts[1], parts[0]))->history(), all->history());
        Arena arena;
        const DocumentRef again = MultiVersionDocument::make(all->id(), read_history(all->history(), arena));
        EXPECT_EQ(again->history(), all->history());
        const DocumentRef updated = again->with_child(again->winning_position(), "u");
        EXPECT_EQ(merged(all, updated)->history(), updated->history());
    }
}

}  // namespace
}  // namespace libzentadbpp
