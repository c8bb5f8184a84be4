#include "transformation/shown_data.h"

#include <gtest/gtest.h>

#include <sstream>

#include "transformation/in_texts.h"

namespace libzentadbpp {
namespace {

using namespace in_texts;

std::vector<std::string> words(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

// A root with the arrays a and b (domains DA and DB), the live elements n, p and q, the deleted x, and ordering
// documents with the given histories and contents: lines of a content's name, its instance, its domain, its elements.
std::string storage_text(const std::string& histories, const std::string& lists) {
    std::string contents;
    std::istringstream lines(lists);
    for (std::string line; std::getline(lines, line, ';');) {
        const std::vector<std::string> list = words(line);
        std::string ids;
        for (std::size_t i = 3; i < list.size(); ++i) ids += (i == 3 ? "\"" : ", \"") + list[i] + "\"";
        contents +=
            ", \"" + list[0] + R"(": {"d": ")" + list[2] + R"(", "i": ")" + list[1] + R"(", "s": [)" + ids + "]}";
    }
    return canonical(R"({"d": {"n": ["e_first"], "p": ["e_first"], "q": ["e_first"], "root": ["r_first"],
        "x": ["e_first", "deleted_e"], )" +
                     histories + R"(}, "o": {"e": {}, "r": {"a": "ADA", "b": "ADB"})" + contents +
                     R"(}, "r": "root"})");
}

// "p q|n": the elements of a and of b.
std::string shown(const DocumentStorage& storage) {
    const ReadIndex index(storage, "me");
    std::string text;
    for (const char* domain : {"DA", "DB"}) {
        const auto elements = index.shown().elements(domain);
        for (const std::uint32_t number : elements.value_or(std::span<const std::uint32_t>{})) {
            if (!text.empty() && text.back() != '|') text += " ";
            text += index.documents().id(number);
        }
        if (domain[1] == 'A') text += "|";
    }
    return text;
}

TEST(ShownData, PutsListsTogether) {
    const std::string one = R"("ord-1": ["w_first"])";
    const std::string forked = R"("ord-1": ["w0_first", ["w1_w0", "w2_w0"]])";  // w1 wins
    const struct {
        const char* what;
        std::string histories;
        const char* lists;
        const char* expected;
    } cases[] = {
        {"repetitions stay, dead ids go", one, "w me DA p q x p gone", "p q p|"},
        {"another leaf adds after the one before, as often as it lists", forked,
         "w0 me DA p q; w1 me DA p q; w2 me DA p n n q", "p n n q|"},
        {"before the one after", forked, "w1 me DA p q; w2 me DA n p q", "n p q|"},
        {"to the end", forked, "w1 me DA p q; w2 me DA n", "p q n|"},
        {"after the same occurrence", forked, "w0 me DA; w1 me DA p q p q; w2 me DA p q p n", "p q p n q|"},
        {"other instances in ascending order", one + R"(, "ord-2": ["b_first"], "ord-3": ["a_first"])",
         "w me DA p; b b DA n p; a a DA p n", "p n|"},
        {"the first instance that lists an element decides, wherever it has it",
         R"("ord-1": ["a_first"], "ord-2": ["aa_first"], "ord-3": ["b_first"])", "a a DA n p; aa a DB n n; b b DB p q",
         "n p|n n q"},
        {"two documents of one content place it once", R"("ord-1": ["a_first"], "ord-2": ["a_first"])", "a a DA p p n",
         "p p n|"},
        {"own leaves come before other instances", forked + R"(, "ord-2": ["a_first"])",
         "w1 me DA p; w2 me DA p n; a a DB n q", "p n|q"},
        {"what another leaf moved away leaves", forked + R"(, "ord-2": ["v_first"])",
         "w0 me DA p q; w1 me DA p q n; w2 me DA q; v me DB p", "q n|p"},
        {"but one place remains", forked + R"(, "ord-2": ["v0_first", ["v1_v0", "v2_v0"]])",
         "w0 me DA p; w1 me DA p q; w2 me DA; v0 me DB p; v1 me DB p n; v2 me DB", "p q|n"},
        {"what an older list held comes back", R"("ord-1": ["w0_first", "w1_w0", "w2_w1"])",
         "w0 me DB p; w1 me DA n p q; w2 me DA q", "n p q|"},
        {"also from a closed branch", R"("ord-1": ["w0_first", ["w1_w0", ["w2_w0", "resolved_w2"]]])",
         "w1 me DA q; w2 me DA q p", "q p|"},
        {"an array that nothing refers to places nothing", one + R"(, "ord-2": ["a_first"])", "w me DC p; a a DA p",
         "p|"},
    };
    for (const auto& [what, histories, lists, expected] : cases) {
        SCOPED_TRACE(what);
        const Opened opened(storage_text(histories, lists));
        EXPECT_EQ(shown(opened.storage()), expected);

        // Showing it again once it is stored is the same, and nothing is left to be stored.
        const DocumentStorage stored = ReadIndex(opened.storage(), "me").shown().stored();
        EXPECT_EQ(shown(stored), expected);
        EXPECT_TRUE(ReadIndex(stored, "me").shown().is_stored());
    }
}

TEST(ShownData, IsStoredInTheFormOfTheData) {
    for (const char* config : {R"({"instance_id": "me"})", R"({"instance_id": "me", "force_fast_hash_only": true})"}) {
        const DocumentStorage written = updated({}, R"({"a": [{"_id": "p"}, {"_id": "q"}]})", config);
        EXPECT_TRUE(ReadIndex(written, "me").shown().is_stored());
        // Read by another instance, which then has an order of its own in the same form.
        const DocumentStorage stored = ReadIndex(written, "you").shown().stored();
        ASSERT_EQ(stored.documents().size(), written.documents().size() + 1);
        const bool fast = std::string_view(config).find("fast") != std::string_view::npos;
        for (const auto& entry : stored.documents()) {
            if (!has_ordering_id(entry.key)) continue;
            const HashKind kind = fast ? HashKind::fast : HashKind::sha256;
            EXPECT_TRUE(is_hash_of_kind(entry.key.substr(4), kind)) << entry.key;
            EXPECT_TRUE(is_hash_of_kind(entry.value->winning().datahash(), kind));
        }
    }
}

}  // namespace
}  // namespace libzentadbpp
