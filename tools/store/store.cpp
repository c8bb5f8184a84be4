#include "store/store.h"

#include <nlohmann/json.hpp>

#include "cli/activity.h"
#include "cli/explain.h"
#include "cli/failure.h"
#include "store/json_text.h"

namespace zentadb {

namespace {

// A compressed object has few members, so "compressed" is near its beginning. This saves parsing large stores.
bool is_compressed(const std::string& text) {
    constexpr std::size_t far = 4096;
    if (text.substr(0, far).find("compressed") == std::string::npos) return false;
    const auto json = nlohmann::json::parse(text, nullptr, false);
    if (!json.is_object()) return text.starts_with("@d10:compressed@T");
    const auto flag = json.find("compressed");
    const auto size = json.find("uncompressed_size");
    return flag != json.end() && *flag == true && size != json.end() && size->is_number();
}

// The library takes any object as a sync JSON and ignores unknown members. Other data must not be replaced by an empty
// set.
void refuse_other_data(const std::string& path, const Store& store, const std::string& text) {
    if (store.compressed || !(store.handle.all_docs() == "[]")) return;
    const auto json = nlohmann::json::parse(text, nullptr, false);
    if (json.is_discarded() && text.starts_with('@')) return;
    if (json.is_object() && json.size() == json.count("d") + json.count("o")) return;
    throw Failure(ExitCode::input, path + ": JSON, but not a sync JSON",
                  "To store it as data: zentadb update STORE " + path);
}

Store store_of(const std::string& path, const std::string& text) {
    const std::string name = input_name(path);
    if (text.empty()) {
        throw Failure(ExitCode::damaged, name + ": the file is empty",
                      "A store is never empty. Remove the file to start a new one, or restore a copy.");
    }
    Activity::current().doing("opening " + name);
    try {
        Store store{path, zentadbpp::Handle(text), is_compressed(text)};
        refuse_other_data(name, store, text);
        return store;
    } catch (const zentadbpp::Error& error) {
        const std::optional<std::string> problem =
            error.is_record() || text.starts_with('@') ? std::nullopt : json_problem(path, text);
        throw Failure(ExitCode::damaged, problem ? *problem : name + ": " + explained(error).what(),
                      "zentadb verify " + path + " shows what is damaged.");
    }
}

}  // namespace

Store open_store(const std::string& path) {
    std::string text = read_file(path);
    Store store = store_of(path, text);
    store.text = std::move(text);
    return store;
}

StoreChange::StoreChange(const std::string& path, const std::string& output, Missing missing)
    : output_(output.empty() ? path : output) {
    const bool in_place = path != "-" && output_ != "-" && is_same_file(output_, path);
    if (in_place) lock_.emplace(path);
    if (missing == Missing::is_empty && path != "-" && !file_exists(path)) {
        store_ = Store{path, zentadbpp::Handle("{}"), false};
    } else {
        text_ = read_file(path);
        store_ = store_of(path, text_);
        if (!in_place) text_.clear();
    }
    compressed_ = store_.compressed;
}

void StoreChange::commit(const zentadbpp::Handle& changed) {
    zentadbpp::Value text = changed.dump();
    if (compressed_) text = zentadbpp::compress(text);
    if (text == text_) return;
    if (lock_) {
        replace_file(output_, text);
    } else {
        write_output(output_, text);
    }
}

}  // namespace zentadb
