#include <algorithm>
#include <fstream>
#include <map>
#include <set>

#include "c_api/export_table.h"
#include "c_api/samples.h"

namespace c_api {
namespace {

const std::string damaged_object = R"({"compressed": true, "data": "AAAA", "uncompressed_size": 4})";

enum class Fault : std::uint8_t { none, null, empty, malformed, wrong_kind, unopenable };

std::vector<Fault> faults_of(Kind kind) {
    if (kind == Kind::number || kind == Kind::flag || kind == Kind::optional_text) return {Fault::none};
    std::vector<Fault> faults{Fault::none, Fault::null};
    for (const Fault fault : {Fault::empty, Fault::malformed, Fault::wrong_kind}) {
        if (is_json(kind)) faults.push_back(fault);
    }
    if (kind == Kind::sync_json) faults.push_back(Fault::unopenable);
    return faults;
}

// Every way to choose one of the options for each position.
template <class Option, class Visit>
void for_each_choice(const std::vector<std::vector<Option>>& options, const Visit& visit) {
    std::vector<std::size_t> chosen(options.size(), 0);
    if (std::ranges::any_of(options, [](const auto& some) { return some.empty(); })) return;
    for (;;) {
        std::vector<Option> choice;
        for (std::size_t at = 0; at < options.size(); ++at) choice.push_back(options[at][chosen[at]]);
        visit(choice);
        std::size_t at = 0;
        while (at < options.size() && ++chosen[at] == options[at].size()) chosen[at++] = 0;
        if (at == options.size()) return;
    }
}

std::string malformed_text(std::size_t at) { return std::string(1, static_cast<char>('w' + at)); }

// The error of the first fault in the order in which arguments are looked at; none where all faults count as empty
// sets.
std::optional<std::string> expected_error(const Export& row, const std::vector<Fault>& faults) {
    for (const std::size_t at : row.order) {
        const Argument& argument = row.arguments[at];
        switch (faults[at]) {
            case Fault::null:
                if (argument.kind == Kind::handle) return record(row.name, argument.key);
                return argument.null_key.empty() ? "null input" : record(row.name, argument.null_key);
            case Fault::empty:
                return "invalid string_view position";
            case Fault::malformed: {
                const std::string text = malformed_text(at);
                return "expected value, got '" + text + "' (" + std::to_string(text[0]) + ")";
            }
            case Fault::wrong_kind:
                if (argument.check == Check::bare_key) return std::string(argument.key);
                if (argument.check == Check::record) return record(row.name, argument.key);
                break;
            default:
                break;
        }
    }
    if (std::ranges::find(faults, Fault::unopenable) != faults.end()) {
        if (row.inflation == Inflation::reported) return record("uncompress_object", "failed_to_uncompress_data");
        if (row.inflation == Inflation::bare_key) return "failed_to_uncompress_obj";
    }
    return std::nullopt;
}

TEST(Exports, TableHasEveryFunction) {
    std::ifstream list(ZENTADBPP_EXPORTS_FILE);
    std::set<std::string> listed;
    for (std::string line; std::getline(list, line);) {
        line = line.substr(0, line.find_first_of(" \t#"));
        if (!line.empty() && !line.starts_with("free_") && line != "sync_json_lib_version") listed.insert(line);
    }
    std::set<std::string> in_table;
    for (const Export& row : exports()) in_table.emplace(row.name);
    EXPECT_EQ(in_table, listed);
    EXPECT_EQ(in_table.size(), 56U);
}

TEST(Exports, FirstFaultInOrderDecidesTheError) {
    for (const std::string wrong : {"[1, 2]", "42", "\"text\"", "null", "true"}) {
        for (const Export& row : exports()) {
            const Texts good = good_arguments(row);
            std::vector<std::vector<Fault>> options;
            for (const Argument& argument : row.arguments) options.push_back(faults_of(argument.kind));
            for_each_choice(options, [&](const std::vector<Fault>& faults) {
                Texts given = good;
                Texts as_empty = good;
                std::string told(row.name);
                for (std::size_t at = 0; at < given.size(); ++at) {
                    told += " " + std::to_string(static_cast<int>(faults[at]));
                    if (faults[at] == Fault::null) given[at] = std::nullopt;
                    if (faults[at] == Fault::empty) given[at] = "";
                    if (faults[at] == Fault::malformed) given[at] = malformed_text(at);
                    if (faults[at] == Fault::unopenable) given[at] = damaged_object;
                    if (faults[at] == Fault::wrong_kind) {
                        given[at] = row.arguments[at].kind == Kind::array && wrong[0] == '[' ? "{}" : wrong;
                    }
                    if (faults[at] >= Fault::wrong_kind) as_empty[at] = "{}";
                }
                const Answer answer = row.call(given);
                const auto error = expected_error(row, faults);
                if (row.name == "dump_sync_json_ptr") {
                    EXPECT_EQ(answer.value.has_value(), !error.has_value());
                } else if (error) {
                    EXPECT_EQ(answer.error, *error) << told << " " << wrong;
                } else {
                    EXPECT_EQ(opened(answer), opened(row.call(as_empty))) << told << " " << wrong;
                }
            });
        }
    }
}

TEST(Exports, UnknownDocumentIsNotFound) {
    for (const Export& row : exports()) {
        Texts given = good_arguments(row);
        for (std::size_t at = 0; at < given.size(); ++at) {
            if (row.arguments[at].kind != Kind::id) continue;
            for (const char* id : {"nowhere", ""}) {
                given[at] = id;
                EXPECT_EQ(row.call(given).error, record(row.name, "document_not_found", id));
            }
        }
    }
}

TEST(Exports, CompressedTextsAreTakenAndAnswered) {
    for (const Export& row : exports()) {
        const Texts plain = good_arguments(row);
        const Answer expected = opened(row.call(plain));
        for (unsigned chosen = 0; chosen < (1U << plain.size()); ++chosen) {
            Texts given = plain;
            bool applies = true;
            for (std::size_t at = 0; at < given.size(); ++at) {
                if ((chosen >> at & 1U) == 0) continue;
                applies = applies && row.arguments[at].kind == Kind::sync_json;
                if (applies) given[at] = compressed(*given[at]);
            }
            if (!applies) continue;
            const Answer answer = row.call(given);
            const bool compresses = row.compression == Compression::always ||
                                    (row.compression == Compression::like_first && (chosen & 1U) != 0);
            EXPECT_EQ(is_compressed(answer.text()), compresses) << row.name << " " << chosen;
            EXPECT_EQ(opened(answer), expected) << row.name << " " << chosen;
        }
    }
}

TEST(Exports, OnlyTheBooleanTrueAsksForACompressedResult) {
    for (const Export& row : exports()) {
        for (std::size_t at = 0; at < row.arguments.size(); ++at) {
            if (row.arguments[at].kind != Kind::config) continue;
            Texts given = good_arguments(row);
            const Answer plain = row.call(given);
            for (const std::string asks : {"true", "false", "\"true\"", "1", "null", "[true]", "{}"}) {
                given[at] = R"({"compressed": )" + asks + "}";
                const Answer answer = row.call(given);
                EXPECT_EQ(is_compressed(answer.text()), row.compression == Compression::by_config && asks == "true")
                    << row.name << " " << asks;
                EXPECT_EQ(opened(answer), plain) << row.name << " " << asks;
            }
        }
    }
}

TEST(Exports, CompressedObjectsThatCannotBeOpened) {
    const std::string list = R"("eJyLNowFAAHTAOo=")";           // [1]
    const std::string malformed = R"("eJyrVkq0MgQABLwBag==")";  // {"a:1
    const std::string damaged = record("uncompress_object", "failed_to_uncompress_data");
    const auto error = [](const std::string& members) {
        return taken(sync_json_uncompress((R"({"compressed": true, )" + members + "}").c_str())).error;
    };
    EXPECT_EQ(error(R"("data": )" + list + R"(, "uncompressed_size": 1e300)"),
              record("uncompress_object", "failed_to_allocate_memory_for_uncompressed_data"));
    EXPECT_EQ(error(R"("data": )" + list + R"(, "uncompressed_size": 4)"), damaged);
    EXPECT_EQ(error(R"("data": 5, "uncompressed_size": 0)"), damaged);
    EXPECT_EQ(error(R"("uncompressed_size": 0)"), damaged);
    EXPECT_EQ(error(R"("data": "eJwDAAAAAAE=", "uncompressed_size": 0)"), "invalid string_view position");
    EXPECT_EQ(error(R"("data": )" + malformed + R"(, "uncompressed_size": 5)"), "unexpected end of input in string");
    EXPECT_EQ(error(R"("data": )" + list + R"(, "uncompressed_size": 3)"),
              record("uncompress_object", "uncompressed_data_is_not_an_object"));
    for (const char* ordinary : {R"({"compressed": "true", "data": "", "uncompressed_size": 0})",
                                 R"({"compressed": 1, "uncompressed_size": 0})", R"({"compressed": true, "data": ""})",
                                 R"({"compressed": true, "uncompressed_size": "0"})"}) {
        EXPECT_EQ(uncompressed(ordinary), ordinary);
    }
}

// Neither a plain text nor an error record can hold a NUL byte, and none is cut short there.
TEST(Exports, NulBytesAreRefusedOrEscaped) {
    const std::string set =
        R"({"d": {"a\u0000b": ["A_first", ["B\u0000c_A", "C_A"]], "ord-1": ["L_first"]}, "o": {"L": )"
        R"({"d": "D", "i": "me\u0000you", "s": []}}, "r": "a\u0000b"})";
    const std::string renamed = R"({"d": {"a": ["A_first", ["B\u0000c_A", "C\u0000d_A"]]}, "r": "a"})";
    const Handle handle = open(set).handle;
    const Handle with_plain_id = open(renamed).handle;
    const auto refused = [](std::string_view function) { return record(function, "text_contains_nul"); };
    EXPECT_EQ(taken(sync_json_root(set.c_str())).error, refused("sync_json_root"));
    EXPECT_EQ(taken(sync_json_ptr_root(handle.get())).error, refused("sync_json_ptr_root"));
    EXPECT_EQ(taken(sync_json_ptr_instances(handle.get())).error, refused("sync_json_ptr_instances"));
    EXPECT_EQ(taken(sync_json_unresolved(set.c_str())).error, refused("sync_json_unresolved"));
    EXPECT_EQ(taken(sync_json_created(set.c_str(), "{}")).error, refused("sync_json_created"));
    EXPECT_EQ(taken(sync_json_winning(renamed.c_str(), "a")).error, refused("sync_json_winning"));
    EXPECT_EQ(taken(sync_json_ptr_leafs(with_plain_id.get(), "a")).error, refused("sync_json_ptr_leafs"));
    EXPECT_EQ(taken(sync_json_all_docs(set.c_str())).text(), R"(["a\u0000b", "ord-1"])");
    EXPECT_EQ(taken(read_sync_json(renamed.c_str(), "{}")).error,
              record("operator ()", "missing_root_document_data", R"(2-B\u0000c_A)", "src/transformation/unflattener"));
}

// --- By value and by handle

using Options = std::vector<std::optional<std::string>>;

// What is worth giving for each kind of argument, where the first sync JSON is `set`.
std::map<Kind, Options> candidates(const std::string& set) {
    Options sets;
    for (const Sample& sample : samples()) sets.emplace_back(sample.sync_json);
    Options ids{"nowhere"};
    std::set<std::optional<std::string>> revisions{"1-none_first", "deleted", ""};
    for (const std::string& written : entries(taken(sync_json_all_docs(set.c_str())).text())) {
        const std::string id = unquoted(written);
        ids.emplace_back(id);
        for (const std::string& leaf : split_list(taken(sync_json_leafs(set.c_str(), id.c_str())).text())) {
            const std::string history = taken(sync_json_history(set.c_str(), id.c_str(), leaf.c_str())).text();
            for (const std::string& revision : entries(history)) revisions.insert(unquoted(revision));
        }
    }
    Options revisions_or_ids(ids);
    revisions_or_ids.insert(revisions_or_ids.end(), revisions.begin(), revisions.end());
    return {{Kind::sync_json, sets},
            {Kind::object, {"{}", R"({"list": [{"_id": "e3"}, {"_id": "e1", "n": 1}], "title": "b"})"}},
            {Kind::config, {"{}", R"({"instance_id": "left", "preserve_old_ordering": true, "discard_id": true})"}},
            {Kind::id, ids},
            {Kind::revision, {revisions.begin(), revisions.end()}},
            {Kind::revision_or_id, revisions_or_ids},
            {Kind::ids, {R"(["root", "e1", 1, "nowhere"])", R"("root")", "e1", "[]", ""}},
            {Kind::number, {"0", "1", "2", "4294967295"}},
            {Kind::flag, {"false", "true"}}};
}

TEST(Exports, HandleTwinsAnswerTheSame) {
    std::size_t pairs = 0;
    std::size_t answered = 0;
    for (const Sample& sample : samples()) {
        const auto worth = candidates(sample.sync_json);
        for (const Export& row : exports()) {
            const Export* const twin = twin_of(row);
            if (twin == nullptr) continue;
            ++pairs;
            std::vector<Options> options;
            for (const Argument& argument : row.arguments) options.push_back(worth.at(argument.kind));
            const auto is_set = [](const Argument& argument) { return argument.kind == Kind::sync_json; };
            const auto first = std::ranges::find_if(row.arguments, is_set) - row.arguments.begin();
            options[static_cast<std::size_t>(first)] = {sample.sync_json};
            for_each_choice(options, [&](const Texts& texts) {
                const Answer by_value = row.call(texts);
                EXPECT_EQ(by_value, call_in_the_name_of(row, *twin, texts)) << row.name << " " << sample.name;
                answered += by_value.value ? 1 : 0;
            });
        }
    }
    EXPECT_EQ(pairs, 24 * samples().size());
    EXPECT_GT(answered, 1000U);
}

TEST(Exports, AMemberOfAConfigurationCountsWhereItIsOfItsKind) {
    const char* data = R"({"a": [{"n": 1}, {"n": 2}], "o": {"x": 1}})";
    const auto outcome = [&](const std::string& config) {
        const Handle handle = open(rich_sample()).handle;
        const Answer read = taken(read_sync_json_ptr(handle.get(), config.c_str()));
        return std::vector{taken(json_object_flatten(data, config.c_str())), read, Answer{dump(handle), "", nullptr}};
    };
    const std::string flattened = *outcome("{}")[0].value;
    const std::string domain = flattened.substr(flattened.find("\"a\": \"A") + 7, 64);
    const std::vector<std::pair<std::string, std::string>> members{
        {"instance_id", "\"me\""},        {"id_generation_rules", "\"x;n\""},
        {"discard_id", "true"},           {"indexed_array_paths", "\"b," + domain + "\""},
        {"flatten_objects", "true"},      {"force_fast_hash_only", "true"},
        {"preserve_old_ordering", "true"}};
    for (const auto& [key, value] : members) {
        EXPECT_NE(outcome("{\"" + key + "\": " + value + "}"), outcome("{}")) << key;
        for (const std::string other : {"null", "true", "\"true\"", "1", "1.5", "[\"me\"]", "[true]", "{}"}) {
            if (other == value || (value[0] == '"' && other[0] == '"')) continue;
            EXPECT_EQ(outcome("{\"" + key + "\": " + other + "}"), outcome("{}")) << key << " " << other;
        }
    }
}

}  // namespace
}  // namespace c_api
