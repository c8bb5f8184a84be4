#include "c_api/export_table.h"

#include <algorithm>
#include <array>
#include <map>
#include <tuple>
#include <type_traits>
#include <utility>

#include "c_api/samples.h"

namespace c_api {

namespace {

// A text, and what the C function takes in its place.
struct Given {
    std::optional<std::string> text;
    Answer opened{};

    template <class Parameter>
    Parameter as() {
        if constexpr (std::is_same_v<Parameter, sync_json_ptr>) {
            if (text) opened = open(*text);
            EXPECT_EQ(opened.error, "");
            return opened.handle.get();
        } else if constexpr (std::is_same_v<Parameter, const char*>) {
            return text ? text->c_str() : nullptr;
        } else if constexpr (std::is_same_v<Parameter, bool>) {
            return *text == "true";
        } else {
            return static_cast<Parameter>(std::stoul(*text));
        }
    }
};

enum class Handles : bool { stay_unchanged, may_be_written };

template <class Record>
bool gives_nothing(const Record& record) {
    if constexpr (requires { record.ptr; }) return record.ptr == nullptr && record.error == nullptr;
    if constexpr (requires { record.value; }) return record.value == nullptr && record.error == nullptr;
    return false;
}

template <class Record>
Answer take(const Record& record, Both both) {
    if constexpr (requires { taken(record, both); }) return taken(record, both);
    return taken(record);
}

template <class Record, class... Parameters, std::size_t... at>
Answer call_with(Record (*function)(Parameters...), const Texts& texts, Handles handles, const Around& around,
                 Both both, std::index_sequence<at...> /*positions*/) {
    EXPECT_EQ(texts.size(), sizeof...(Parameters));
    std::array<Given, sizeof...(at)> given{Given{texts.at(at)}...};
    const std::tuple<Parameters...> arguments{given[at].template as<Parameters>()...};
    around.begin();
    const Record record = std::apply(function, arguments);
    around.end();
    Answer answer = around.may_give_nothing && gives_nothing(record) ? Answer{} : take(record, both);
    for (Given& argument : given) {
        if ((handles == Handles::stay_unchanged || !answer.value) && argument.opened.handle) {
            EXPECT_EQ(dump(argument.opened.handle), argument.opened.value);
        }
        argument.opened.handle.reset();
    }
    if (answer.handle) {
        EXPECT_EQ(dump(answer.handle), answer.value);
    }
    return answer;
}

template <class Record, class... Parameters>
Caller calls(Record (*function)(Parameters...), Handles handles = Handles::stay_unchanged, Both both = Both::refused) {
    return {[=](const Texts& texts, const Around& around) {
        return call_with(function, texts, handles, around, both, std::index_sequence_for<Parameters...>());
    }};
}

template <class Function>
Caller imports(Function function) {
    return calls(function, Handles::stay_unchanged, Both::allowed);
}

const Argument sync{Kind::sync_json};
const Argument whole{Kind::object};
const Argument read_sync{Kind::sync_json, Check::record, "synchronizable_json_is_not_an_object"};
const Argument from{Kind::sync_json, Check::record, "source_synchronizable_json_is_not_an_object",
                    "null_source_syncjson"};
const Argument to{Kind::sync_json, Check::record, "target_synchronizable_json_is_not_an_object",
                  "null_target_syncjson"};
const Argument ptr{Kind::handle, Check::record, "invalid_sync_json_ptr"};
const Argument old_ptr{Kind::handle, Check::record, "invalid_old_sync_json_ptr"};
const Argument from_ptr{Kind::handle, Check::record, "invalid_source_sync_json_ptr"};
const Argument to_ptr{Kind::handle, Check::record, "invalid_target_sync_json_ptr"};
const Argument input{Kind::object, Check::record, "input_is_not_an_object"};
const Argument config{Kind::config, Check::record, "config_is_not_an_object"};
const Argument id{Kind::id};
const Argument rev{Kind::revision};
const Argument rev_or_id{Kind::revision_or_id};
const Argument ids{Kind::ids};
const Argument depth{Kind::number};
const Argument flag{Kind::flag};
const Argument flatten_input{Kind::object, Check::bare_key, "expecting_object_as_input_to_flatten"};
const Argument unflatten_input{Kind::array, Check::bare_key, "expecting_array_as_input_to_unflatten"};
const Argument flatten_config{Kind::config, Check::bare_key, "expecting_object_as_configuration_to_flatten"};
const Argument root_id{Kind::optional_text};

constexpr auto reported = Inflation::reported;
constexpr auto passed_over = Inflation::passed_over;
constexpr auto closed = Inflation::not_opened;
constexpr auto never = Compression::never;
constexpr auto like_first = Compression::like_first;
constexpr auto by_config = Compression::by_config;
constexpr auto set = Gives::sync_json;
constexpr auto plain = Gives::text;
constexpr auto writes = Handles::may_be_written;

std::vector<Export> make_exports() {
    return {
        {"sync_json_root", calls(sync_json_root), {sync}, passed_over},
        {"sync_json_ptr_root", calls(sync_json_ptr_root), {ptr}},
        {"sync_json_winning", calls(sync_json_winning), {sync, id}, reported},
        {"sync_json_ptr_winning", calls(sync_json_ptr_winning), {ptr, id}},
        {"sync_json_leafs", calls(sync_json_leafs), {sync, id}, reported},
        {"sync_json_ptr_leafs", calls(sync_json_ptr_leafs), {ptr, id}},
        {"sync_json_conflicting", calls(sync_json_conflicting), {sync, id}, passed_over},
        {"sync_json_ptr_conflicting", calls(sync_json_ptr_conflicting), {ptr, id}},
        {"sync_json_available", calls(sync_json_available), {sync, rev_or_id}, reported},
        {"sync_json_ptr_available", calls(sync_json_ptr_available), {ptr, rev_or_id}},
        {"sync_json_ancestor", calls(sync_json_ancestor), {sync, id, rev}, reported},
        {"sync_json_ptr_ancestor", calls(sync_json_ptr_ancestor), {ptr, id, rev}},
        {"sync_json_siblings", calls(sync_json_siblings), {sync, id, rev}, reported},
        {"sync_json_ptr_siblings", calls(sync_json_ptr_siblings), {ptr, id, rev}},
        {"sync_json_history", calls(sync_json_history), {sync, id, rev}, passed_over},
        {"sync_json_ptr_history", calls(sync_json_ptr_history), {ptr, id, rev}},
        {"sync_json_resolve", calls(sync_json_resolve), {sync, id, rev}, passed_over, never, set},
        {"sync_json_ptr_resolve", calls(sync_json_ptr_resolve), {ptr, id, rev}, closed, never, set},
        {"sync_json_instances", calls(sync_json_instances), {sync}, passed_over},
        {"sync_json_ptr_instances", calls(sync_json_ptr_instances), {ptr}},
        {"sync_json_unresolved", calls(sync_json_unresolved), {sync}, passed_over},
        {"sync_json_ptr_unresolved", calls(sync_json_ptr_unresolved), {ptr}},
        {"sync_json_all_docs", calls(sync_json_all_docs), {sync}, passed_over},
        {"sync_json_ptr_all_docs", calls(sync_json_ptr_all_docs), {ptr}},
        {"sync_json_all_winning", calls(sync_json_all_winning), {sync}, passed_over, never, set},
        {"sync_json_ptr_all_winning", calls(sync_json_ptr_all_winning), {ptr}, closed, never, set},
        {"sync_json_created", calls(sync_json_created), {sync, sync}, passed_over},
        {"sync_json_ptr_created", calls(sync_json_ptr_created), {ptr, old_ptr}},
        {"sync_json_updated", calls(sync_json_updated), {sync, sync}, passed_over},
        {"sync_json_ptr_updated", calls(sync_json_ptr_updated), {ptr, old_ptr}},
        {"sync_json_deleted", calls(sync_json_deleted), {sync, sync}, passed_over},
        {"sync_json_ptr_deleted", calls(sync_json_ptr_deleted), {ptr, old_ptr}},
        {"sync_json_data", calls(sync_json_data), {sync, id, rev, config}, reported},
        {"sync_json_ptr_data", calls(sync_json_ptr_data), {ptr, id, rev, config}},
        {"sync_json_prune", calls(sync_json_prune), {sync, depth, flag}, passed_over, like_first, set},
        {"sync_json_ptr_prune", calls(sync_json_ptr_prune), {ptr, depth, flag}, closed, never, set},
        {"sync_json_prune_ids", calls(sync_json_prune_ids), {sync, ids, depth, flag}, passed_over, like_first, set},
        {"sync_json_ptr_prune_ids", calls(sync_json_ptr_prune_ids), {ptr, ids, depth, flag}, closed, never, set},
        {"sync_json_to_bulk_docs", calls(sync_json_to_bulk_docs), {sync}, passed_over, like_first},
        {"sync_json_ptr_to_bulk_docs", calls(sync_json_ptr_to_bulk_docs), {ptr}},
        {"sync_json_from_bulk_get", imports(sync_json_from_bulk_get), {sync, config}, reported, by_config, set},
        {"sync_json_ptr_from_bulk_get", imports(sync_json_ptr_from_bulk_get), {sync, config}, reported, never, set},
        {"read_sync_json", calls(read_sync_json), {read_sync, config}, reported, never, plain, {1, 0}},
        {"read_sync_json_ptr", calls(read_sync_json_ptr, writes), {ptr, config}, closed, never, plain, {1, 0}},
        {"update_sync_json", calls(update_sync_json), {input, read_sync, config}, reported, by_config, set, {0, 2, 1}},
        {"update_sync_json_ptr", calls(update_sync_json_ptr), {input, ptr, config}, closed, never, set, {0, 2, 1}},
        {"replicate_sync_json", calls(replicate_sync_json), {from, to, config}, reported, by_config, set, {2, 0, 1}},
        {"replicate_sync_json_ptr",
         calls(replicate_sync_json_ptr),
         {from_ptr, to_ptr, config},
         closed,
         never,
         set,
         {2, 0, 1}},
        {"json_object_flatten", calls(json_object_flatten), {flatten_input, flatten_config}},
        {"json_array_unflatten", calls(json_array_unflatten), {unflatten_input, flatten_config, root_id}},
        {"sync_json_diff", calls(sync_json_diff), {sync, sync, config}, reported, by_config, plain, {2, 0, 1}},
        {"sync_json_patch", calls(sync_json_patch), {sync, sync}, reported, like_first},
        {"sync_json_compress", calls(sync_json_compress), {whole}, closed, Compression::always},
        {"sync_json_uncompress", calls(sync_json_uncompress), {sync}, reported, never, set},
        {"new_sync_json_ptr", calls(new_sync_json_ptr), {sync}, Inflation::bare_key, never, set},
        {"dump_sync_json_ptr", calls(dump_sync_json_ptr), {ptr}, closed, never, set},
    };
}

}  // namespace

const std::vector<Export>& exports() {
    static const std::vector<Export> table = [] {
        std::vector<Export> made = make_exports();
        for (Export& row : made) {
            for (std::size_t at = row.order.size(); at < row.arguments.size(); ++at) row.order.push_back(at);
        }
        return made;
    }();
    return table;
}

const Export& export_named(std::string_view name) {
    const auto row = std::ranges::find(exports(), name, &Export::name);
    EXPECT_NE(row, exports().end()) << name;
    return *row;
}

const Export* twin_of(const Export& row) {
    constexpr std::string_view prefix = "sync_json_";
    const std::string name = row.name.starts_with(prefix)
                                 ? "sync_json_ptr_" + std::string(row.name.substr(prefix.size()))
                                 : std::string(row.name) + "_ptr";
    const auto twin = std::ranges::find(exports(), name, &Export::name);
    return twin == exports().end() ? nullptr : &*twin;
}

Answer call_in_the_name_of(const Export& row, const Export& twin, const Texts& texts) {
    Answer answer = twin.call(texts);
    const std::string own_name = '"' + std::string(twin.name) + '"';
    if (const auto at = answer.error.find(own_name); at != std::string::npos) {
        answer.error.replace(at, own_name.size(), '"' + std::string(row.name) + '"');
    }
    return answer;
}

Answer opened(Answer answer) {
    if (answer.value && is_compressed(*answer.value)) answer.value = uncompressed(*answer.value);
    return answer;
}

Texts good_arguments(const Export& row) {
    static const std::map<Kind, std::string> good{
        {Kind::sync_json, rich_sample()},
        {Kind::handle, rich_sample()},
        {Kind::object, R"({"title": "new", "list": [{"_id": "e1", "n": 1}]})"},
        {Kind::array, R"([{"_id": "root", "a": "!text"}])"},
        {Kind::config, "{}"},
        {Kind::id, "root"},
        {Kind::revision, taken(sync_json_winning(rich_sample().c_str(), "root")).text()},
        {Kind::revision_or_id, "root"},
        {Kind::ids, "root"},
        {Kind::number, "1"},
        {Kind::flag, "false"},
        {Kind::optional_text, ""},
    };
    Texts texts;
    for (const Argument& argument : row.arguments) texts.emplace_back(good.at(argument.kind));
    if (row.name.find("from_bulk_get") != std::string_view::npos) {
        texts[0] = R"({"results": [{"docs": [{"ok": {"_id": "root", "_revisions": {"start": 1, "ids": ["A"]}}}]}]})";
    }
    if (row.name == "sync_json_patch") texts[1] = R"({"d": [{"op": "remove", "key": "e1"}], "o": []})";
    return texts;
}

}  // namespace c_api
