#include "transformation/list_merge.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace libzentadbpp {
namespace {

// A list of letters.
std::vector<std::uint32_t> numbers(std::string_view letters) { return {letters.begin(), letters.end()}; }
std::string letters(const MergedList& list) {
    std::string text;
    for (const std::uint32_t number : list.numbers()) text += static_cast<char>(number);
    return text;
}

TEST(MergedList, DoesWhatABranchDid) {
    const struct {
        const char* what;
        std::string_view base;
        std::string_view start;
        std::string_view branch;
        std::string_view elsewhere;  // listed by other documents
        std::string_view expected;
    } cases[] = {
        {"nothing", "abc", "abc", "abc", "", "abc"},
        {"an addition after its neighbour", "abc", "abc", "abxc", "", "abxc"},
        {"behind what was added here at the same place", "abyc", "abc", "abxc", "", "abxyc"},
        {"before its neighbour", "abc", "abc", "xabc", "", "xabc"},
        {"at the end where no neighbour is left", "b", "a", "ax", "", "bx"},
        {"several in one place keep their order", "ab", "ab", "axyzb", "", "axyzb"},
        {"a removal stays without a word elsewhere", "abc", "abc", "ac", "", "abc"},
        {"a removal of what another list has", "abc", "abc", "ac", "b", "ac"},
        {"what was added on both sides is there once", "axb", "ab", "axb", "", "axb"},
        {"a move", "abcd", "abcd", "dabc", "", "dabc"},
        {"a move beside an addition", "abcdx", "abcd", "dabc", "", "dabcx"},
        {"a swap: of two longest parts the one that ends lowest stays", "abx", "ab", "ba", "", "bax"},
        {"a move past what was moved here", "bacd", "abcd", "bcda", "", "bcda"},
        {"a move of what was moved here stays as here", "dabc", "abcd", "adbc", "", "dabc"},
        {"a move of what was removed here", "bc", "abc", "bca", "", "bc"},
        {"next to what was moved here only where nothing else is shared", "cab", "abc", "cx", "", "cxab"},
        {"not next to it where something else is", "cab", "abc", "acx", "", "caxb"},
        {"the second of two is another entry", "aab", "aab", "abac", "", "abac"},
        {"a second one added", "ab", "ab", "aba", "", "aba"},
        {"from nothing, as copies that both made the list", "ab", "", "cb", "", "acb"},
        {"into nothing", "", "", "ab", "", "ab"},
        {"all was taken out and is elsewhere", "ab", "ab", "", "ab", ""},
    };
    for (const auto& [what, base, start, branch, elsewhere, expected] : cases) {
        SCOPED_TRACE(what);
        MergedList list(numbers(base));
        const auto is_elsewhere = [&, listed = elsewhere](std::uint32_t number) {
            return listed.find(static_cast<char>(number)) != std::string_view::npos;
        };
        const auto began = numbers(start);
        list.merge(began, numbers(branch), is_elsewhere);
        EXPECT_EQ(letters(list), expected);
        list.merge(began, numbers(branch), is_elsewhere);
        EXPECT_EQ(letters(list), expected) << "a second time";
    }
}

TEST(MergedList, TakesBranchesOneAfterTheOther) {
    const auto start = numbers("abcdef");
    MergedList list(start);
    const auto nowhere = [](std::uint32_t) { return false; };
    for (const char* branch : {"fabcde", "abcdxef", "bacdef", "abcdefy"}) list.merge(start, numbers(branch), nowhere);
    EXPECT_EQ(letters(list), "fbacdxey");
}

// Ten thousand branches of one list cost no more than their lengths, each move and each addition counted.
TEST(MergedList, TakesManyBranches) {
    constexpr std::uint32_t count = 10000;
    std::vector<std::uint32_t> start{0, 1, 2, 3};
    MergedList list(start);
    const auto nowhere = [](std::uint32_t) { return false; };
    for (std::uint32_t number = 0; number < count; ++number) {
        list.merge(start, std::vector<std::uint32_t>{0, 1, number + 10, 2, 3}, nowhere);
    }
    EXPECT_EQ(list.numbers().size(), count + start.size());
    EXPECT_LT(list.work(), count * 16);
}

}  // namespace
}  // namespace libzentadbpp
