// vectors <file>...: makes the calls of the vectors through zentadbpp.hpp and checks what they give.

#include <deque>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <zentadbpp_verify.hpp>

namespace {

namespace z = zentadbpp;
using nlohmann::json;

// What a call gave.
struct Outcome {
    std::string text;
    std::optional<json> list;
    std::optional<z::Handle> handle;

    explicit Outcome(std::string_view given) : text(given) {}
    explicit Outcome(bool truth) : text(truth ? "true" : "false") {}
    explicit Outcome(const z::Value& value) : text(value) {}
    explicit Outcome(const z::List& ids) : text(ids.text()), list(json::array()) {
        for (const std::string_view id : ids) list->push_back(id);
    }
    explicit Outcome(z::Handle made) : text(made.dump()), handle(std::move(made)) {}
};

class Run {
   public:
    explicit Run(const std::string& file) {
        const json content = json::parse(std::ifstream(file));
        for (const auto& [name, value] : content.at("given").items()) texts_[name] = value.dump();
        int number = 0;
        for (const json& vector : content.at("vectors")) {
            ++number;
            for (const json& call : vector.at("call")) {
                call_ = call.get<std::string>();
                args_ = &vector.at("args");
                ++made;
                const std::string complaint = check(vector);
                if (complaint.empty()) continue;
                ++failures;
                std::cerr << file << ' ' << number << ": " << call_ << ": " << complaint << '\n';
            }
        }
    }

    static inline int made = 0;
    static inline int failures = 0;

    // Arguments, by their place.
    z::Text text(std::size_t at) {
        const json& value = args_->at(at);
        const bool is_set = value.is_object() && value.contains("set");
        if (value.is_null() || (is_set && value.at("set").is_null())) return nullptr;
        given_.push_back(value.is_string() ? value.get<std::string>()
                         : is_set          ? texts_.at(value.at("set"))
                                           : value.at("json").dump());
        if (at % 2 == 0) return given_.back();
        return std::string_view(given_.back());
    }
    z::Handle& handle(std::size_t at) {
        const json& set = args_->at(at).at("set");
        if (set.is_null()) return opened_.emplace_back();
        const std::string name = set;
        if (const auto saved = handles_.find(name); saved != handles_.end()) return saved->second;
        return opened_.emplace_back(z::Handle(texts_.at(name)));
    }
    template <typename T>
    [[nodiscard]] T plain(std::size_t at) const {
        return args_->at(at).get<T>();
    }

   private:
    std::string check(const json& vector);
    [[nodiscard]] std::string check_error(const json& expected, const z::Error& error) const;

    std::map<std::string, std::string> texts_;
    std::map<std::string, z::Handle> handles_;
    std::string call_;
    const json* args_ = nullptr;
    std::deque<std::string> given_;
    std::deque<z::Handle> opened_;
};

const std::map<std::string_view, std::function<Outcome(Run&)>> calls = {
    {"dump_sync_json_ptr", [](Run& a) { return Outcome(a.handle(0).dump()); }},
    {"free_sync_json_ptr", [](Run& a) { return Outcome(std::string_view((a.handle(0) = {}) ? "still there" : "")); }},
    {"json_array_unflatten", [](Run& a) { return Outcome(z::unflatten(a.text(0), a.text(1), a.text(2))); }},
    {"json_object_flatten", [](Run& a) { return Outcome(z::flatten(a.text(0), a.text(1))); }},
    {"new_sync_json_ptr", [](Run& a) { return Outcome(z::Handle(a.text(0))); }},
    {"read_sync_json", [](Run& a) { return Outcome(z::read(a.text(0), a.text(1))); }},
    {"read_sync_json_ptr", [](Run& a) { return Outcome(a.handle(0).read(a.text(1))); }},
    {"replicate_sync_json", [](Run& a) { return Outcome(z::replicate(a.text(0), a.text(1), a.text(2))); }},
    {"replicate_sync_json_ptr", [](Run& a) { return Outcome(z::replicate(a.handle(0), a.handle(1), a.text(2))); }},
    {"sync_json_all_docs", [](Run& a) { return Outcome(z::all_docs(a.text(0))); }},
    {"sync_json_all_winning", [](Run& a) { return Outcome(z::all_winning(a.text(0))); }},
    {"sync_json_ancestor", [](Run& a) { return Outcome(z::ancestor(a.text(0), a.text(1), a.text(2))); }},
    {"sync_json_available", [](Run& a) { return Outcome(z::available(a.text(0), a.text(1))); }},
    {"sync_json_compress", [](Run& a) { return Outcome(z::compress(a.text(0))); }},
    {"sync_json_conflicting", [](Run& a) { return Outcome(z::conflicting(a.text(0), a.text(1))); }},
    {"sync_json_created", [](Run& a) { return Outcome(z::created(a.text(0), a.text(1))); }},
    {"sync_json_data", [](Run& a) { return Outcome(z::data(a.text(0), a.text(1), a.text(2), a.text(3))); }},
    {"sync_json_deleted", [](Run& a) { return Outcome(z::deleted(a.text(0), a.text(1))); }},
    {"sync_json_diff", [](Run& a) { return Outcome(z::diff(a.text(0), a.text(1), a.text(2))); }},
    {"sync_json_from_bulk_get", [](Run& a) { return Outcome(z::from_bulk_get(a.text(0), a.text(1))); }},
    {"sync_json_history", [](Run& a) { return Outcome(z::history(a.text(0), a.text(1), a.text(2))); }},
    {"sync_json_instances", [](Run& a) { return Outcome(z::instances(a.text(0))); }},
    {"sync_json_leafs", [](Run& a) { return Outcome(z::leafs(a.text(0), a.text(1))); }},
    {"sync_json_lib_version", [](Run&) { return Outcome(std::string_view(z::version())); }},
    {"sync_json_patch", [](Run& a) { return Outcome(z::patch(a.text(0), a.text(1))); }},
    {"sync_json_prune",
     [](Run& a) { return Outcome(z::prune(a.text(0), a.plain<std::uint32_t>(1), a.plain<bool>(2))); }},
    {"sync_json_prune_ids",
     [](Run& a) { return Outcome(z::prune_ids(a.text(0), a.text(1), a.plain<std::uint32_t>(2), a.plain<bool>(3))); }},
    {"sync_json_ptr_all_docs", [](Run& a) { return Outcome(a.handle(0).all_docs()); }},
    {"sync_json_ptr_all_winning", [](Run& a) { return Outcome(a.handle(0).all_winning()); }},
    {"sync_json_ptr_ancestor", [](Run& a) { return Outcome(a.handle(0).ancestor(a.text(1), a.text(2))); }},
    {"sync_json_ptr_available", [](Run& a) { return Outcome(a.handle(0).available(a.text(1))); }},
    {"sync_json_ptr_conflicting", [](Run& a) { return Outcome(a.handle(0).conflicting(a.text(1))); }},
    {"sync_json_ptr_created", [](Run& a) { return Outcome(a.handle(0).created(a.handle(1))); }},
    {"sync_json_ptr_data", [](Run& a) { return Outcome(a.handle(0).data(a.text(1), a.text(2), a.text(3))); }},
    {"sync_json_ptr_deleted", [](Run& a) { return Outcome(a.handle(0).deleted(a.handle(1))); }},
    {"sync_json_ptr_from_bulk_get", [](Run& a) { return Outcome(z::Handle::from_bulk_get(a.text(0), a.text(1))); }},
    {"sync_json_ptr_history", [](Run& a) { return Outcome(a.handle(0).history(a.text(1), a.text(2))); }},
    {"sync_json_ptr_instances", [](Run& a) { return Outcome(a.handle(0).instances()); }},
    {"sync_json_ptr_leafs", [](Run& a) { return Outcome(a.handle(0).leafs(a.text(1))); }},
    {"sync_json_ptr_prune",
     [](Run& a) { return Outcome(a.handle(0).prune(a.plain<std::uint32_t>(1), a.plain<bool>(2))); }},
    {"sync_json_ptr_prune_ids",
     [](Run& a) { return Outcome(a.handle(0).prune_ids(a.text(1), a.plain<std::uint32_t>(2), a.plain<bool>(3))); }},
    {"sync_json_ptr_resolve", [](Run& a) { return Outcome(a.handle(0).resolve(a.text(1), a.text(2))); }},
    {"sync_json_ptr_root", [](Run& a) { return Outcome(a.handle(0).root()); }},
    {"sync_json_ptr_siblings", [](Run& a) { return Outcome(a.handle(0).siblings(a.text(1), a.text(2))); }},
    {"sync_json_ptr_to_bulk_docs", [](Run& a) { return Outcome(a.handle(0).to_bulk_docs()); }},
    {"sync_json_ptr_unresolved", [](Run& a) { return Outcome(a.handle(0).unresolved()); }},
    {"sync_json_ptr_updated", [](Run& a) { return Outcome(a.handle(0).updated(a.handle(1))); }},
    {"sync_json_ptr_winning", [](Run& a) { return Outcome(a.handle(0).winning(a.text(1))); }},
    {"sync_json_resolve", [](Run& a) { return Outcome(z::resolve(a.text(0), a.text(1), a.text(2))); }},
    {"sync_json_root", [](Run& a) { return Outcome(z::root(a.text(0))); }},
    {"sync_json_siblings", [](Run& a) { return Outcome(z::siblings(a.text(0), a.text(1), a.text(2))); }},
    {"sync_json_to_bulk_docs", [](Run& a) { return Outcome(z::to_bulk_docs(a.text(0))); }},
    {"sync_json_uncompress", [](Run& a) { return Outcome(z::uncompress(a.text(0))); }},
    {"sync_json_unresolved", [](Run& a) { return Outcome(z::unresolved(a.text(0))); }},
    {"sync_json_updated", [](Run& a) { return Outcome(z::updated(a.text(0), a.text(1))); }},
    {"sync_json_winning", [](Run& a) { return Outcome(z::winning(a.text(0), a.text(1))); }},
    {"update_sync_json", [](Run& a) { return Outcome(z::update(a.text(0), a.text(1), a.text(2))); }},
    {"update_sync_json_ptr", [](Run& a) { return Outcome(a.handle(1).update(a.text(0), a.text(2))); }},
};

std::string Run::check(const json& vector) try {
    Outcome outcome = calls.at(call_)(*this);
    const bool matches = vector.contains("error")  ? false
                         : vector.contains("list") ? outcome.list == vector.at("list")
                         : vector.contains("json") ? json::parse(outcome.text) == vector.at("json")
                         : vector.contains("text") ? outcome.text == vector.at("text")
                                                   : true;
    std::string complaint = matches ? "" : "gives " + outcome.text;
    if (vector.contains("save") && call_ == vector.at("call").front()) {
        if (outcome.handle) handles_[vector.at("save")] = *std::move(outcome.handle);
        texts_[vector.at("save")] = outcome.text;
    }
    return complaint;
} catch (const z::Error& error) {
    if (vector.contains("error") && check_error(vector.at("error"), error).empty()) return "";
    return error.what();
}

std::string Run::check_error(const json& expected, const z::Error& error) const {
    if (expected.is_null()) return "";
    if (expected.is_string()) return !error.is_record() && error.key() == expected ? "" : "another error";
    const std::string function = expected.at("function") == "*" ? call_ : expected.at("function").get<std::string>();
    const bool matches = error.is_record() && error.function() == function && error.key() == expected.at("error") &&
                         error.has_args() == expected.contains("args") && error.args() == expected.value("args", "") &&
                         error.line() > 0 && error.filename().starts_with("src/");
    return matches ? "" : "another record";
}

// What the vectors do not cover.
int check_wrapper() {
    int failures = 0;
    const auto expect = [&](bool holds, const char* what) {
        if (!holds) std::cerr << "not so: " << what << '\n';
        failures += holds ? 0 : 1;
    };
    const auto error_of = [](auto call) {
        try {
            call();
        } catch (const z::Error& error) {
            const z::Error copy = error;  // NOLINT(performance-unnecessary-copy-initialization)
            return std::string(copy.key()) + "|" + std::string(copy.args());
        }
        return std::string("none");
    };
    const std::string with_nul("{}\0", 3);
    expect(error_of([&] { z::read(with_nul); }) == "text_contains_nul|", "NUL in a string");
    expect(error_of([&] { z::read(std::string_view(with_nul)); }) == "text_contains_nul|", "NUL in a view");
    expect(error_of([&] { z::read(std::string_view(with_nul).substr(0, 2)); }) == "none", "a view ends where it ends");

    // Short texts would move along with a std::string, and those in a list must not.
    z::List list = z::leafs(R"({"d": {"a": ["A_first", ["B_A", "C_A"]]}, "r": "a"})", "a");
    const z::List moved = std::move(list);
    expect(moved.size() == 2 && moved[0] == "2-B_A" && moved[1] == "2-C_A", "a list that was moved");

    z::Handle handle(R"({})");
    z::Handle other = std::move(handle);
    expect(!handle && other, "a handle that was moved");  // NOLINT(bugprone-use-after-move)
    expect(error_of([&] { handle.root(); }) == "invalid_sync_json_ptr|", "a call of nothing");  // NOLINT
    other = z::Handle(sync_json_ptr_result{z::Handle("{}").release(), nullptr, nullptr});
    expect(other.dump() == "{}", "a handle in a record");
    const z::Record<sync_json_query_result> nothing({nullptr, nullptr});
    z::Record<sync_json_ptr_result> record(new_sync_json_ptr("{}"));
    record = z::Record<sync_json_ptr_result>(new_sync_json_ptr("x"));
    expect(record->ptr == nullptr && record->error != nullptr, "a record that was assigned to");
    for (const char* text :
         {"", "{ \"filename\" : \"", R"({ "filename" : "f", "line": 1, "function" : "g", "error" : "k)",
          R"({ "filename" : "f", "line": 1, "function" : "g", "error" : "k", "args" : "x)"}) {
        expect(z::Error(text).key() == text && !z::Error(text).is_record(), "a text that is no record");
    }
    const std::string settings =
        R"({"instance_id": "a", "x\"y": {"inner": "discard"}, "discard_ids": ["a", {"b": 1}], "": ":"})";
    expect(z::unknown_settings(settings) == std::vector<std::string>{"x\\\"y", "discard_ids", ""}, "unknown settings");
    expect(z::unknown_settings("{\"a\\").empty() && z::unknown_settings("}]x").empty(), "what is no object");
    for (const json& each : json::parse(std::ifstream(VERIFY_CASES))) {
        const std::string known = each.value("known", "{}");
        expect(z::verify(each["sync_json"].get<std::string>(), known) == each["found"],
               each["case"].get_ref<const std::string&>().c_str());
    }
    return failures;
}

}  // namespace

int main(int count, char** arguments) {
    for (int at = 1; at < count; ++at) Run file(arguments[at]);
    const int failures = Run::failures + check_wrapper();
    std::cout << Run::made << " calls checked, " << failures << " failures\n";
    return failures == 0 && Run::made > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
