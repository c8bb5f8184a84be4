#include "transformation/transformation_settings.h"

#include <gtest/gtest.h>

#include "common/json_parser.h"

namespace libzentadbpp {
namespace {

using Rules = std::vector<IdGenerationRule>;
using Paths = std::set<std::string, std::less<>>;

void expect_defaults(const TransformationSettings& settings, const std::string& what) {
    EXPECT_EQ(settings.instance_id, "default") << what;
    EXPECT_EQ(settings.id_generation_rules, Rules{}) << what;
    EXPECT_EQ(settings.indexed_array_paths, Paths{}) << what;
    EXPECT_FALSE(settings.flatten_objects || settings.discard_id || settings.force_fast_hash_only ||
                 settings.preserve_old_ordering)
        << what;
}

TEST(TransformationSettings, EveryMemberOfTheRightKindCounts) {
    Arena arena;
    const JsonValue all = parse_json(R"({"instance_id": "me", "flatten_objects": true, "id_generation_rules": "a.b;c",
        "indexed_array_paths": "x,y", "discard_id": true, "force_fast_hash_only": true, "preserve_old_ordering": true,
        "include_full_data_hash": true, "compressed": true, "unknown": 1})",
                                     arena);
    const auto flattening = TransformationSettings::for_flattening(all);
    EXPECT_EQ(flattening.instance_id, "me");
    EXPECT_TRUE(flattening.flatten_objects && flattening.discard_id && flattening.force_fast_hash_only);
    EXPECT_FALSE(flattening.preserve_old_ordering);
    EXPECT_EQ(flattening.id_generation_rules, (Rules{{{"a", "b"}}, {{"c"}}}));
    EXPECT_EQ(flattening.indexed_array_paths, (Paths{"x", "y"}));
    EXPECT_EQ(flattening.hash_kind(), HashKind::fast);

    const auto reading = TransformationSettings::for_reading(all);
    EXPECT_EQ(reading.instance_id, "me");
    EXPECT_TRUE(reading.discard_id && reading.preserve_old_ordering);
    EXPECT_FALSE(reading.flatten_objects || reading.force_fast_hash_only);
    EXPECT_TRUE(reading.id_generation_rules.empty() && reading.indexed_array_paths.empty());
}

TEST(TransformationSettings, AMemberOfAnotherKindIsPassedOver) {
    const std::string_view texts[] = {"instance_id", "id_generation_rules", "indexed_array_paths"};
    const std::string_view flags[] = {"flatten_objects", "discard_id", "force_fast_hash_only", "preserve_old_ordering"};
    const std::string_view no_text[] = {"null", "true", "42", "1.5", "[\"a\"]", "{}"};
    const std::string_view no_flag[] = {"null", "\"true\"", "1", "1.0", "[true]", "{}"};
    Arena arena;
    const auto check = [&](auto& keys, auto& values) {
        for (const auto key : keys) {
            for (const auto value : values) {
                const std::string config = "{\"" + std::string(key) + "\": " + std::string(value) + "}";
                expect_defaults(TransformationSettings::for_flattening(parse_json(config, arena)), config);
                expect_defaults(TransformationSettings::for_reading(parse_json(config, arena)), config);
            }
        }
    };
    check(texts, no_text);
    check(flags, no_flag);
    for (const std::string config : {"{}", R"({"Instance_id": "me", "DISCARD_ID": true})",
                                     R"({"id_generation_rules": "", "indexed_array_paths": ""})"}) {
        expect_defaults(TransformationSettings::for_flattening(parse_json(config, arena)), config);
        expect_defaults(TransformationSettings::for_reading(parse_json(config, arena)), config);
    }
}

TEST(TransformationSettings, RulesAreSplitAtThreeLevels) {
    const struct {
        std::string_view text;
        Rules rules;
    } cases[] = {
        {"", {}},
        {"a", {{{"a"}}}},
        {"a.b", {{{"a", "b"}}}},
        {"user.id;name,version", {{{"user", "id"}}, {{"name"}, {"version"}}}},
        {" a ;#b", {{{" a "}}, {{"#b"}}}},
        {"a;", {{{"a"}}, {{}}}},
        {"a,,b", {{{"a"}, {}, {"b"}}}},
        {"a..b.", {{{"a", "", "b", ""}}}},
        // A separator in first place is part of what it would separate.
        {";", {{{";"}}}},
        {";a;,b,.c.d", {{{";a"}}, {{",b"}, {".c", "d"}}}},
    };
    for (const auto& [text, rules] : cases) EXPECT_EQ(parse_id_generation_rules(text), rules) << text;
}

TEST(TransformationSettings, IndexedPathsAreASet) {
    EXPECT_EQ(parse_indexed_array_paths(""), Paths{});
    EXPECT_EQ(parse_indexed_array_paths("x,y,x"), (Paths{"x", "y"}));
    EXPECT_EQ(parse_indexed_array_paths("a;b.c"), (Paths{"a;b.c"}));
}

}  // namespace
}  // namespace libzentadbpp
