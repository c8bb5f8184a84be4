#include "transformation/ordering_reconciliation.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "replication/replicator.h"
#include "transformation/in_texts.h"

namespace libzentadbpp {
namespace {

using namespace in_texts;

// A list: who wrote it, for which array, and the elements.
struct List {
    std::string instance;
    std::string domain;
    std::string elements;
};

std::vector<std::string> words(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> all;
    for (std::string word; stream >> word;) all.push_back(word);
    return all;
}

// A root with the arrays a and b (domains DA and DB), the live elements n, p and q, the deleted x, and ordering
// documents with the given histories and contents.
std::string storage_text(const std::map<std::string, std::string>& histories,
                         const std::map<std::string, List>& lists) {
    std::string documents = R"("n": ["e_first"], "p": ["e_first"], "q": ["e_first"], "root": ["r_first"], )"
                            R"("x": ["e_first", "deleted_e"])";
    for (const auto& [id, history] : histories) documents += ", \"" + id + "\": " + history;
    std::string contents = R"("e": {}, "r": {"a": "ADA", "b": "ADB"})";
    for (const auto& [name, list] : lists) {
        std::string ids;
        for (const std::string& id : words(list.elements)) ids += (ids.empty() ? "\"" : ", \"") + id + "\"";
        contents += ", \"" + name + R"(": {"d": ")" + list.domain + R"(", "i": ")" + list.instance + R"(", "s": [)" +
                    ids + "]}";
    }
    return canonical("{\"d\": {" + documents + "}, \"o\": {" + contents + "}, \"r\": \"root\"}");
}

// "p q|n": the elements of a and of b.
std::string shown(const DocumentStorage& storage) {
    const DocumentIndex index(storage);
    const ElementOrder order(index, "me");
    std::string text;
    for (const char* domain : {"DA", "DB"}) {
        for (const std::uint32_t number : order.elements(domain)) {
            if (!text.empty() && text.back() != '|') text += " ";
            text += index.id(number);
        }
        if (domain[1] == 'A') text += "|";
    }
    return text;
}

TEST(ElementOrder, PutsListsTogether) {
    const std::string forked = R"(["w0_first", ["w1_w0", "w2_w0"]])";  // w1 wins
    const struct {
        const char* what;
        std::map<std::string, std::string> histories;
        std::map<std::string, List> lists;
        const char* expected;
    } cases[] = {
        {"repetitions stay, dead ids go",
         {{"ord-1", R"(["w_first"])"}},
         {{"w", {"me", "DA", "p q x p gone"}}},
         "p q p|"},
        {"another leaf adds once, after the one before",
         {{"ord-1", forked}},
         {{"w0", {"me", "DA", "p q"}}, {"w1", {"me", "DA", "p q"}}, {"w2", {"me", "DA", "p n n q"}}},
         "p n q|"},
        {"before the one after",
         {{"ord-1", forked}},
         {{"w1", {"me", "DA", "p q"}}, {"w2", {"me", "DA", "n p q"}}},
         "n p q|"},
        {"to the end", {{"ord-1", forked}}, {{"w1", {"me", "DA", "p q"}}, {"w2", {"me", "DA", "n"}}}, "p q n|"},
        {"after the last occurrence",
         {{"ord-1", forked}},
         {{"w1", {"me", "DA", "p q p q"}}, {"w2", {"me", "DA", "p n"}}},
         "p q p n q|"},
        {"other instances in ascending order",
         {{"ord-1", R"(["w_first"])"}, {"ord-2", R"(["b_first"])"}, {"ord-3", R"(["a_first"])"}},
         {{"w", {"me", "DA", "p"}}, {"b", {"b", "DA", "n p"}}, {"a", {"a", "DA", "p n"}}},
         "p n|"},
        {"the first instance that lists an element decides, wherever it has it",
         {{"ord-1", R"(["a_first"])"}, {"ord-2", R"(["aa_first"])"}, {"ord-3", R"(["b_first"])"}},
         {{"a", {"a", "DA", "n p"}}, {"aa", {"a", "DB", "n n"}}, {"b", {"b", "DB", "p q"}}},
         "n p|n n q"},
        {"own leaves come before other instances",
         {{"ord-1", forked}, {"ord-2", R"(["a_first"])"}},
         {{"w1", {"me", "DA", "p"}}, {"w2", {"me", "DA", "p n"}}, {"a", {"a", "DB", "n q"}}},
         "p n|q"},
        {"what another leaf moved away leaves",
         {{"ord-1", forked}, {"ord-2", R"(["v_first"])"}},
         {{"w0", {"me", "DA", "p q"}},
          {"w1", {"me", "DA", "p q n"}},
          {"w2", {"me", "DA", "q"}},
          {"v", {"me", "DB", "p"}}},
         "q n|p"},
        {"but one place remains",
         {{"ord-1", forked}, {"ord-2", R"(["v0_first", ["v1_v0", "v2_v0"]])"}},
         {{"w0", {"me", "DA", "p"}},
          {"w1", {"me", "DA", "p q"}},
          {"w2", {"me", "DA", ""}},
          {"v0", {"me", "DB", "p"}},
          {"v1", {"me", "DB", "p n"}},
          {"v2", {"me", "DB", ""}}},
         "p q|n"},
        {"what an older list held comes back",
         {{"ord-1", R"(["w0_first", "w1_w0", "w2_w1"])"}},
         {{"w0", {"me", "DB", "p"}}, {"w1", {"me", "DA", "n p q"}}, {"w2", {"me", "DA", "q"}}},
         "n p q|"},
        {"also from a closed branch",
         {{"ord-1", R"(["w0_first", ["w1_w0", ["w2_w0", "resolved_w2"]]])"}},
         {{"w1", {"me", "DA", "q"}}, {"w2", {"me", "DA", "q p"}}},
         "q p|"},
        {"an array that nothing refers to places nothing",
         {{"ord-1", R"(["w_first"])"}, {"ord-2", R"(["a_first"])"}},
         {{"w", {"me", "DC", "p"}}, {"a", {"a", "DA", "p"}}},
         "p|"},
    };
    for (const auto& [what, histories, lists, expected] : cases) {
        SCOPED_TRACE(what);
        const Opened opened(storage_text(histories, lists));
        EXPECT_EQ(shown(opened.storage()), expected);

        // Stored, it stands: showing it again is the same, and there is nothing left to be stored.
        const DocumentIndex index(opened.storage());
        const DocumentStorage stored = store_order(opened.storage(), index, ElementOrder(index, "me"), "me");
        EXPECT_EQ(shown(stored), expected);
        const DocumentIndex again(stored);
        EXPECT_TRUE(ElementOrder(again, "me").outdated().empty());
    }
}

TEST(ElementOrder, IsStoredInTheFormOfTheData) {
    for (const char* config : {R"({"instance_id": "me"})", R"({"instance_id": "me", "force_fast_hash_only": true})"}) {
        const DocumentStorage written = updated({}, R"({"a": [{"_id": "p"}, {"_id": "q"}]})", config);
        const DocumentIndex before(written);
        EXPECT_TRUE(ElementOrder(before, "me").outdated().empty());
        // Read by another instance, which then has an order of its own in the same form.
        const DocumentStorage stored = store_order(written, before, ElementOrder(before, "you"), "you");
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

// A host's sequences: what people see after merging.
TEST(ElementOrder, AfterConcurrentChanges) {
    const struct {
        const char* what;
        const char* base;
        const char* mine;
        const char* yours;
        const char* merged;  // with "_id" left out where it stands in an array
    } cases[] = {
        {"additions on both sides", R"({"a": ["p"]})", R"({"a": ["p", "m"]})", R"({"a": ["y", "p"]})",
         R"({"a": ["y", "p", "m"]})"},
        {"a removal and an addition", R"({"a": ["p", "q"]})", R"({"a": ["q"]})", R"({"a": ["p", "q", "y"]})",
         R"({"a": ["q", "y"]})"},
        {"a move and an addition", R"({"a": ["p", "q"], "b": ["r"]})", R"({"a": ["q"], "b": ["r", "p"]})",
         R"({"a": ["p", "q", "y"], "b": ["r"]})", R"({"a": ["q", "y"], "b": ["r", "p"]})"},
        {"the only element moved", R"({"a": ["p"], "b": ["r"]})", R"({"a": [], "b": ["r", "p"]})",
         R"({"a": ["p"], "b": ["r", "y"]})", R"({"a": [], "b": ["r", "p", "y"]})"},
        {"first elements on both sides", R"({"a": []})", R"({"a": ["m"]})", R"({"a": ["y"]})", nullptr},
    };
    const auto with_elements = [](std::string text) {
        for (const char* id : {"p", "q", "r", "m", "y"}) {
            const std::string word = std::string("\"") + id + "\"";
            for (std::size_t at = 0; (at = text.find(word, at)) != std::string::npos; at += word.size() + 8) {
                text.replace(at, word.size(), "{\"_id\": " + word + "}");
            }
        }
        return text;
    };
    for (const auto& [what, base, mine, yours, merged] : cases) {
        SCOPED_TRACE(what);
        const DocumentStorage start = updated({}, with_elements(base));
        const DocumentStorage first = updated(start, with_elements(mine));
        const DocumentStorage second = updated(start, with_elements(yours));
        const DocumentStorage there = replicate(first, second, Takeover::share).target;
        const DocumentStorage back = replicate(second, first, Takeover::share).target;
        EXPECT_EQ(serialized(there), serialized(back));
        std::string text = read(there);
        if (merged == nullptr) {  // which of the two comes first is decided by their hashes
            EXPECT_NE(text.find("\"m\""), std::string::npos);
            EXPECT_NE(text.find("\"y\""), std::string::npos);
            continue;
        }
        const auto in_order = [](const std::string& data) {
            std::vector<std::string> elements;
            for (std::size_t at = 0; (at = data.find("{\"_id\": \"", at)) != std::string::npos; ++at) {
                elements.push_back(data.substr(at + 9, 1));
            }
            std::ranges::sort(elements);
            return elements;
        };
        text.erase(1, std::string_view(R"("_id": "root", )").size());
        EXPECT_EQ(in_order(text), in_order(with_elements(merged))) << text;
    }
}

}  // namespace
}  // namespace libzentadbpp
