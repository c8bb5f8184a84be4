#include <array>

#include "c_api/zenta.h"

namespace c_api {
namespace {

// --- Bulk documents

std::string returned(const std::string& id, const std::string& revisions, const std::string& rest) {
    return R"({"_id": )" + id + R"(, "_revisions": )" + revisions + (rest.empty() ? "" : ", ") + rest + "}";
}

std::string answer_of(const std::vector<std::string>& documents) {
    std::string results;
    for (const std::string& document : documents) {
        results += (results.empty() ? "" : ", ") + (R"({"id": )" + member(document, "_id")) + R"(, "docs": [{"ok": )" +
                   document + "}]}";
    }
    return R"({"results": [)" + results + "]}";
}

Answer import(const std::string& bulk_get) {
    const Answer by_value = taken(sync_json_from_bulk_get(bulk_get.c_str(), "{}"), Both::allowed);
    const Answer by_handle = taken(sync_json_ptr_from_bulk_get(bulk_get.c_str(), "{}"), Both::allowed);
    EXPECT_EQ(by_value, by_handle) << bulk_get;
    return by_value;
}

TEST(Exchange, ExportTellsWinnersAndTheirPaths) {
    const std::string set =
        R"({"d": {"a": ["A_first"], "b": ["B_first", "deleted_B"], "c": ["A_first", "C_A", ["B_C", )"
        R"(["A_C", "empty_A"]]]}, "o": {"A": {"_id": "x", "_revisions": 5, "zz": "!1"}, "B": {}, )"
        R"("C": {}}, "r": "a"})";
    EXPECT_EQ(taken(sync_json_to_bulk_docs(set.c_str())).text(),
              R"({"docs": [{"_id": "a", "_revisions": {"ids": ["A"], "start": 1}, "zz": "!1"}, )"
              R"({"_deleted": true, "_id": "b", "_revisions": {"ids": ["deleted", "B"], "start": 2}}, )"
              R"({"_id": "c", "_revisions": {"ids": ["empty", "A", "C", "A"], "start": 4}}], "new_edits": false})");
    EXPECT_EQ(taken(sync_json_to_bulk_docs("{}")).text(), R"({"docs": [], "new_edits": false})");
    const std::string pruned = R"({"d": {"a": ["A_first"]}, "r": "a"})";
    EXPECT_EQ(taken(sync_json_to_bulk_docs(pruned.c_str())).error,
              record("read_object", "cannot_find_object", "A", "src/data/datastorage"));
}

TEST(Exchange, WhatTellsNothingIsPassedOver) {
    const std::string a = R"({"start": 1, "ids": ["A"]})";
    const std::string made = R"({"d": {"a": ["A_first"]}, "o": {"A": {"n": 1}}, "r": "a"})";
    const std::string good = R"({"ok": )" + returned(R"("a")", a, R"("n": 1)") + "}";
    const auto in_docs = [](const std::string& docs) { return R"({"results": [{"docs": [)" + docs + "]}]}"; };
    std::vector<std::string> nothing{
        "{}",
        R"({"results": {"docs": []}})",
        R"({"results": [5, null, {}, {"docs": 5}, {"docs": {"ok": {}}}]})",
        in_docs(R"(5, {"ok": 5}, {"ok": null}, {"ok": {}})"),
        in_docs(R"({"ok": {"_id": "a", "_rev": "1-A_first"}})"),
        in_docs(R"({"ok": )" + returned("5", a, "") + "}"),
    };
    for (const char* revisions :
         {R"({"start": 3, "ids": ["A", "B"]})", R"({"start": 1, "ids": ["A", "B"]})", R"({"start": "1", "ids": ["A"]})",
          R"({"start": 0, "ids": []})", R"({"start": -1, "ids": ["A"]})", R"({"start": 1e300, "ids": ["A"]})",
          R"({"start": 1, "ids": [5]})", R"({"ids": ["A"]})", R"({"start": 1})"}) {
        nothing.push_back(in_docs(R"({"ok": )" + returned(R"("a")", revisions, "") + "}"));
    }
    for (const std::string& text : nothing) EXPECT_EQ(import(text).text(), "{}") << text;
    EXPECT_EQ(import(in_docs(R"({"error": {}}, {"ok": 5}, )" + good + R"(, {"ok": {"_id": "b"}})")).text(), made);
}

TEST(Exchange, FormsOfAReturnedDocument) {
    const auto one = [](const std::string& ids, const std::string& rest) {
        const std::string start = std::to_string(entries(ids).size());
        return returned(R"("a")", R"({"ids": )" + ids + R"(, "start": )" + start + "}", rest);
    };
    const auto other = [](const std::string& id, const std::string& rest) {
        std::string hash = unquoted(id);
        std::erase(hash, '-');  // which would split a revision string
        return returned(id, R"({"ids": ["H)" + hash + R"("], "start": 1})", rest);
    };
    const auto set = [](const std::string& history, const std::string& contents) {
        return R"({"d": {"a": )" + history + "}" + (contents.empty() ? "" : R"(, "o": )" + contents) + R"(, "r": "a"})";
    };
    const auto revision = [](std::string_view key, std::string_view args,
                             std::string_view function = "parse_revision") {
        return record(function, key, args, "src/documents/revision");
    };
    const auto document = [](std::string_view function, std::string_view key, std::optional<std::string_view> args) {
        return record(function, key, args, "src/documents/multiversiondocument");
    };
    struct Case {
        std::vector<std::string> documents;
        std::string result;  // a sync JSON or an error
    };
    const std::vector<Case> cases{
        // ids and "_rev" in all forms
        {{one(R"(["B", "A"])", R"("n": 1, "_rev": "2-B")")}, set(R"(["A_first", "B_A"])", R"({"B": {"n": 1}})")},
        {{one(R"(["B", "A_first"])", R"("_rev": "2-B_A")")}, set(R"(["A_first", "B_A"])", R"({"B": {}})")},
        {{one(R"(["B_own", "A_own"])", R"("_rev": "2-B")")}, set(R"(["A_own", "B_own"])", R"({"B": {}})")},
        {{one(R"(["B_own", "A"])", R"("_rev": "7-A_other", "n": 1)")},
         set(R"(["A_first", "B_own"])", R"({"A": {"n": 1}})")},
        {{one(R"(["abcdefghij", "ABCDEFGHIJ"])", R"("n": {"_id": 5})")},
         set(R"(["ABCDEFGHIJ_first", "abcdefghij_ABCDEFG"])", R"({"abcdefghij": {"n": {"_id": 5}}})")},
        {{one(R"(["deleted", "A"])", R"("_deleted": true, "_rev": "2-deleted")")},
         set(R"(["A_first", "deleted_A"])", "")},
        {{one(R"(["empty"])", R"("n": 1)")}, set(R"(["empty_first"])", "")},
        // several revisions of one document
        {{one(R"(["C", "A"])", R"("n": 3)"), one(R"(["B", "A"])", R"("n": 2)"), one(R"(["A"])", R"("n": 1)")},
         set(R"(["A_first", ["B_A", "C_A"]])", R"({"A": {"n": 1}, "B": {"n": 2}, "C": {"n": 3}})")},
        {{one(R"(["A"])", R"("n": 1)"), one(R"(["A"])", R"("n": 2)")}, set(R"(["A_first"])", R"({"A": {"n": 1}})")},
        {{returned("\"a\"", R"({"ids": ["B_A"], "start": 3})", R"("n": 1)"), one(R"(["B", "A"])", R"("n": 2)")},
         set(R"(["A_first", "B_A"])", R"({"B": {"n": 1}})")},
        {{returned("\"a\"", R"({"ids": ["B_A"], "start": 3})", R"("_rev": "3-B", "n": 1)"),
          one(R"(["B", "A"])", R"("n": 2)")},
         set(R"(["A_first", "B_A"])", R"({"B": {"n": 1}})")},
        // the root: one that is alive; of these "root", else what nothing refers to, else the smallest id
        {{other("\"root\"", ""), other("\"b\"", "")},
         R"({"d": {"b": ["Hb_first"], "root": ["Hroot_first"]}, "o": {"Hb": {}, "Hroot": {}}, "r": "root"})"},
        {{other("\"b\"", R"("x": ["Oc"])"), other("\"c\"", "")},
         R"({"d": {"b": ["Hb_first"], "c": ["Hc_first"]}, "o": {"Hb": {"x": ["Oc"]}, "Hc": {}}, "r": "b"})"},
        {{other("\"b\"", ""), other("\"c\"", R"("x": {"y": "Ob"})")},
         R"({"d": {"b": ["Hb_first"], "c": ["Hc_first"]}, "o": {"Hb": {}, "Hc": {"x": {"y": "Ob"}}}, "r": "c"})"},
        {{other("\"b\"", ""), other("\"c\"", R"("x": "AD")"), other("\"ord-1\"", R"("d": "D", "i": "x", "s": ["b"])")},
         R"({"d": {"b": ["Hb_first"], "c": ["Hc_first"], "ord-1": ["Hord1_first"]}, "o": {"Hb": {}, )"
         R"("Hc": {"x": "AD"}, "Hord1": {"d": "D", "i": "x", "s": ["b"]}}, "r": "c"})"},
        {{returned("\"b\"", R"({"ids": ["deleted", "B"], "start": 2})", ""), other("\"c\"", ""),
          other("\"ord-1\"", "")},
         R"({"d": {"b": ["B_first", "deleted_B"], "c": ["Hc_first"], "ord-1": ["Hord1_first"]}, )"
         R"("o": {"Hc": {}, "Hord1": {}}, "r": "c"})"},
        {{returned("\"root\"", R"({"ids": ["deleted", "B"], "start": 2})", ""), other("\"c\"", "")},
         R"({"d": {"c": ["Hc_first"], "root": ["B_first", "deleted_B"]}, "o": {"Hc": {}}, "r": "c"})"},
        {{other("\"b\"", R"("x": "Oc")"), other("\"c\"", R"("x": "Ob")")},
         R"({"d": {"b": ["Hb_first"], "c": ["Hc_first"]}, "o": {"Hb": {"x": "Oc"}, "Hc": {"x": "Ob"}}, "r": "b"})"},
        {{returned("\"b\"", R"({"ids": ["deleted", "B"], "start": 2})", ""),
          returned("\"c\"", R"({"ids": ["deleted", "C"], "start": 2})", ""),
          other("\"ord-1\"", R"("d": "D", "i": "x", "s": ["b"])")},
         R"({"d": {"b": ["B_first", "deleted_B"], "c": ["C_first", "deleted_C"], "ord-1": ["Hord1_first"]}, )"
         R"("o": {"Hord1": {"d": "D", "i": "x", "s": ["b"]}}, "r": "c"})"},
        // failures
        {{one(R"(["A"])", R"("_rev": "")")},
         record("Revision", "empty_revision", std::nullopt, "src/documents/revision")},
        {{one(R"(["A"])", R"("_rev": "2-A")")}, revision("invalid_revision_format", "2-A")},
        {{one(R"(["A"])", R"("_rev": "x-A_b")")}, "invalid stoi argument"},
        {{one(R"(["A"])", R"("_rev": "2147483648-A_b")")}, "stoi argument out of range"},
        {{one(R"(["A_b_c"])", "")}, revision("invalid_revision_string_format", "A_b_c", "Revision")},
        {{one(R"(["B", "A"])", ""), one(R"(["B", "C"])", "")},
         document("ancestor", "cannot_replace_first_revision", "a")},
        {{one(R"(["D_x", "B", "A"])", ""), one(R"(["D_x", "C", "A"])", "")},
         document("ancestor", "invalid_parent_revision_in_ancestor", std::nullopt)},
        {{returned("\"\"", R"({"ids": ["A"], "start": 1})", "")},
         document("MultiVersionDocument", "cannot_push_new_revision_if_document_is_missing_identifier", std::nullopt)},
    };
    for (const auto& [documents, result] : cases) {
        const Answer answer = import(answer_of(documents));
        EXPECT_EQ(answer.error.empty() ? answer.text() : answer.error, result) << answer_of(documents);
    }
}

// A document that is refused is reported, beside a result with all that is not.
TEST(Exchange, ARefusedDocumentCostsNoOther) {
    const auto path = [](const char* ids, int start) {
        return R"({"ids": )" + std::string(ids) + R"(, "start": )" + std::to_string(start) + "}";
    };
    const std::string good = returned("\"a\"", path(R"(["B", "A"])", 2), R"("n": 1)");
    const std::string other_good = returned("\"z\"", path(R"(["Z"])", 1), "");
    const std::string result =
        R"({"d": {"a": ["A_first", "B_A"], "z": ["Z_first"]}, "o": {"B": {"n": 1}, "Z": {}}, "r": "a"})";
    const struct {
        std::string refused;
        std::string error;
        bool also_first = true;
    } cases[] = {
        {returned("\"x\"", path(R"(["A_b_c"])", 1), ""), "invalid_revision_string_format"},
        {returned("\"x\"", path(R"(["A-b"])", 1), ""), "invalid_revision_format"},
        {returned("\"x\"", path(R"(["A_"])", 1), ""), "invalid_revision_state_uuid_empty"},
        {returned("\"\"", path(R"(["A"])", 1), ""), "cannot_push_new_revision"},
        {returned("\"x\"", path(R"(["A"])", 1), R"("_rev": "2-A")"), "invalid_revision_format"},
        {returned("\"a\"", path(R"(["B", "A"])", 2), R"("_rev": "")"), "empty_revision"},
        {returned("\"a\"", path(R"(["C", "D", "A_b_c"])", 3), ""), "invalid_revision_string_format"},
        {returned("\"a\"", path(R"(["D", "C"])", 2), ""), "cannot_replace_first_revision", false},
    };
    for (const auto& [refused, error, also_first] : cases) {
        for (const auto& documents :
             {std::vector{good, refused, other_good}, std::vector{good, other_good, refused},
              std::vector{refused, good, other_good}, std::vector{good, refused, refused, other_good}}) {
            if (documents.front() == refused && !also_first) continue;
            const Answer answer = import(answer_of(documents));
            EXPECT_EQ(answer.text(), result) << refused;
            EXPECT_NE(answer.error.find(error), std::string::npos) << answer.error;
        }
        if (also_first) {
            EXPECT_EQ(import(answer_of({refused})).value, std::nullopt) << refused;
        }
    }
}

// --- Diff and patch

Answer diff(const std::string& before, const std::string& after) {
    return taken(sync_json_diff(before.c_str(), after.c_str(), "{}"));
}
Answer patch(const std::string& before, const std::string& operations) {
    return taken(sync_json_patch(before.c_str(), operations.c_str()));
}

using Triple = std::array<std::string, 3>;  // what is given twice, and what is made of it

TEST(Diff, OperationsInTheirOrder) {
    const std::string none = R"({"d": [], "o": []})";
    const std::vector<Triple> cases{
        {R"({"d": {"c": [1], "a": [1], "b": [1]}, "r": "x"})", R"({"d": {"0": [0], "b": [2], "c": [1], "z": [3]}})",
         R"({"d": [{"key": "a", "op": "remove", "value": [1]}, {"before": [1], "key": "b", "op": "replace", "value": [2]}, )"
         R"({"key": "0", "op": "add", "value": [0]}, {"key": "z", "op": "add", "value": [3]}], "o": []})"},
        {R"({"o": {"A": {"x": 1}}, "d": 5})", R"({"d": [1], "o": {"B": 5}})",
         R"({"d": [], "o": [{"key": "A", "op": "remove", "value": {"x": 1}}, {"key": "B", "op": "add", "value": 5}]})"},
        {R"({"o": {"A": {"x": 1, "y": {"b": 2, "a": 1}}}})", R"({"o": {"A": {"y": {"a": 1, "b": 2}, "x": 1}}})", none},
        {R"({"o": {"A": {"x": 1}}})", R"({"o": {"A": {"x": 1.0}}})", none},
        {R"({"o": {"A": {"x": 0}}})", R"({"o": {"A": {"x": -0.0}}})",
         R"({"d": [], "o": [{"before": {"x": 0}, "key": "A", "op": "replace", "value": {"x": -0}}]})"},
        {R"({"d": {"k": 5}})", R"({"d": {"k": "text"}})", none},
        {R"({"o": {"k": [1]}})", R"({"o": {"k": {"a": []}}})",
         R"({"d": [], "o": [{"before": [1], "key": "k", "op": "replace", "value": {"a": []}}]})"},
        {R"({"d": {"k": [1], "k": [2]}})", R"({"d": {"k": [2]}})", none},
        {R"({"d": {"k": ["a\u00e9\n"]}})", "{\"d\": {\"k\": [\"a\xc3\xa9\\n\"]}}", none},
    };
    for (const auto& [before, after, operations] : cases) {
        EXPECT_EQ(diff(before, after).text(), operations) << before << after;
    }
}

TEST(Diff, PatchTakesOperationsAsTheyStand) {
    const std::string ab = R"({"d": {"a": [1], "b": [2]}, "r": "a"})";
    const std::string missing = "invalid map<K, T> key";
    const std::vector<Triple> cases{
        {ab, R"({"d": [{"op": "add", "key": "a", "value": 3}]})", R"({"d": {"a": 3, "b": [2]}, "o": {}})"},
        {ab, R"({"d": [{"op": "remove", "key": "c"}]})", R"({"d": {"a": [1], "b": [2]}, "o": {}})"},
        {ab, R"({"d": [{"op": "replace", "key": "c", "before": 5, "value": 1}]})",
         R"({"d": {"a": [1], "b": [2], "c": 1}, "o": {}})"},
        {ab, R"({"d": [{"op": 5, "key": "a", "value": null}]})", R"({"d": {"a": null, "b": [2]}, "o": {}})"},
        {ab,
         R"({"d": [{"op": "remove", "key": "a"}, {"op": "x", "key": "a", "value": 4}, {"op": "remove", "key": "b"}]})",
         R"({"d": {"a": 4}, "o": {}})"},
        {"{}", R"({"o": [{"op": "add", "key": 5, "value": {}}], "d": {"op": "add"}, "x": 5})",
         R"({"d": {}, "o": {"": {}}})"},
        {R"({"d": [1], "o": {"A": {}}})", "5", R"({"d": {}, "o": {"A": {}}})"},
        {ab, R"({"d": [{"key": "a", "value": 3}]})", missing},
        {ab, R"({"d": [{"op": "add", "value": 3}]})", missing},
        {ab, R"({"d": [{"op": "add", "key": "a"}]})", missing},
        {ab, R"({"d": [{"op": "add", "key": "a", "value": 3}, 5]})", missing},
    };
    for (const auto& [before, operations, result] : cases) {
        const Answer answer = patch(before, operations);
        EXPECT_EQ(answer.value.value_or(answer.error), result) << operations;
    }
}

}  // namespace
}  // namespace c_api
