#include "transformation/flattener.h"

#include <gtest/gtest.h>

#include "in_texts.h"
#include "json/error.h"

namespace libzentadbpp {
namespace {

using namespace in_texts;

// Documents, given in any order, as they are written.
std::string array_of(std::string_view documents) {
    Arena arena;
    const JsonValue array = parse_json(documents, arena);
    std::vector<JsonValue> sorted(array.elements().begin(), array.elements().end());
    std::ranges::sort(sorted, {}, [](const JsonValue& document) { return document.find("_id")->as_string(); });
    TextBuffer out;
    write_json(JsonValue::array(sorted), out);
    return std::string(out.view());
}

TEST(Flattener, WritesTheseDocuments) {
    const struct {
        const char* data;
        std::string config;
        const char* documents;
        HashKind kind = HashKind::sha256;
    } cases[] = {
        // Every kind of value, and strings that look like references.
        {R"({"#": 0, "a": "Ax", "e": "", "f": false, "i": -7, "n": null, "o": "Ox", "q": "\"\u00e9/", "r": 1.50,
             "s": "!x", "t": true})",
         "{}", R"([{"#": 0, "_id": "root", "a": "!Ax", "e": "!", "f": false, "i": -7, "n": null, "o": "!Ox",
                    "q": "!\"é/", "r": 1.5, "s": "!!x", "t": true}])"},
        // An array of objects.
        {R"({"tasks": [{"_id": "t2", "x": "y"}, {"_id": "t1"}], "_id": 5})", "{}",
         R"([{"_id": "root", "tasks": "Abe6f2b51c094cb266cf670a35ed78dff073a6a91ff84264915c1ccc6bb707984"},
             {"_id": "t1"}, {"_id": "t2", "x": "!y"},
             {"_id": "ord-e08a8482cfbe712961e8710975d1a141481a596dee0e6be304fc58395a64c1c1",
              "d": "be6f2b51c094cb266cf670a35ed78dff073a6a91ff84264915c1ccc6bb707984", "i": "default",
              "s": ["t2", "t1"]}])"},
        // Elements without ids share one; arrays in elements; an empty array has no other document.
        {R"({"a": [{"x": 1}, {"x": 2}, {"_id": "e", "b": [{"_id": "f", "c": []}]}]})", "{}",
         R"([{"_id": "root", "a": "A«root->a-»"}, {"_id": "«root->a-a(«root->a-»)->»", "x": 2},
             {"_id": "e", "b": "A«root->a-a(«root->a-»)->o(e)->b-»"},
             {"_id": "f", "c": "A«root->a-a(«root->a-»)->o(e)->b-a(«root->a-a(«root->a-»)->o(e)->b-»)->o(f)->c-»"},
             {"_id": "ord-«default-ordering-«root->a-»»", "d": "«root->a-»", "i": "default",
              "s": ["«root->a-a(«root->a-»)->»", "«root->a-a(«root->a-»)->»", "e"]},
             {"_id": "ord-«default-ordering-«root->a-a(«root->a-»)->o(e)->b-»»",
              "d": "«root->a-a(«root->a-»)->o(e)->b-»", "i": "default", "s": ["f"]}])"},
        // Elements of an indexed array do not; the instance names the ordering documents.
        {R"({"a": [{"x": 1}, {"x": 2}]})",
         R"({"indexed_array_paths": "other,«root->a-»", "instance_id": "m\"e%domain%"})",
         R"([{"_id": "root", "a": "A«root->a-»"}, {"_id": "«root->a-a(«root->a-»)->0»", "x": 1},
             {"_id": "«root->a-a(«root->a-»)->1»", "x": 2},
             {"_id": "ord-«m"e«root->a-»-ordering-«root->a-»»", "d": "«root->a-»", "i": "m\"e%domain%",
              "s": ["«root->a-a(«root->a-»)->0»", "«root->a-a(«root->a-»)->1»"]}])"},
        // Other arrays stay; empty ones may have one domain.
        {R"({"m": [1, "s", {"_id": "Oh", "x": "y"}, [{"_id": "e"}], [["t"], 2]], "n": [1, [], []]})", "{}",
         R"([{"_id": "root", "m": [1, "!s", {"_id": "Oh", "x": "!y"}, "A«root->m-a(»", [["!t"], 2]],
              "n": [1, "A«root->n-a(»", "A«root->n-a(»"]}, {"_id": "e"},
             {"_id": "ord-«default-ordering-«root->m-a(»»", "d": "«root->m-a(»", "i": "default", "s": ["e"]}])"},
        // Nested objects stay inside, with the ids that the host gave them.
        {R"({"o": {"_id": "h", "a": [], "p": {"b": [], "s": "t"}}})", "{}",
         R"([{"_id": "root", "o": {"_id": "h", "a": "A«root->o-o(h)->a-»",
              "p": {"b": "A«root->o-o(h)->p-o(«root->o-o(h)->p-»)->b-»", "s": "!t"}}}])"},
        // #df splits the members of its object and no deeper, also inside an object that stays.
        {R"({"#df": "x", "o": {"q": {"#df": true, "_id": 4, "in": {"_id": "n", "x": 1}}}, "z": [1, {}]})", "{}",
         R"([{"#df": "!x", "_id": "root", "o": "O«root->o-»", "z": [1, {}]}, {"_id": "n", "x": 1},
             {"_id": "«root->o-»", "q": {"#df": true, "_id": "«root->o-o(«root->o-»)->q-»", "in": "On"}}])"},
        // flatten_objects splits all but what lies in arrays of other kinds.
        {R"({"m": [1, {"in": {}}], "o": {"q": {"s": "t"}}})", R"({"flatten_objects": true})",
         R"([{"_id": "root", "m": [1, {"_id": "«root->m-a(»", "in": "O«root->m-a(o(«root->m-a(»)->in-»"}],
              "o": "O«root->o-»"}, {"_id": "«root->m-a(o(«root->m-a(»)->in-»"},
             {"_id": "«root->o-»", "q": "O«root->o-o(«root->o-»)->q-»"},
             {"_id": "«root->o-o(«root->o-»)->q-»", "s": "!t"}])"},
        // #nf stays as it is, also against #df and flatten_objects.
        {R"({"#df": 0, "o": {"#df": 1, "#nf": "raw", "a": [{"x": {}}], "z": {"_id": 5}}})",
         R"({"flatten_objects": true})",
         R"([{"#df": 0, "_id": "root", "o": {"#df": 1, "#nf": "raw", "_id": "«root->o-»", "a": [{"x": {}}],
              "z": {"_id": 5}}}])"},
        // The fast hash names everything.
        {R"({"a": [{"x": {}}]})", R"({"force_fast_hash_only": true, "flatten_objects": true})",
         R"([{"_id": "root", "a": "A«root->a-»"}, {"_id": "«root->a-a(«root->a-»)->o(«root->a-a(«root->a-»)->»)->x-»"},
             {"_id": "«root->a-a(«root->a-»)->»",
              "x": "O«root->a-a(«root->a-»)->o(«root->a-a(«root->a-»)->»)->x-»"},
             {"_id": "ord-«default-ordering-«root->a-»»", "d": "«root->a-»", "i": "default",
              "s": ["«root->a-a(«root->a-»)->»"]}])",
         HashKind::fast},
    };
    for (const auto& [data, config, documents, kind] : cases) {
        EXPECT_EQ(flattened(data, with_hashes(config, kind)), array_of(with_hashes(documents, kind))) << data;
    }
}

TEST(Flattener, RefusesWhatWouldLoseData) {
    const struct {
        std::string_view data;
        std::string_view config;
        std::string_view function;
        std::string_view error;
        std::optional<std::string> args;
    } cases[] = {
        {"[{}]", "{}", "operator ()", "expecting_root_object_after_flattening", {}},
        {"\"a\"", "{}", "operator ()", "expecting_root_object_after_flattening", {}},
        {"1", "{}", "operator ()", "expecting_root_object_after_flattening", {}},
        {"null", "{}", "operator ()", "expecting_root_object_after_flattening", {}},
        {R"({"m": [1, [{"_id": "x"}], [{"_id": "y"}]]})", "{}", "flatten", "duplicate_array_domain_key", "root->m-a("},
        {R"({"m": [1, [], [{"_id": "y"}]]})", "{}", "flatten", "duplicate_array_domain_key", "root->m-a("},
        {R"({"m": [1, [{"_id": "y"}], []]})", "{}", "flatten", "duplicate_array_domain_key", "root->m-a("},
        {R"({"m": [1, {"_id": "i", "b": [{}]}, {"_id": "i", "b": [{}]}]})", "{}", "flatten",
         "duplicate_array_domain_key", "root->m-a(o(i)->b-"},
        {R"({"#df": 1, "a": {"_id": "x"}, "b": {"_id": "x"}})", "{}", "operator ()", "duplicate_objects_domain_key",
         "root->b-"},
        {R"({"#df": 1, "a": {"#df": 1, "_id": "x", "b": {"_id": "x"}}})", "{}", "operator ()",
         "duplicate_objects_domain_key", "root->a-o(x)->b-"},
        {R"({"a": {"b": {"_id": "x"}}, "c": [{"_id": "e", "d": {"_id": "x"}}]})", R"({"flatten_objects": true})",
         "operator ()", "duplicate_objects_domain_key", "root->c-a(«root->c-»)->o(e)->d-"},
        {R"({"_id": "x", "a": {"_id": "x"}})", R"({"flatten_objects": true})", "operator ()",
         "duplicate_objects_domain_key", "root->a-"},
        {R"({"a": [{"_id": "e", "b": [{"_id": "root"}]}]})", "{}", "operator ()", "duplicate_objects_domain_key", ""},
        {R"({"a": [{"_id": "e", "b": [{"c": {"d": [{"_id": "e"}]}}]}]})", "{}", "operator ()",
         "duplicate_objects_domain_key", ""},
        {R"({"folders": [{"name": "a", "sub": [{"name": "a"}]}]})", R"({"id_generation_rules": "name"})", "operator ()",
         "duplicate_objects_domain_key", ""},
    };
    for (const auto& [data, config, function, error, args] : cases) {
        const auto expected = args ? std::optional(with_hashes(*args)) : std::nullopt;
        EXPECT_EQ(failure<FlattenerException>([&data = data, &config = config] { (void)updated({}, data, config); }),
                  record("src/transformation/flattener", function, error, expected))
            << data;
    }
}

}  // namespace
}  // namespace libzentadbpp
