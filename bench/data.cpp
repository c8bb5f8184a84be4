#include "data.h"

#include <openssl/evp.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>
#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_START_INSTRUMENTATION
#define CALLGRIND_STOP_INSTRUMENTATION
#endif

#include <cstdlib>
#include <map>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "notebook.h"

namespace bench {

std::string take(sync_json_result result) {
    if (result.error != nullptr) throw std::runtime_error(result.error);
    std::string value = result.value;
    free_sync_json_result(&result);
    return value;
}

std::string dumped(sync_json_ptr handle) {
    char* const text = dump_sync_json_ptr(handle);
    require(text != nullptr, "not dumped");
    std::string value = text;
    std::free(text);
    return value;
}

void require(bool holds, const char* what) {
    if (!holds) throw std::runtime_error(what);
}

Counted::Counted() { CALLGRIND_START_INSTRUMENTATION; }
Counted::~Counted() { CALLGRIND_STOP_INSTRUMENTATION; }

namespace {

std::string written(const rapidjson::Value& value) {
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    value.Accept(writer);
    return {text.GetString(), text.GetSize()};
}

std::string answer_of_server(const std::string& bulk_docs) {
    rapidjson::Document body;
    body.Parse<rapidjson::kParseFullPrecisionFlag>(bulk_docs.c_str());
    std::string text = "{\"results\":[";
    for (const auto& document : body["docs"].GetArray()) {
        if (text.back() == '}') text += ",";
        text += "{\"docs\":[{\"ok\":" + written(document) + "}]}";
    }
    return text + "]}";
}

std::string sha256(std::string_view text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    require(EVP_Digest(text.data(), text.size(), digest, nullptr, EVP_sha256(), nullptr) == 1, "not hashed");
    std::string hex;
    for (int i = 0; i < 32; ++i) {
        for (const int half : {digest[i] >> 4, digest[i] & 15}) hex += "0123456789abcdef"[half];
    }
    return hex;
}

}  // namespace

Data::Data(std::size_t notes) : host(bench::notebook(notes)), edited(bench::notebook(notes, 1)) {
    sync = take(update_sync_json(host.c_str(), none, none));
    sync_edited = take(update_sync_json(edited.c_str(), sync.c_str(), none));
    require(take(update_sync_json(host.c_str(), sync.c_str(), none)) == sync,
            "an update with the same data changed it");
    const std::string read = take(read_sync_json(sync.c_str(), none));
    require(take(update_sync_json(read.c_str(), sync.c_str(), none)) == sync, "what was read is not what was stored");
    require(take(replicate_sync_json(sync_edited.c_str(), sync.c_str(), none)) == sync_edited,
            "replication lost edits");
    diff = take(sync_json_diff(sync.c_str(), sync_edited.c_str(), none));
    std::string patched = take(sync_json_patch(sync.c_str(), diff.c_str()));
    patched.back() = ',';  // a patch does not contain the root
    require(sync_edited.starts_with(patched), "a patch lost edits");
    compressed = take(sync_json_compress(sync.c_str()));
    require(take(sync_json_uncompress(compressed.c_str())) == sync, "compressing lost data");
    bulk_get = answer_of_server(take(sync_json_to_bulk_docs(sync.c_str())));
    require(take(sync_json_from_bulk_get(bulk_get.c_str(), none)) == sync, "exchange lost data");
    check_handles(read);
    find_hashed();
}

// What handles return is what texts do, also at the second time.
void Data::check_handles(const std::string& read) const {
    const Handle handle(new_sync_json_ptr(sync.c_str()));
    const Handle with_edits(new_sync_json_ptr(sync_edited.c_str()));
    for (int i = 0; i < 2; ++i) {
        require(take(read_sync_json_ptr(handle, none)) == read, "a read of a handle differs");
        require(dumped(Handle(update_sync_json_ptr(host.c_str(), handle, none))) == sync, "an update changed a handle");
        const Handle updated(update_sync_json_ptr(edited.c_str(), handle, none));
        require(dumped(updated) == sync_edited, "an update of a handle lost edits");
        const Handle merged(replicate_sync_json_ptr(with_edits, handle, none));
        require(dumped(merged) == sync_edited, "a merge of handles lost edits");
        require(take(read_sync_json_ptr(merged, none)) == take(read_sync_json(sync_edited.c_str(), none)),
                "a read after a merge differs");
    }
}

// Each name in the sync JSON is the hash of one of these texts. An array without elements is hashed too.
void Data::find_hashed() {
    std::unordered_map<std::string, std::string> orders;  // the names of orders by the ids of their documents
    const auto add_array = [&](const std::string& path) {
        hashed_names.push_back(path);
        std::string hash = sha256(path);
        std::string name = "default-ordering-" + hash;
        orders.emplace("ord-" + sha256(name), std::move(name));
        return hash;
    };
    const std::string note = "root->notes-a(" + add_array("root->notes-") + ")->o(";

    simdjson::ondemand::parser parser;
    const simdjson::padded_string text(sync);
    std::unordered_map<std::string, std::string> contents;
    simdjson::ondemand::document parsed = parser.iterate(text);
    for (auto member : parsed["o"].get_object()) {
        const std::string_view hash = member.unescaped_key();
        const std::string_view content = member.value().get_object().value().raw_json();
        require(sha256(content) == hash, "a content is not what was hashed");
        contents.emplace(hash, content);
    }
    parsed = parser.iterate(text);
    for (auto member : parsed["d"].get_object()) {  // notes come before orders
        const std::string id(std::string_view(member.unescaped_key()));
        const std::string_view revision = member.value().at(0).get_string();
        const std::string& content = contents.at(std::string(revision.substr(0, revision.find('_'))));
        hashed_contents.push_back(content);
        if (id.starts_with("ord-")) hashed_names.push_back(orders.at(id));
        if (!id.starts_with("note-")) continue;
        for (const std::string array : {"tags", "tasks"}) {
            const std::string reference = "\"" + array + "\": \"A";
            const std::size_t at = content.find(reference);
            if (at == std::string::npos) continue;  // tags, which are no documents
            const std::string hash = add_array(note + id + ")->" + array + "-");
            require(content.compare(at + reference.size(), hash.size(), hash) == 0, "a path is not what was hashed");
        }
    }
    documents = hashed_contents.size();
}

const Data& data(const benchmark::State& state) {
    static std::map<std::int64_t, Data> made;
    return made.try_emplace(state.range(0), static_cast<std::size_t>(state.range(0))).first->second;
}

void sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);
}

void count(benchmark::State& state, std::size_t bytes, std::size_t documents) {
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * static_cast<std::int64_t>(state.iterations()));
    state.counters["docs"] = static_cast<double>(documents);
}

}  // namespace bench
