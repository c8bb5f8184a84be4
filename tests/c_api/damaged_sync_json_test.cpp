#include <algorithm>
#include <random>
#include <utility>

#include "c_api/export_table.h"
#include "c_api/samples.h"
#include "c_api/zenta.h"

namespace c_api {
namespace {

struct Case {
    std::string text;
    std::string error;
};

void expect_refused(const std::string& sync_json, const std::string& error) {
    EXPECT_EQ(open(sync_json).error, error) << sync_json;
    EXPECT_EQ(taken(sync_json_all_docs(sync_json.c_str())).error, error) << sync_json;
    EXPECT_EQ(taken(sync_json_all_docs(compressed(sync_json).c_str())).error, error) << sync_json;
}

// "o" before "d" before "r", whichever way they stand in the text.
TEST(DamagedSyncJson, ChecksStandInTheirOrder) {
    const std::vector<Case> keys{
        {R"({"o": 5})", "invalid_syncdata_data_node"},
        {R"({"d": {"a": 5}, "o": null})", "invalid_syncdata_data_node"},
        {R"({"d": [], "r": 5})", "invalid_syncdata_data_node"},
        {R"({"d": {"a": "A_first"}, "r": 5})", "expecting_revision_history_array"},
        {R"({"d": {"b": ["A"], "a": {}}})", "expecting_revision_history_array"},
        {R"({"d": {"a": 5, "a": ["A_first"]}})", "missing_root_identifier_in_non_empty_syncjson"},
        {R"({"r": 5, "d": {}})", "missing_documents"},
        {R"({"d": {"a": ["A_first"]}, "r": 5})", "root_document_id_not_a_string"},
        {R"({"d": {"a": ["A_first"]}, "r": "b"})", "root_is_missing_in_documents"},
    };
    for (const auto& [text, key] : keys) {
        expect_refused(text, record("deserialize", key, std::nullopt, "src/documents/documentstorage"));
    }
    const auto bad_content = [](const char* hash) {
        return record("deserialize", "invalid_data_object", hash, "src/data/datastorage");
    };
    expect_refused(R"({"r": 5, "d": [], "o": {"B": {}, "A": 5}})", bad_content("A"));
    expect_refused(R"({"d": {"a": 5}, "o": {"A": {}, "B": "text"}})", bad_content("B"));
    for (const char* sound :
         {R"({"d": {"a": ["A_first"]}, "r": "a"})", R"({"d": {}})", R"({"o": {"A": {}}})", R"({"x": [{}], "D": 5})"}) {
        expect_refused(sound, "");
    }
}

TEST(DamagedSyncJson, HistoriesThatAreNone) {
    const auto with = [](const std::string& history) { return R"({"d": {"a": )" + history + R"(}, "r": "a"})"; };
    for (const char* history : {R"([5, "A_first"])", R"([["A_first"], "A_first"])", R"([null, 5])"}) {
        expect_refused(with(history), record("unfold", "revision_not_a_string", std::nullopt, "src/common/utils"));
    }
    expect_refused(with(R"(["", "A_first"])"), record("unfold", "empty_revstring", std::nullopt, "src/common/utils"));
    for (const auto& [history, entry] : std::vector<Case>{{R"(["A_first", "B"])", "B"},
                                                          {R"(["A_first", "B_C_D"])", "B_C_D"},
                                                          {R"(["A_first", ["B_A", ""]])", ""},
                                                          {R"(["A_first", [["B_A", ["C"]]]])", "C"}}) {
        expect_refused(with(history),
                       record("Revision", "invalid_revision_string_format", entry, "src/documents/revision"));
    }
    for (const auto& [history, revision] : std::vector<Case>{{R"(["A"])", "1-A"},
                                                             {"[5]", "1-"},
                                                             {R"([""])", "1-"},
                                                             {R"([["A_first"]])", "1-"},
                                                             {R"(["_A"])", "1-_A"},
                                                             {R"(["A_b-c_d"])", "1-A_b-c_d"},
                                                             {R"(["A_b-c", 5])", "1-A_b-c"},
                                                             {R"(["A_b-c", []])", "1-A_b-c"}}) {
        expect_refused(with(history),
                       record("parse_revision", "invalid_revision_format", revision, "src/documents/revision"));
    }
    expect_refused(R"({"d": {"": ["A_first"]}, "r": ""})",
                   record("MultiVersionDocument", "cannot_push_new_revision_if_document_is_missing_identifier",
                          std::nullopt, "src/documents/multiversiondocument"));
}

TEST(DamagedSyncJson, HistoriesAreReadAsFarAsTheyTell) {
    const std::vector<std::pair<std::string, std::string>> histories{
        {R"(["A_first", 5, "B_A"])", R"(["A_first"])"},
        {R"(["A_first", {"x": ["B_A"]}, ["C_A"]])", R"(["A_first"])"},
        {R"(["A_first", ["C_A", "B_A"]])", R"(["A_first", ["B_A", "C_A"]])"},
        {R"(["A_first", ["B_A", "C_A"], "D_A", 5])", R"(["A_first", ["B_A", "C_A"]])"},
        {R"(["A_first", ["B_A", 7, [], ["C_A", "D_C"]]])", R"(["A_first", ["B_A", ["C_A", "D_C"]]])"},
        {R"(["A_first", [["B_A", ["D_B", "C_B"]], ["B_A", "E_B"]]])", R"(["A_first", "B_A", ["C_B", "D_B", "E_B"]])"},
        {R"(["A_first", [[["B_A"]], [["C_A"], "D_A"]]])", R"(["A_first", ["B_A", "C_A"]])"},
        {R"(["A_first", [["B_A", "X_y"], ["C_A", "X_y"]]])", R"(["A_first", [["B_A", "X_y"], "C_A"]])"},
        {R"(["A_first", ["B_A", "B_A"]])", R"(["A_first", "B_A"])"},
        {R"(["A_first", "A_first"])", R"(["A_first", "A_first"])"},
        {R"(["A_first","B\u005fA" ])", R"(["A_first", "B_A"])"},
        {R"(["A_first", [["B_A", ["C_B"], "D_B"], "E_A"], "F_A"])", R"(["A_first", [["B_A", "C_B"], "E_A"]])"},
        {R"(["A_first", [1, "B_A", null, {"x": "y"}, ["C_A", true, "D_C"], "E_A"]])",
         R"(["A_first", ["B_A", "C_A", "E_A"]])"},
    };
    for (const auto& [given, written] : histories) {
        const auto with = [](const std::string& history) { return R"({"d": {"a": )" + history + R"(}, "r": "a"})"; };
        EXPECT_EQ(open(with(given)).value, with(written)) << given;
        EXPECT_EQ(open(with(written)).value, with(written));
    }
}

TEST(DamagedSyncJson, AnEmptyTreeFailsWhereAWinnerIsAsked) {
    const std::string set = R"({"d": {"a": []}, "r": "a"})";
    EXPECT_EQ(open(set).value, set);
    const auto fails_with = [](const Answer& answer, const std::string& key) {
        EXPECT_NE(answer.error.find("\"error\" : \"" + key), std::string::npos) << answer.error;
    };
    fails_with(taken(sync_json_winning(set.c_str(), "a")), "no_revisions_in_winning");
    fails_with(taken(sync_json_leafs(set.c_str(), "a")), "no_revision_in_document");
    const std::string closed = R"({"d": {"a": ["A_first", "resolved_A"]}, "r": "a"})";
    fails_with(taken(sync_json_leafs(closed.c_str(), "a")), "no_revision_in_document");
    fails_with(taken(sync_json_winning(closed.c_str(), "a")), "no_revision_in_document");
    fails_with(taken(read_sync_json(set.c_str(), "{}")), "no_revision");
    fails_with(taken(update_sync_json("{}", set.c_str(), "{}")), "no_revision");
    // Merging opens none of these, by text or by handle.
    for (const std::string& of_closed : {set, std::string(R"({"d": {"a": ["resolved_first"]}, "r": "a"})")}) {
        const Handle handle = open(of_closed).handle;
        const Answer merged = taken(replicate_sync_json_ptr(handle.get(), handle.get(), "{}"));
        EXPECT_EQ(merged.value, of_closed);
        fails_with(taken(sync_json_updated(of_closed.c_str(), of_closed.c_str())), "no_revision");
        fails_with(taken(sync_json_ptr_updated(merged.handle.get(), merged.handle.get())), "no_revision");
    }
}

TEST(DamagedSyncJson, ARevisionWithoutSuffixIsReadButNotWritten) {
    const std::string refused = "invalid_revision_state_uuid_empty";
    for (const char* history : {R"(["A_"])", R"(["A_first", "B_"])", R"(["A_first", ["B_A", ["C_A", "D_"]]])"}) {
        const std::string set = R"({"d": {"a_": )" + std::string(history) + R"(}, "o": {"A": {}}, "r": "a_"})";
        const Answer opened = open(set);
        EXPECT_TRUE(opened.handle) << opened.error;
        EXPECT_EQ(opened.value, std::nullopt);
        EXPECT_NE(taken(sync_json_winning(set.c_str(), "a_")).text(), "");
        EXPECT_EQ(taken(update_sync_json(R"({"_id": "a_"})", set.c_str(), "{}")).error, refused);
        EXPECT_EQ(taken(replicate_sync_json(set.c_str(), "{}", "{}")).error, refused);
    }
    const std::string sound = R"({"d": {"a_": ["A_first"]}, "r": "a_"})";
    EXPECT_EQ(open(sound).value, sound);
}

// Nobody but the library looks after ordering documents, so it opens one again where it has something to store there.
TEST(DamagedSyncJson, AClosedOrderingDocumentIsNoObstacle) {
    const std::string id = "ord-x4074223592";  // what the domain "x1" has
    for (const char* history : {"[]", R"(["L_first", ["resolved_L", ["M_L", "resolved_M"]]])",
                                R"(["M_first", "resolved_M"])", R"(["resolved_first"])"}) {
        const std::string set = R"({"d": {"e": ["E_first"], ")" + id + "\": " + history +
                                R"(, "ord-z": ["N_first"], "root": ["R_first"]}, "o": {"E": {}, )"
                                R"("L": {"d": "x1", "i": "default", "s": []}, )"
                                R"("M": {"d": "x1", "i": "default", "s": ["e"]}, )"
                                R"("N": {"d": "x1", "i": "other", "s": ["e"]}, "R": {"a": "Ax1"}}, "r": "root"})";
        SCOPED_TRACE(set);
        const std::string data = R"({"_id": "root", "a": [{"_id": "e"}]})";
        EXPECT_EQ(taken(read_sync_json(set.c_str(), "{}")).text(), data);
        const Handle handle = open(set).handle;
        EXPECT_EQ(taken(read_sync_json_ptr(handle.get(), "{}")).text(), data);
        EXPECT_NE(taken(sync_json_ptr_winning(handle.get(), id.c_str())).text(), "");
        EXPECT_NE(taken(update_sync_json(data.c_str(), set.c_str(), R"({"force_fast_hash_only": true})")).text(), "");
    }
}

// Under another parent are all names that the merged list could have.
TEST(DamagedSyncJson, AListIsNotStoredIfNoNameIsLeft) {
    const std::string merged = "614c8c76681cdac319b5d4cf481cb3c96c36daba2c833c5e96dadd9bf9225ce7";
    const std::string of_parent = "d0e9c9cdac3939cdcaace55eb36f83c4386294db4b0898cab9ac51522fabe5da";
    const std::vector<std::string> names{"S", "V", "empty", of_parent, merged};
    const std::string data = R"({"_id": "root", "p": [{"_id": "e2"}, {"_id": "e1"}, {"_id": "e3"}]})";
    for (const bool one_is_left : {true, false}) {
        std::string taken_names;
        for (const std::string& hash : names) {
            if (one_is_left && hash == of_parent) continue;
            taken_names +=
                (taken_names.empty() ? "[\"" : ", [\"") + hash + "_V\", \"resolved_" + hash.substr(0, 7) + "\"]";
        }
        const std::string set = R"({"d": {"e1": ["E_first"], "e2": ["E_first"], "e3": ["E_first"], )"
                                R"("ord-1": ["S_first", [["P_S", [)" +
                                taken_names +
                                R"(]], "V_S", "W_S"]], )"
                                R"("root": ["R_first"]}, "o": {"E": {}, "R": {"p": "AD"}, )"
                                R"("S": {"d": "D", "i": "default", "s": ["e1", "e2"]}, )"
                                R"("V": {"d": "D", "i": "default", "s": ["e2", "e1"]}, )"
                                R"("W": {"d": "D", "i": "default", "s": ["e1", "e2", "e3"]}}, "r": "root"})";
        const Answer opened = open(set);
        const Answer read = taken(read_sync_json_ptr(opened.handle.get(), "{}"));
        EXPECT_EQ(taken(read_sync_json(set.c_str(), "{}")).text(), data);
        if (one_is_left) {
            EXPECT_EQ(read.text(), data);
            continue;
        }
        EXPECT_EQ(read.error, record("ancestor", "invalid_parent_revision_in_ancestor", std::nullopt,
                                     "src/documents/multiversiondocument"));
        EXPECT_EQ(dump(opened.handle), opened.value);
    }
}

TEST(DamagedSyncJson, ContentsThatNothingRefersToAreDropped) {
    EXPECT_EQ(open(R"({"r": "a", "o": {"B": {}, "A": {"b": 1, "a": 2}}, "d": {"a": ["A_first"]}, "more": 1})").value,
              R"({"d": {"a": ["A_first"]}, "o": {"A": {"a": 2, "b": 1}}, "r": "a"})");
}

// --- Texts that end early, or are not what was written

TEST(DamagedSyncJson, CutAnywhereIsAnError) {
    for (const std::string& whole : {rich_sample(), compressed(rich_sample())}) {
        for (std::size_t length = 0; length < whole.size(); ++length) {
            const std::string cut = whole.substr(0, length);
            const Answer answer = open(cut);
            ASSERT_FALSE(answer.value || answer.error.empty() || answer.error.starts_with('{')) << cut;
            ASSERT_EQ(taken(read_sync_json(cut.c_str(), "{}")), answer) << cut;
            ASSERT_EQ(taken(sync_json_diff(cut.c_str(), "{}", "{}")).error, answer.error) << cut;
        }
    }
}

// A byte replaced, or a stretch left out or repeated.
std::string damaged(std::string text, std::mt19937& random) {
    const auto below = [&](std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
    };
    for (std::size_t faults = 1 + below(3); faults != 0; --faults) {
        const std::size_t at = below(text.size());
        const std::size_t length = 1 + below(std::min<std::size_t>(30, text.size() - at));
        constexpr std::string_view bytes = "{}[]\",:_-\\0ADor!#\x80";
        switch (below(3)) {
            case 0:
                text[at] = bytes[below(bytes.size())];
                break;
            case 1:
                text.insert(at, text.substr(at, length));
                break;
            default:
                text.erase(at, std::min(length, text.size() - 1));
                break;
        }
    }
    return text;
}

TEST(DamagedSyncJson, AnyDamageIsAnErrorOrReadAlikeByAllFunctions) {
    for (unsigned seed = 0; seed < 500; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const std::string text = damaged(rich_sample(), random);
        const Answer dumped = open(text);
        for (const Export& row : exports()) {
            for (std::size_t at = 0; at < row.arguments.size(); ++at) {
                if (row.arguments[at].kind != Kind::sync_json) continue;
                Texts given = good_arguments(row);
                given[at] = text;
                const Answer answer = row.call(given);
                const Export* const twin = twin_of(row);
                if (twin == nullptr || twin->arguments[at].kind != Kind::handle) continue;
                if (dumped.handle) {
                    EXPECT_EQ(opened(answer), opened(call_in_the_name_of(row, *twin, given))) << row.name;
                } else {
                    EXPECT_EQ(answer.error, dumped.error) << row.name;
                }
            }
        }
    }
}

// Copies that give one revision different empty parents leave one of these without a child when they meet.
TEST(DamagedSyncJson, EmptyRevisionsHideNoList) {
    const struct {
        const char* history;
        const char* shown;
    } cases[] = {
        {R"("A_first", "empty_A")", R"([{"_id": "e0"}])"},
        {R"("A_first", ["B_A", "empty_A"])", R"([{"_id": "e0"}, {"_id": "e1"}])"},
        {R"("A_first", ["B_A", ["C_A", "empty_C"]])", R"([{"_id": "e0"}, {"_id": "e1"}])"},
        {R"("A_first", "B_A", ["C_B", ["B_B", "empty_B"]])", R"([{"_id": "e1"}, {"_id": "e0"}])"},
    };
    for (const auto& [history, shown] : cases) {
        const std::string set = R"({"d": {"root": ["R_first"], "e0": ["E_first"], "e1": ["E_first"], "ord-1": [)" +
                                std::string(history) + R"(]}, "o": {"A": {"d": "D", "i": "default", "s": ["e0"]}, )" +
                                R"("B": {"d": "D", "i": "default", "s": ["e0", "e1"]}, )" +
                                R"("C": {"d": "D", "i": "default", "s": ["e1", "e0"]}, "E": {}, )" +
                                R"("R": {"a": "AD"}}, "r": "root"})";
        EXPECT_EQ(taken(read_sync_json(set.c_str(), "{}")).text(),
                  R"({"_id": "root", "a": )" + std::string(shown) + "}")
            << history;
    }
}

}  // namespace
}  // namespace c_api
