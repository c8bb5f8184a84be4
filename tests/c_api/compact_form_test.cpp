#include <cstdlib>

#include "c_api/export_table.h"
#include "c_api/samples.h"

namespace c_api {
namespace {

// These hold whichever form results are written in; the environment of the process decides which one that is.
bool writes_compact() { return std::getenv("USE_BEL_FORMAT") != nullptr; }

std::string sized(const std::string& text) { return std::to_string(text.size()) + ":" + text; }

// The compact form of a text as the library writes it, without escapes in its strings.
std::string compact(const std::string& standard) {
    const char first = standard[0];
    if (first == 'n' || first == 't' || first == 'f') return first == 'n' ? "@N" : first == 't' ? "@T" : "@F";
    if (first == '"') return "@" + sized(unquoted(standard));
    if (first != '[' && first != '{') {
        const bool is_int = standard.find_first_of(".eE") == std::string::npos && standard.size() <= 10;
        return (is_int ? "@i" : "@f") + standard + "x";
    }
    std::string text = first == '[' ? "@l" : "@d";
    for (const std::string& entry : entries(standard)) {
        const std::size_t colon = first == '[' ? 0 : entry.find("\": ");
        text += first == '[' ? compact(entry) : sized(entry.substr(1, colon - 1)) + compact(entry.substr(colon + 3));
    }
    return text + "x";
}

// One with a conflict.
const std::string set = R"({"d": {"root": ["A_first", ["B_A", "C_A"]]}, "o": {"A": {"b": [true, false, null, "!t"], )"
                        R"("n": -5}, "B": {"x": 2.5, "y": 1e+30, "z": 1234567890}}, "r": "root"})";

TEST(CompactForm, IsTakenByEveryFunction) {
    for (const Export& row : exports()) {
        Texts in_standard = good_arguments(row);
        Texts in_compact;
        for (std::size_t at = 0; at < in_standard.size(); ++at) {
            const Kind kind = row.arguments[at].kind;
            if (in_standard[at] == rich_sample()) in_standard[at] = set;
            if (kind == Kind::revision) in_standard[at] = "2-B_A";
            const bool has_two_forms = is_json(kind) || kind == Kind::handle;
            in_compact.push_back(has_two_forms ? compact(*in_standard[at]) : in_standard[at]);
        }
        const Answer answer = row.call(in_compact);
        EXPECT_EQ(answer, row.call(in_standard)) << row.name;
        EXPECT_EQ(answer.text().find_first_of(writes_compact() ? "{[" : "@") == 0, false) << row.name;
    }
}

TEST(CompactForm, OfResultsTellsTheSame) {
    const auto expect = [](const Answer& answer, const std::string& told) {
        EXPECT_EQ(answer.text(), writes_compact() ? compact(told) : told);
    };
    expect(open(set), set);
    expect(taken(sync_json_uncompress(set.c_str())), set);
    expect(taken(sync_json_uncompress(taken(sync_json_compress(set.c_str())).text().c_str())), set);
    expect(taken(sync_json_all_docs(set.c_str())), R"(["root"])");
    expect(taken(sync_json_available(set.c_str(), "2-C_A")), "false");
    expect(taken(sync_json_history(set.c_str(), "root", "2-C_A")), R"(["2-C_A", "1-A_first"])");
    expect(taken(read_sync_json(set.c_str(), "{}")), R"({"_id": "root", "x": 2.5, "y": 1e+30, "z": 1234567890})");
    expect(taken(json_array_unflatten(R"([{"_id": "a", "z": "!t"}])", "{}", "")), R"({"_id": "a", "z": "t"})");
    expect(taken(sync_json_patch("{}", R"({"o": [{"op": "add", "key": "k", "value": {"s": ""}}]})")),
           R"({"d": {}, "o": {"k": {"s": ""}}})");
    EXPECT_EQ(taken(sync_json_root(set.c_str())).text(), "root");
    EXPECT_EQ(taken(sync_json_leafs(set.c_str(), "root")).text(), "2-B_A,2-C_A");

    const std::string object = taken(sync_json_compress(set.c_str())).text();
    const std::string size = std::to_string((writes_compact() ? compact(set) : set).size());
    EXPECT_TRUE(object.ends_with(writes_compact() ? "17:uncompressed_size@i" + size + "xx"
                                                  : "\"uncompressed_size\": " + size + "}"));
    EXPECT_EQ(open(object), open(set));
    if (!writes_compact()) {
        EXPECT_EQ(open(compact(object)), open(set));
    }
}

// The compact form is a C text, so it cannot represent a NUL byte. Such a result fails; it is never cut short.
TEST(CompactForm, RefusesTextsThatContainNul) {
    const std::string content = R"({"a": "!x\u0000y"})";
    const std::string with_nul = R"({"d": {"root": ["A_first"]}, "o": {"A": )" + content + R"(}, "r": "root"})";
    for (const std::string_view name :
         {"sync_json_resolve", "sync_json_all_winning", "sync_json_data", "sync_json_ptr_data", "sync_json_prune",
          "sync_json_prune_ids", "sync_json_to_bulk_docs", "sync_json_ptr_to_bulk_docs", "read_sync_json",
          "read_sync_json_ptr", "update_sync_json", "replicate_sync_json", "json_object_flatten", "sync_json_diff",
          "sync_json_patch", "sync_json_compress", "sync_json_uncompress"}) {
        const Export& row = export_named(name);
        Texts given = good_arguments(row);
        for (std::size_t at = 0; at < given.size(); ++at) {
            const Kind kind = row.arguments[at].kind;
            if (kind == Kind::object) given[at] = content;
            if (kind == Kind::revision) given[at] = "1-A_first";
            if (kind != Kind::sync_json && kind != Kind::handle) continue;
            given[at] = at == 1 && name.find("_sync_json") == std::string_view::npos ? "{}" : with_nul;
        }
        const Answer answer = row.call(given);
        EXPECT_EQ(answer.error, writes_compact() ? record(name, "text_contains_nul") : "") << name;
    }
    const Answer handle = open(with_nul);
    EXPECT_TRUE(handle.handle);
    EXPECT_EQ(handle.value, writes_compact() ? std::nullopt : std::optional(with_nul));
    EXPECT_EQ(taken(sync_json_ptr_root(handle.handle.get())).text(), "root");
}

}  // namespace
}  // namespace c_api
