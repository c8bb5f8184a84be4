#include "transformation/document_path.h"

#include <gtest/gtest.h>

#include "in_texts.h"

namespace libzentadbpp {
namespace {

using namespace in_texts;

// The id of an object below the root, at the path "root->k-".
std::string id_of(std::string_view object, std::string_view rules, HashKind kind = HashKind::sha256) {
    Arena arena;
    TransformationSettings settings;
    settings.id_generation_rules = parse_id_generation_rules(rules);
    DataHasher hasher(kind);
    const DocumentPath top;
    const DocumentPath inside{&top, DocumentPath::Step::root, {}};
    const DocumentPath member{&inside, DocumentPath::Step::member, "k"};
    return std::string(IdGenerator(settings, hasher, arena).object_id(parse_json(object, arena), member));
}

TEST(ObjectId, OwnIdThenRulesThenPath) {
    const std::string by_path = with_hashes("«root->k-»");
    const struct {
        std::string_view object;
        std::string_view rules;
        std::string id;
    } cases[] = {
        {R"({"_id": "own", "name": "n"})", "name", "own"},
        {R"({"_id": "", "name": "n"})", "name", ""},
        {R"({"_id": "q\"é\u0000"})", "", std::string("q\"é\0", 5)},
        {R"({"_id": 5, "name": "n"})", "name", "n"},
        {R"({"_id": null})", "", by_path},
        {R"({"_id": {"_id": "x"}})", "", by_path},
        {R"({"name": "a", "version": 2})", "name,version", "a2"},
        {R"({"name": "a", "version": 2.9})", "name,version", "a2"},
        {R"({"name": "a", "version": -2.9})", "name,version", "a-2"},
        {R"({"name": "a", "version": -0.5})", "name,version", "a0"},
        {R"({"name": "a", "version": 1e3})", "name,version", "a1000"},
        {R"({"v": 9007199254740993})", "v", "9007199254740992"},
        {R"({"v": 9223372036854774784})", "v", "9223372036854774784"},
        {R"({"v": -9223372036854775808})", "v", "-9223372036854775808"},
        {R"({"v": 9223372036854775808, "w": "w"})", "v;w", "w"},
        {R"({"v": -9223372036854777856, "w": "w"})", "v;w", "w"},
        {R"({"v": 1e300})", "v", by_path},
        {R"({"name": "", "b": "b"})", "name;b", "b"},
        {R"({"name": "a", "b": "b"})", "name,missing;b", "b"},
        {R"({"v": true, "w": null, "x": [1], "y": {}, "z": 7})", "v;w;x;y;z", "7"},
        {R"({"u": {"id": "deep", "v": {"id": "deeper"}}})", "u.id,u.v.id", "deepdeeper"},
        {R"({"u": "text"})", "u.id", by_path},
        {R"({"u": [{"id": "x"}]})", "u.id", by_path},
        {R"({"a": "first", "b": "second"})", "a;b", "first"},
        {R"({"a": "x"})", "b;;a", "x"},
        {R"({"a": "x", ";a": "y"})", ";a", "y"},
        {R"({"a": "x"})", "a,", by_path},
        {R"({"a": {"": {"": "empty keys"}}})", "a..", "empty keys"},
        {"{}", "a;b", by_path},
    };
    for (const auto& [object, rules, id] : cases) EXPECT_EQ(id_of(object, rules), id) << object << " by " << rules;
    EXPECT_EQ(id_of("{}", "", HashKind::fast), hash("root->k-", HashKind::fast));
}

TEST(ObjectId, ARuleWithoutPathsYieldsTheEmptyIdAtOnce) {
    std::string id = "left over";
    EXPECT_TRUE(apply_rule({}, JsonValue{}, id));
    EXPECT_EQ(id, "");
}

TEST(OrderingIds, HashInstanceAndDomain) {
    Arena arena;
    const auto ordering_id = [&](std::string_view instance, std::string_view domain, DataHasher& hasher) {
        return std::string(OrderingIds(instance).id(domain, hasher, arena));
    };
    DataHasher hasher(HashKind::sha256);
    EXPECT_EQ(ordering_id("default", hash("root->tasks-"), hasher),
              "ord-e08a8482cfbe712961e8710975d1a141481a596dee0e6be304fc58395a64c1c1");
    const struct {
        std::string_view instance;
        std::string_view domain;
        std::string_view text;
    } cases[] = {
        {"a", "d", "a-ordering-d"},
        {"b", "d", "b-ordering-d"},
        {"", "", "-ordering-"},
        {"%instanceid%", "%instanceid%", "%instanceid%-ordering-%instanceid%"},
        {"<%domain%%domain%>", "d", "<dd>-ordering-d"},
        {"a", "%domain%%domain", "a-ordering-%domain%%domain"},
    };
    for (const auto& [instance, domain, text] : cases) {
        EXPECT_EQ(ordering_id(instance, domain, hasher), "ord-" + hash(text)) << text;
    }
    DataHasher fast(HashKind::fast);
    EXPECT_TRUE(ordering_id("a", "x1", fast).starts_with("ord-x"));
}

TEST(ArrayDomain, OfALongPathIsTheHashOfItsText) {
    const std::string key(5000, 'k');
    for (const HashKind kind : {HashKind::sha256, HashKind::fast}) {
        const std::string config = kind == HashKind::fast ? R"({"force_fast_hash_only": true})" : "{}";
        const std::string text = flattened("{\"" + key + R"(": {"_id": "o", "a": [], "b": []}})", config);
        for (const char* array : {"a", "b"}) {
            const std::string domain = hash("root->" + key + "-o(o)->" + array + "-", kind);
            EXPECT_NE(text.find("\"" + std::string(array) + "\": \"A" + domain + "\""), std::string::npos) << array;
        }
    }
}

}  // namespace
}  // namespace libzentadbpp
