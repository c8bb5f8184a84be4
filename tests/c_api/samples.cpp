#include "c_api/samples.h"

#include <algorithm>

#include "c_api/zenta.h"

namespace c_api {

namespace {

std::string update(const std::string& data, const std::string& before, const char* config) {
    return taken(update_sync_json(data.c_str(), before.c_str(), config)).text();
}

std::string merge(const std::string& source, const std::string& target) {
    return taken(replicate_sync_json(source.c_str(), target.c_str(), "{}")).text();
}

std::vector<Sample> make_samples() {
    const std::string linear =
        R"({"d": {"root": ["A_first", "B_A", "C_B"]}, "o": {"A": {"a": "!1"}, "B": {"a": "!2"}, )"
        R"("C": {"a": "!3", "n": 1.5}}, "r": "root"})";
    const std::string branched =
        R"({"d": {"other": ["E_first", ["F_E", "G_E"]], "root": ["A_first", "B_A", ["C_B", ["D_B", "E_D"]]]}, )"
        R"("o": {"A": {"a": 1}, "B": {"a": 2}, "C": {"a": 3}, "D": {"a": 4}, "E": {"a": 5}, "F": {}, "G": {"#nf": [1]}}, )"
        R"("r": "root"})";
    const std::string closed = R"({"d": {"gone": ["A_first", "deleted_A"], "half": ["A_first", ["B_A", "deleted_A"]], )"
                               R"("root": ["empty_first", ["A_empty", ["B_empty", "resolved_B"]]]}, )"
                               R"("o": {"A": {"to": "Ogone"}, "B": {"to": "Ohalf"}}, "r": "root"})";
    const std::string pruned =
        R"({"d": {"lost": ["A_first"], "root": ["B_first", "C_B"]}, "o": {"C": {}}, "r": "root"})";

    const std::string first =
        update(R"({"title": "a", "list": [{"_id": "e1", "n": 1}, {"_id": "e2", "in": {"#df": true, "x": [1, "s"]}}],)"
               R"( "own": {"_id": "o1", "#df": true}})",
               "{}", R"({"flatten_objects": true})");
    const std::string left = update(R"({"title": "b", "list": [{"_id": "e2", "n": 7}, {"_id": "e1", "n": 1}]})", first,
                                    R"({"instance_id": "left"})");
    const std::string right =
        update(R"({"title": "c", "list": [{"_id": "e3"}, {"_id": "e1", "n": 3}], "own": {"_id": "o1", "z": null}})",
               first, R"({"flatten_objects": true})");
    const std::string merged = merge(left, right);
    const std::string conflicting = taken(sync_json_conflicting(merged.c_str(), "root")).text();
    EXPECT_FALSE(conflicting.empty());
    const std::string settled = taken(sync_json_resolve(merged.c_str(), "root", conflicting.c_str())).text();
    const std::string fast =
        update(R"({"list": [{"_id": "e1", "n": 9}], "x": 12345678901})", "{}", R"({"force_fast_hash_only": true})");
    return {{"empty", "{}"},  {"linear", linear}, {"branched", branched}, {"closed", closed},   {"pruned", pruned},
            {"first", first}, {"left", left},     {"merged", merged},     {"settled", settled}, {"fast", fast}};
}

}  // namespace

const std::vector<Sample>& samples() {
    static const std::vector<Sample> made = make_samples();
    return made;
}

const std::string& rich_sample() { return std::ranges::find(samples(), "merged", &Sample::name)->sync_json; }

}  // namespace c_api
