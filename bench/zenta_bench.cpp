#include <benchmark/benchmark.h>
#include <malloc.h>
#include <openssl/evp.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>
#include <sys/mman.h>
#include <unistd.h>
#include <zentadbpp.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "notebook.h"

namespace {

std::string take(sync_json_result result) {
    if (result.error != nullptr) throw std::runtime_error(result.error);
    std::string value = result.value;
    free_sync_json_result(&result);
    return value;
}

class Handle {
   public:
    explicit Handle(sync_json_ptr_result result) : handle_(result.ptr) {
        if (result.error != nullptr) throw std::runtime_error(result.error);
    }
    operator sync_json_ptr() const { return handle_.get(); }

   private:
    struct Close {
        void operator()(sync_json_ptr handle) const { free_sync_json_ptr(handle); }
    };
    std::unique_ptr<zentadbpp_document_storage, Close> handle_;
};

void require(bool holds, const char* what) {
    if (!holds) throw std::runtime_error(what);
}

constexpr const char* none = "{}";

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

// Everything that is measured at one size, made and checked once.
struct Data {
    std::string host;
    std::string edited;       // 1 % of the notes changed
    std::string sync;         // of host
    std::string sync_edited;  // updated with edited
    std::string diff;         // of the two
    std::string compressed;   // sync
    std::string bulk_get;     // sync, as a server would answer
    std::size_t documents;
    std::vector<std::string> hashed_names;     // what a first update hashes: the paths of arrays, the names of orders,
    std::vector<std::string> hashed_contents;  // and the content of every document

    explicit Data(std::size_t notes) : host(bench::notebook(notes)), edited(bench::notebook(notes, 1)) {
        sync = take(update_sync_json(host.c_str(), none, none));
        sync_edited = take(update_sync_json(edited.c_str(), sync.c_str(), none));
        require(take(update_sync_json(host.c_str(), sync.c_str(), none)) == sync,
                "an update with the same data changed it");
        const std::string discard = "{\"discard_id\": true}";
        const std::string read = take(read_sync_json(sync.c_str(), none));
        require(take(update_sync_json(read.c_str(), sync.c_str(), none)) == sync,
                "what was read is not what was stored");
        require(take(replicate_sync_json(sync_edited.c_str(), sync.c_str(), none)) == sync_edited,
                "replication lost edits");
        diff = take(sync_json_diff(sync.c_str(), sync_edited.c_str(), none));
        std::string patched = take(sync_json_patch(sync.c_str(), diff.c_str()));
        patched.back() = ',';  // a patch tells no root
        require(sync_edited.starts_with(patched), "a patch lost edits");
        compressed = take(sync_json_compress(sync.c_str()));
        require(take(sync_json_uncompress(compressed.c_str())) == sync, "compressing lost data");
        bulk_get = answer_of_server(take(sync_json_to_bulk_docs(sync.c_str())));
        require(take(sync_json_from_bulk_get(bulk_get.c_str(), none)) == sync, "exchange lost data");

        find_hashed(notes);
    }

   private:
    // Each name in the sync JSON is the hash of one of these texts.
    void find_hashed(std::size_t notes) {
        hashed_names.emplace_back("root->notes-");
        const std::string root = "root->notes-a(" + sha256(hashed_names.front()) + ")->o(note-";
        for (std::size_t i = 0; i < notes; ++i) hashed_names.push_back(root + std::to_string(i) + ")->tasks-");
        const std::size_t arrays = hashed_names.size();
        std::unordered_map<std::string, std::string> domains;  // by the ids of their ordering documents
        for (std::size_t i = 0; i < arrays; ++i) {
            std::string name = "default-ordering-" + sha256(hashed_names[i]);
            const std::string id = "ord-" + sha256(name);
            domains.emplace(id, std::move(name));
        }

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
        for (auto member : parsed["d"].get_object()) {
            const std::string id(std::string_view(member.unescaped_key()));
            const std::string_view revision = member.value().at(0).get_string();
            hashed_contents.push_back(contents.at(std::string(revision.substr(0, revision.find('_')))));
            if (id.starts_with("ord-")) hashed_names.push_back(domains.at(id));
        }
        documents = hashed_contents.size();
    }
};

const Data& data(const benchmark::State& state) {
    static std::map<std::int64_t, Data> made;
    return made.try_emplace(state.range(0), static_cast<std::size_t>(state.range(0))).first->second;
}

void count(benchmark::State& state, std::size_t bytes, std::size_t documents) {
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * static_cast<std::int64_t>(state.iterations()));
    state.counters["docs"] = static_cast<double>(documents);
}

// --- Yardsticks

void rapidjson_parse(benchmark::State& state, const std::string& text) {
    for (auto _ : state) {
        rapidjson::Document document;
        document.Parse(text.c_str());
        benchmark::DoNotOptimize(document);
    }
    count(state, text.size(), 0);
}

void rapidjson_write(benchmark::State& state, const std::string& text, bool parse_too) {
    rapidjson::Document document;
    document.Parse(text.c_str());
    for (auto _ : state) {
        if (parse_too) {
            rapidjson::Document again;
            again.Parse(text.c_str());
            document = std::move(again);
        }
        rapidjson::StringBuffer out;
        rapidjson::Writer<rapidjson::StringBuffer> writer(out);
        document.Accept(writer);
        benchmark::DoNotOptimize(out.GetString());
    }
    count(state, text.size(), 0);
}

void yard_rapidjson_parse_host(benchmark::State& state) { rapidjson_parse(state, data(state).host); }
void yard_rapidjson_parse_sync(benchmark::State& state) { rapidjson_parse(state, data(state).sync); }
void yard_rapidjson_write_host(benchmark::State& state) { rapidjson_write(state, data(state).host, false); }
void yard_rapidjson_parse_write_sync(benchmark::State& state) { rapidjson_write(state, data(state).sync, true); }

void yard_simdjson_parse_sync(benchmark::State& state) {
    const simdjson::padded_string text(data(state).sync);
    simdjson::dom::parser parser;
    for (auto _ : state) benchmark::DoNotOptimize(parser.parse(text).error());
    count(state, text.size(), 0);
}

void yard_sha256(benchmark::State& state, const std::vector<std::string>& texts) {
    std::size_t bytes = 0;
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    EVP_MD* sha256 = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    unsigned char digest[EVP_MAX_MD_SIZE];
    for (auto _ : state) {
        bytes = 0;
        for (const std::string& text : texts) {
            EVP_DigestInit_ex2(context, sha256, nullptr);
            EVP_DigestUpdate(context, text.data(), text.size());
            EVP_DigestFinal_ex(context, digest, nullptr);
            benchmark::DoNotOptimize(digest);
            bytes += text.size();
        }
    }
    EVP_MD_free(sha256);
    EVP_MD_CTX_free(context);
    count(state, bytes, 0);
}

void yard_sha256_names(benchmark::State& state) { yard_sha256(state, data(state).hashed_names); }
void yard_sha256_contents(benchmark::State& state) { yard_sha256(state, data(state).hashed_contents); }

void yard_zlib_sync(benchmark::State& state) {
    const std::string& text = data(state).sync;
    std::vector<Bytef> out(compressBound(text.size()));
    for (auto _ : state) {
        uLongf size = out.size();
        require(compress(out.data(), &size, reinterpret_cast<const Bytef*>(text.data()), text.size()) == Z_OK, "zlib");
        state.counters["bytes"] = static_cast<double>(size);
    }
    count(state, text.size(), 0);
}

void yard_memcpy_sync(benchmark::State& state) {
    const std::string& text = data(state).sync;
    std::vector<char> copy(text.size());
    for (auto _ : state) {
        std::memcpy(copy.data(), text.data(), text.size());
        benchmark::ClobberMemory();
    }
    count(state, text.size(), 0);
}

// --- The library

void sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);
}

void release(sync_json_result result) { free_sync_json_result(&result); }
void release(sync_json_ptr_result result) { free_sync_json_ptr_result_all(&result); }
void release(char* text) { std::free(text); }

// Times `call(data)`, which works on texts.
template <class Call>
void by_text(const char* name, Call call) {
    benchmark::RegisterBenchmark(name, [call](benchmark::State& state) {
        const Data& d = data(state);
        for (auto _ : state) release(call(d));
        count(state, d.sync.size(), d.documents);
    })->Apply(sizes);
}

// Times `call(data, handle, edited)`, with handles of the data as it was and as it was edited.
template <class Call>
void by_handle(const char* name, Call call) {
    benchmark::RegisterBenchmark(name, [call](benchmark::State& state) {
        const Data& d = data(state);
        Handle handle(new_sync_json_ptr(d.sync.c_str()));
        Handle edited(new_sync_json_ptr(d.sync_edited.c_str()));
        release(call(d, sync_json_ptr{handle}, sync_json_ptr{edited}));  // makes what a handle keeps for the next time
        for (auto _ : state) release(call(d, sync_json_ptr{handle}, sync_json_ptr{edited}));
        count(state, d.sync.size(), d.documents);
    })->Apply(sizes);
}

// Times the first read of the handle that `make(data, handle, edited)` returns.
template <class Make>
void first_read(const char* name, Make make) {
    benchmark::RegisterBenchmark(name, [make](benchmark::State& state) {
        const Data& d = data(state);
        Handle handle(new_sync_json_ptr(d.sync.c_str()));
        Handle edited(new_sync_json_ptr(d.sync_edited.c_str()));
        release(read_sync_json_ptr(handle, none));
        for (auto _ : state) {
            state.PauseTiming();
            {
                Handle fresh(make(d, sync_json_ptr{handle}, sync_json_ptr{edited}));
                state.ResumeTiming();
                sync_json_result read = read_sync_json_ptr(fresh, none);
                state.PauseTiming();
                release(read);
            }
            state.ResumeTiming();
        }
        count(state, d.sync.size(), d.documents);
    })->Apply(sizes);
}

// Times a question about one document.
template <class Query>
void of_a_document(const char* name, Query query) {
    benchmark::RegisterBenchmark(name, [query](benchmark::State& state) {
        const Data& d = data(state);
        Handle handle(new_sync_json_ptr(d.sync_edited.c_str()));
        std::vector<std::pair<std::string, std::string>> asked;  // ids and revisions
        for (std::int64_t i = 0; i < state.range(0); i += 7) {
            const std::string id = "note-" + std::to_string(i);
            asked.emplace_back(id, take(sync_json_ptr_winning(handle, id.c_str())));
        }
        std::size_t next = 0;
        for (auto _ : state) {
            const auto& [id, revision] = asked[next++ % asked.size()];
            release(query(sync_json_ptr{handle}, id.c_str(), revision.c_str()));
        }
    })->Apply(sizes);
}

void register_operations() {
    using Ptr = sync_json_ptr;
    by_text("open_handle", [](const Data& d) { return new_sync_json_ptr(d.sync.c_str()); });
    by_text("open_dump", [](const Data& d) {
        Handle handle(new_sync_json_ptr(d.sync.c_str()));
        return dump_sync_json_ptr(handle);
    });
    by_handle("dump", [](const Data&, Ptr h, Ptr) { return dump_sync_json_ptr(h); });

    by_text("first_update", [](const Data& d) { return update_sync_json(d.host.c_str(), none, none); });
    by_text("update_1_percent", [](const Data& d) { return update_sync_json(d.edited.c_str(), d.sync.c_str(), none); });
    by_handle("update_unchanged_handle",
              [](const Data& d, Ptr h, Ptr) { return update_sync_json_ptr(d.host.c_str(), h, none); });
    by_handle("update_1_percent_handle",
              [](const Data& d, Ptr h, Ptr) { return update_sync_json_ptr(d.edited.c_str(), h, none); });
    by_text("read_text", [](const Data& d) { return read_sync_json(d.sync.c_str(), none); });
    by_handle("read_handle", [](const Data&, Ptr h, Ptr) { return read_sync_json_ptr(h, none); });
    first_read("first_read_opened", [](const Data& d, Ptr, Ptr) { return new_sync_json_ptr(d.sync.c_str()); });
    first_read("first_read_merged", [](const Data&, Ptr h, Ptr e) { return replicate_sync_json_ptr(e, h, none); });
    by_text("replicate_text",
            [](const Data& d) { return replicate_sync_json(d.sync_edited.c_str(), d.sync.c_str(), none); });
    by_handle("replicate_handle", [](const Data&, Ptr h, Ptr e) { return replicate_sync_json_ptr(e, h, none); });

    of_a_document("winning_handle", [](Ptr h, const char* id, const char*) { return sync_json_ptr_winning(h, id); });
    of_a_document("conflicting_handle",
                  [](Ptr h, const char* id, const char*) { return sync_json_ptr_conflicting(h, id); });
    of_a_document("leafs_handle", [](Ptr h, const char* id, const char*) { return sync_json_ptr_leafs(h, id); });
    of_a_document("ancestor_handle", sync_json_ptr_ancestor);
    of_a_document("siblings_handle", sync_json_ptr_siblings);
    of_a_document("history_handle", sync_json_ptr_history);
    of_a_document("data_handle", [](Ptr h, const char* id, const char* revision) {
        return sync_json_ptr_data(h, id, revision, none);
    });
    of_a_document("available_handle",
                  [](Ptr h, const char* id, const char*) { return sync_json_ptr_available(h, id); });
    by_text("winning_text", [](const Data& d) { return sync_json_winning(d.sync.c_str(), "note-0"); });

    by_handle("all_docs_handle", [](const Data&, Ptr h, Ptr) { return sync_json_ptr_all_docs(h); });
    by_handle("instances_handle", [](const Data&, Ptr h, Ptr) { return sync_json_ptr_instances(h); });
    by_handle("unresolved_handle", [](const Data&, Ptr h, Ptr) { return sync_json_ptr_unresolved(h); });
    by_handle("created_handle", [](const Data&, Ptr h, Ptr e) { return sync_json_ptr_created(e, h); });
    by_handle("updated_handle", [](const Data&, Ptr h, Ptr e) { return sync_json_ptr_updated(e, h); });
    by_handle("deleted_handle", [](const Data&, Ptr h, Ptr e) { return sync_json_ptr_deleted(e, h); });
    by_text("updated_text", [](const Data& d) { return sync_json_updated(d.sync_edited.c_str(), d.sync.c_str()); });
    by_handle("all_winning_handle", [](const Data&, Ptr, Ptr e) { return sync_json_ptr_all_winning(e); });
    by_text("all_winning_text", [](const Data& d) { return sync_json_all_winning(d.sync_edited.c_str()); });
    by_handle("prune_handle", [](const Data&, Ptr, Ptr e) { return sync_json_ptr_prune(e, 1, true); });
    by_text("prune_text", [](const Data& d) { return sync_json_prune(d.sync_edited.c_str(), 1, true); });
    by_handle("prune_ids_handle",
              [](const Data&, Ptr, Ptr e) { return sync_json_ptr_prune_ids(e, R"(["note-0"])", 1, true); });

    by_text("diff", [](const Data& d) { return sync_json_diff(d.sync.c_str(), d.sync_edited.c_str(), none); });
    by_text("patch", [](const Data& d) { return sync_json_patch(d.sync.c_str(), d.diff.c_str()); });
    by_text("compress", [](const Data& d) { return sync_json_compress(d.sync.c_str()); });
    by_text("uncompress", [](const Data& d) { return sync_json_uncompress(d.compressed.c_str()); });
    by_handle("to_bulk_docs_handle", [](const Data&, Ptr h, Ptr) { return sync_json_ptr_to_bulk_docs(h); });
    by_text("from_bulk_get_handle",
            [](const Data& d) { return sync_json_ptr_from_bulk_get(d.bulk_get.c_str(), none); });
}

void resolve_handle(benchmark::State& state) {
    const Data& d = data(state);
    // Two copies edit one note apart, so that there is something to settle.
    const std::string mine = take(update_sync_json(d.edited.c_str(), d.sync.c_str(), none));
    std::string other_host = d.host;
    const std::string old_title = "\"title\":\"Note 0 ";
    other_host.replace(other_host.find(old_title), old_title.size(), "\"title\":\"Another ");
    const std::string theirs = take(update_sync_json(other_host.c_str(), d.sync.c_str(), none));
    Handle handle(new_sync_json_ptr(take(replicate_sync_json(mine.c_str(), theirs.c_str(), none)).c_str()));
    const std::string loser = take(sync_json_ptr_conflicting(handle, "note-0"));
    require(!loser.empty(), "nothing to resolve");
    for (auto _ : state) Handle resolved(sync_json_ptr_resolve(handle, "note-0", loser.c_str()));
}

// The resident memory of this process in bytes: now ("VmRSS:"), or at most since it was last set back ("VmHWM:").
double resident(const char* of) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line) && !line.starts_with(of)) {
    }
    return line.empty() ? 0.0 : 1024 * std::stod(line.substr(std::strlen(of)));
}

// Bytes per byte of text that a handle keeps.
void memory_of_handle(benchmark::State& state) {
    const Data& d = data(state);
    double kept = 0;
    for (auto _ : state) {
        malloc_trim(0);
        const double before = resident("VmRSS:");
        Handle handle(new_sync_json_ptr(d.sync.c_str()));
        malloc_trim(0);
        kept = resident("VmRSS:") - before;
    }
    state.counters["per_byte"] = kept / static_cast<double>(d.sync.size());
}

// Bytes that an update by text has beyond what there was before, per byte of its three texts.
void peak_of_update(benchmark::State& state) {
    const Data& d = data(state);
    double peak = 0;
    for (auto _ : state) {
        malloc_trim(0);
        std::ofstream("/proc/self/clear_refs") << 5;  // the peak counts from here
        const double before = resident("VmRSS:");
        const std::string result = take(update_sync_json(d.edited.c_str(), d.sync.c_str(), none));
        const auto texts = static_cast<double>(d.edited.size() + d.sync.size() + result.size());
        peak = (resident("VmHWM:") - before) / texts;
    }
    state.counters["per_byte"] = peak;
}

// --- Stores with a past

// Host data and configuration of one update after the other.
using Past = std::vector<std::pair<std::string, std::string>>;

std::map<std::string, Past> pasts() {
    std::map<std::string, Past> made{
        {"2000_notes", {{bench::notebook(2000), none}}},
        {"1000_notes", {{bench::notebook(1000), none}}},
        {"16000_deleted", {{bench::notebook(17000), none}, {bench::notebook(1000), none}}}};
    for (int i = 0; i < 32; ++i) {
        made["32_instances"].emplace_back(bench::notebook(2000), "{\"instance_id\": \"" + std::to_string(i) + "\"}");
    }
    for (unsigned edit = 1; edit <= 20; ++edit) made["20_edits"].emplace_back(bench::notebook(1000, 100, edit), none);
    return made;
}

struct Store {
    std::string sync;
    std::string host;
    std::string configuration;

    explicit Store(const Past& past) : host(past.back().first), configuration(past.back().second) {
        Handle handle(new_sync_json_ptr(none));
        for (const auto& [data, with] : past) handle = Handle(update_sync_json_ptr(data.c_str(), handle, with.c_str()));
        char* text = dump_sync_json_ptr(handle);
        sync = text;
        release(text);
    }
};

const Store& store(const std::string& name) {
    static std::map<std::string, Store> made;
    if (const auto found = made.find(name); found != made.end()) return found->second;
    return made.try_emplace(name, pasts().at(name)).first->second;
}

void register_pasts() {
    for (const char* name : {"1000_notes", "20_edits", "16000_deleted", "2000_notes", "32_instances"}) {
        const std::string after = std::string("_after/") + name;
        benchmark::RegisterBenchmark(("update_unchanged" + after).c_str(), [name](benchmark::State& state) {
            const Store& s = store(name);
            Handle handle(new_sync_json_ptr(s.sync.c_str()));
            const auto update = [&] { return update_sync_json_ptr(s.host.c_str(), handle, s.configuration.c_str()); };
            release(update());
            for (auto _ : state) release(update());
        })->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(("read_text" + after).c_str(), [name](benchmark::State& state) {
            const Store& s = store(name);
            for (auto _ : state) release(read_sync_json(s.sync.c_str(), s.configuration.c_str()));
        })->Unit(benchmark::kMicrosecond);
    }
}

// --- A process that has done nothing yet

// Opens the text of the standard input, reads it and updates it with what was read. Prints what that took, in seconds.
void run_cold() {
    const std::string sync{std::istreambuf_iterator<char>(std::cin), {}};
    const std::clock_t begin = std::clock();
    {
        Handle handle(new_sync_json_ptr(sync.c_str()));
        const std::string host = take(read_sync_json_ptr(handle, none));
        release(update_sync_json_ptr(host.c_str(), handle, none));
    }
    std::cout << static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC << "\n";
}

void cold_process(benchmark::State& state) {
    const std::filesystem::path input = std::filesystem::temp_directory_path() / ("bench-" + std::to_string(getpid()));
    std::ofstream(input) << data(state).sync;
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    for (auto _ : state) {
        FILE* child = popen((self + " --cold <" + input.string()).c_str(), "r");
        double seconds = 0;
        require(child != nullptr && std::fscanf(child, "%lf", &seconds) == 1, "no process");
        pclose(child);
        state.SetIterationTime(seconds);
    }
    std::filesystem::remove(input);
}

// --- Special shapes

void shape(benchmark::State& state, const std::string& sync) {
    const std::string host = take(read_sync_json(sync.c_str(), "{\"discard_id\": true}"));
    for (auto _ : state) {
        sync_json_result updated = update_sync_json("{\"a\": 2}", sync.c_str(), none);
        sync_json_result merged = replicate_sync_json(updated.value, sync.c_str(), none);
        sync_json_result winning = sync_json_winning(merged.value, "root");
        require(winning.error == nullptr, "no winner");
        free_sync_json_result(&winning);
        free_sync_json_result(&merged);
        free_sync_json_result(&updated);
    }
    count(state, sync.size(), 1);
}

std::size_t size_of(const benchmark::State& state) { return static_cast<std::size_t>(state.range(0)); }

void chain_of_revisions(benchmark::State& state) { shape(state, bench::chain(size_of(state))); }

void fan_of_branches(benchmark::State& state) {
    const std::string sync = bench::fan(size_of(state));
    const std::string other = bench::fan(size_of(state) + 1);
    for (auto _ : state) {
        sync_json_result merged = replicate_sync_json(other.c_str(), sync.c_str(), none);
        sync_json_result conflicting = sync_json_conflicting(merged.value, "root");
        require(conflicting.error == nullptr, "no conflicts");
        free_sync_json_result(&conflicting);
        free_sync_json_result(&merged);
    }
    count(state, sync.size(), 1);
}

void host_round_trip(benchmark::State& state, const std::string& host) {
    for (auto _ : state) {
        sync_json_result updated = update_sync_json(host.c_str(), none, none);
        sync_json_result read = read_sync_json(updated.value, none);
        require(read.error == nullptr, "not read");
        free_sync_json_result(&read);
        free_sync_json_result(&updated);
    }
    count(state, host.size(), size_of(state));
}

void tiny_documents(benchmark::State& state) { host_round_trip(state, bench::tiny_objects(size_of(state))); }
void array_of_elements(benchmark::State& state) { host_round_trip(state, bench::tiny_elements(size_of(state))); }
void decimal_numbers(benchmark::State& state) { host_round_trip(state, bench::decimals(size_of(state))); }
void one_large_document(benchmark::State& state) { host_round_trip(state, bench::one_document(size_of(state))); }

void doubled(benchmark::internal::Benchmark* benchmark, std::int64_t size) {
    benchmark->Arg(size / 2)->Arg(size)->Unit(benchmark::kMicrosecond);
}

BENCHMARK(yard_rapidjson_parse_host)->Apply(sizes);
BENCHMARK(yard_rapidjson_parse_sync)->Apply(sizes);
BENCHMARK(yard_rapidjson_write_host)->Apply(sizes);
BENCHMARK(yard_rapidjson_parse_write_sync)->Apply(sizes);
BENCHMARK(yard_simdjson_parse_sync)->Apply(sizes);
BENCHMARK(yard_sha256_names)->Apply(sizes);
BENCHMARK(yard_sha256_contents)->Apply(sizes);
BENCHMARK(yard_zlib_sync)->Apply(sizes);
BENCHMARK(yard_memcpy_sync)->Apply(sizes);
BENCHMARK(cold_process)->Arg(1)->Apply(sizes)->Iterations(3)->UseManualTime();
BENCHMARK(resolve_handle)->Apply(sizes);
BENCHMARK(memory_of_handle)->Apply(sizes)->Iterations(1);
BENCHMARK(peak_of_update)->Apply(sizes)->Iterations(1);
BENCHMARK(chain_of_revisions)->Apply([](auto* b) { doubled(b, 100000); });
BENCHMARK(fan_of_branches)->Apply([](auto* b) { doubled(b, 10000); });
BENCHMARK(array_of_elements)->Apply([](auto* b) { doubled(b, 100000); });
BENCHMARK(tiny_documents)->Apply([](auto* b) { doubled(b, 100000); });
BENCHMARK(one_large_document)->Apply([](auto* b) { doubled(b, 20000); });

// Virtual machines get most of their memory at the first touch, which costs many times what it costs later and would be
// paid by whatever runs first.
void touch_memory() {
    constexpr std::size_t enough = std::size_t{3} << 30;
    void* memory = mmap(nullptr, enough, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (memory != MAP_FAILED) munmap(memory, enough);
}

}  // namespace

int main(int argc, char** argv) {
    const std::span arguments(argv, static_cast<std::size_t>(argc));
    if (argc == 2 && arguments[1] == std::string_view("--cold")) return run_cold(), 0;
    if (argc == 3 && arguments[1] == std::string_view("--notebook")) {  // N: prints the host data
        std::cout << bench::notebook(std::stoul(arguments[2])) << "\n";
        return 0;
    }
    touch_memory();
    register_operations();
    register_pasts();
    const char* decimals = std::getenv("USE_FAST_FLOAT") == nullptr ? "decimal_numbers" : "decimal_numbers_fast_float";
    benchmark::RegisterBenchmark(decimals, decimal_numbers)->Apply([](auto* b) { doubled(b, 20000); });
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
}
