#include "transformation/unflattener.h"

#include <gtest/gtest.h>

#include "in_texts.h"
#include "json/error.h"

namespace libzentadbpp {
namespace {

using namespace in_texts;

std::string unflattener_record(std::string_view error, std::string_view args) {
    return record("src/transformation/unflattener", "operator ()", error, args);
}

TEST(Unflattener, RebuildsFromDocuments) {
    const struct {
        const char* name;
        std::string documents;
        std::string data;
        std::string config = "{}";
        std::string root{};
    } cases[] = {
        {"no documents", "[]", "{}"},
        {"no documents, whatever the root", "[]", "{}", "{}", "x"},
        {"strings that no flattener wrote",
         R"([{"_id": "root", "a": "", "b": "xyz", "c": "\"q", "d": "\\\"", "e": "\n", "f": "\u0041d"}])",
         "{\"_id\": \"root\", \"a\": \"\", \"b\": \"yz\", \"c\": \"q\", \"d\": \"\\\"\", \"e\": \"\", \"f\": []}"},
        {"an array, in its order, repetitions too",
         R"([{"_id": "root", "a": "Ad"}, {"_id": "e"}, {"_id": "f"}, {"_id": "ord-1", "d": "d", "i": "default",
             "s": ["f", "gone", 3, "e", "f"]}])",
         R"({"_id": "root", "a": [{"_id": "f"}, {"_id": "e"}, {"_id": "f"}]})"},
        {"an array that nothing orders", R"([{"_id": "root", "a": "Ad"}])", R"({"_id": "root", "a": []})"},
        {"only an id can make an ordering document",
         R"([{"_id": "root", "a": "Ad"}, {"_id": "e"}, {"_id": "list", "d": "d", "i": "default", "s": ["e"]}])",
         R"({"_id": "root", "a": []})"},
        {"nor without its three members, of their kinds",
         R"([{"_id": "root", "a": "Ad"}, {"_id": "e"}, {"_id": "ord-1", "d": "d", "s": ["e"]},
             {"_id": "ord-2", "d": 1, "i": "default", "s": ["e"]}, {"_id": "ord-3", "d": "d", "i": "default", "s": 1}])",
         R"({"_id": "root", "a": []})"},
        {"another instance's order",
         R"([{"_id": "root", "a": "Ad"}, {"_id": "e"}, {"_id": "ord-1", "d": "d", "i": "x", "s": ["e"]}])",
         R"({"_id": "root", "a": [{"_id": "e"}]})"},
        {"the last of several with one id", R"([{"_id": "root", "a": 1}, {"_id": "root", "a": 2}])",
         R"({"_id": "root", "a": 2})"},
        {"a root that is named", R"([{"_id": "root", "a": 1}, {"_id": "x", "b": 2}])", R"({"_id": "x", "b": 2})", "{}",
         "x"},
        {"the root by its name", R"([{"_id": "root", "a": 1}, {"_id": "x", "b": 2}])", R"({"_id": "root", "a": 1})"},
        {"the only one that nothing refers to",
         R"([{"_id": "e", "o": "Of"}, {"_id": "f"}, {"_id": "me", "a": "Ad"},
             {"_id": "ord-1", "d": "d", "i": "default", "s": ["e"]}])",
         R"({"_id": "me", "a": [{"_id": "e", "o": {"_id": "f"}}]})"},
        {"literals and ids do not refer",
         R"([{"_id": "Ox", "a": "!Ox", "b": "Ox"}, {"_id": "x", "o": {"_id": "OOx"}}])",
         R"({"_id": "Ox", "a": "Ox", "b": {"_id": "x", "o": {"_id": "OOx"}}})"},
    };
    for (const auto& [name, documents, data, config, root] : cases) {
        EXPECT_EQ(unflattened(documents, config, root), canonical(data)) << name;
    }
}

TEST(Unflattener, TellsWhatIsMissing) {
    const struct {
        std::string_view documents;
        std::string_view root;
        std::string_view error;
        std::string_view args;
    } cases[] = {
        {R"([{"_id": "root"}])", "x", "missing_root_document", "x"},
        {R"([{"_id": "a"}, {"_id": "b"}])", "", "missing_root_document", ""},
        {R"([{"_id": "a", "b": "Ob"}, {"_id": "b", "a": "Oa"}])", "", "missing_root_document", ""},
        {R"([{"_id": "ord-1", "d": "d", "i": "i", "s": []}])", "", "missing_root_document", ""},
        {R"([{"_id": "root", "a": "Ogone"}])", "", "missing_document", "gone"},
        {R"([{"_id": "root", "a": [1, {"b": "Ogone"}]}])", "", "missing_document", "gone"},
        {R"([{"_id": "root", "a": "O"}])", "", "missing_document", ""},
        {R"([{"_id": "root", "a": "Oroot"}])", "", "cyclic_document_reference", "root"},
        {R"([{"_id": "root", "a": "Ob"}, {"_id": "b", "c": "Oc"}, {"_id": "c", "b": [1, "Ob"]}])", "",
         "cyclic_document_reference", "b"},
        {R"([{"_id": "root", "a": "Ad"}, {"_id": "e", "b": "Ad"},
             {"_id": "ord-1", "d": "d", "i": "default", "s": ["e"]}])",
         "", "cyclic_document_reference", "e"},
    };
    for (const auto& [documents, root, error, args] : cases) {
        EXPECT_EQ(failure<UnflattenerException>(
                      [&documents = documents, &root = root] { (void)unflattened(documents, "{}", root); }),
                  unflattener_record(error, args))
            << documents;
    }
    for (const std::string_view documents :
         {"[1]", "[[]]", R"(["root"])", "[{}]", R"([{"_id": "root"}, {"_id": 1}])"}) {
        EXPECT_EQ(failure<std::out_of_range>([&] { (void)unflattened(documents); }), "invalid map<K, T> key")
            << documents;
    }
}

TEST(Unflattener, WhatWasDeletedIsLeftOut) {
    const Opened opened(R"({"d": {"root": ["r_first"], "gone": ["g_first", "deleted_g"], "e": ["e_first"],
        "ord-1": ["o_first"]}, "o": {"r": {"a": "Ogone", "b": ["Ogone", 1], "c": "Ad", "n": {"#nf": 1, "x": "Ogone"}},
        "e": {"y": "Ogone"}, "g": {}, "o": {"d": "d", "i": "default", "s": ["gone", "e"]}}, "r": "root"})");
    EXPECT_EQ(read(opened.storage(), R"({"discard_id": true})"),
              R"({"b": [1], "c": [{}], "n": {"#nf": 1, "x": "Ogone"}})");
}

TEST(Unflattener, StartsAtAnyDocumentAndRevision) {
    const DocumentStorage old = updated({}, R"({"t": [{"_id": "e", "x": "y"}], "v": "old"})");
    const Revision old_root(old.find("root")->winning().revision_string());
    const DocumentStorage storage = updated(old, R"({"t": [{"_id": "e", "x": "z"}], "v": "new"})");
    EXPECT_EQ(read(storage, "{}", "e"), R"({"_id": "e", "x": "z"})");
    EXPECT_EQ(read(storage, "{}", {}, old_root), R"({"_id": "root", "t": [{"_id": "e", "x": "z"}], "v": "old"})");
    EXPECT_EQ(read({}, "{}", "e"), "{}");

    const auto fails_with = [&](std::string_view id, const std::optional<Revision>& revision) {
        return failure<UnflattenerException>([&] { (void)read(storage, "{}", id, revision); });
    };
    EXPECT_EQ(fails_with("f", std::nullopt), unflattener_record("missing_root_document", "f"));
    EXPECT_EQ(fails_with("e", Revision("1-x_first")),
              unflattener_record("invalid_root_document_revision", "1-x_first"));
    EXPECT_EQ(fails_with("e", old_root),
              unflattener_record("invalid_root_document_revision", old_root.revision_string()));

    const DocumentStorage rootless(storage.documents(), storage.data(), "");
    EXPECT_EQ(failure<InvalidDocumentException>([&] { (void)read(rootless); }),
              record("src/documents/documentstorage", "root", "root_id_cannot_be_empty"));
}

TEST(Unflattener, TellsContentThatWasPruned) {
    const Opened root(R"({"d": {"root": ["r_first"]}, "r": "root"})");
    EXPECT_EQ(failure<UnflattenerException>([&] { (void)read(root.storage()); }),
              unflattener_record("missing_root_document_data", "1-r_first"));
    const Opened member(R"({"d": {"m": ["x_first"], "root": ["r_first"]}, "o": {"r": {"a": "Om"}}, "r": "root"})");
    EXPECT_EQ(failure<ObjectNotFoundException>([&] { (void)read(member.storage()); }),
              record("src/data/datastorage", "read_object", "cannot_find_object", "x"));
}

// Documents that each hold the next, and what is in the last.
std::string chain(int length, std::string_view last) {
    std::string documents = "[";
    for (int i = 0; i + 1 < length; ++i) {
        const std::string id = i == 0 ? "root" : "n" + std::to_string(i);
        documents += R"({"_id": ")" + id + R"(", "o": "On)" + std::to_string(i + 1) + "\"}, ";
    }
    return documents + R"({"_id": "n)" + std::to_string(length - 1) + "\"" + std::string(last) + "}]";
}

TEST(Unflattener, AResultNestsNoDeeperThanATextMay) {
    const std::string_view discard = R"({"discard_id": true})";
    std::string deepest = "{}";
    for (int i = 0; i < 200; ++i) deepest = R"({"o": )" + deepest + "}";
    EXPECT_EQ(unflattened(chain(201, ""), discard), canonical(deepest));
    const std::string too_deep[] = {chain(202, ""),
                                    chain(201, R"(, "x": "!y")"),
                                    chain(201, R"(, "x": 1)"),
                                    chain(5000, ""),
                                    chain(200, R"(, "x": [[]])"),
                                    chain(199, R"(, "#nf": [[[]]])"),
                                    chain(200, R"(, "a": {"#nf": 1})")};
    for (const std::string& documents : too_deep) {
        EXPECT_EQ(failure<ParseError>([&] { (void)unflattened(documents, discard); }), "exceeded maximum nesting depth")
            << documents.substr(documents.size() - 40);
    }
}

}  // namespace
}  // namespace libzentadbpp
