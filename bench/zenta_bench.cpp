#include <benchmark/benchmark.h>
#include <malloc.h>
#include <openssl/evp.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>
#include <zentadbpp.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
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
    ~Handle() { free_sync_json_ptr(handle_); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    operator sync_json_ptr() const { return handle_; }

   private:
    sync_json_ptr handle_;
};

void require(bool holds, const char* what) {
    if (!holds) throw std::runtime_error(what);
}

constexpr const char* none = "{}";

// Everything that is measured at one size, made and checked once.
struct Data {
    std::string host;
    std::string edited;       // 1 % of the notes changed
    std::string sync;         // of host
    std::string sync_edited;  // updated with edited
    std::size_t documents;
    std::vector<std::string> contents;  // about what is hashed: every stored text

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
        rapidjson::Document parsed;
        parsed.Parse(sync.c_str());
        documents = parsed["d"].MemberCount();
        for (const auto& member : parsed["o"].GetObject()) {
            rapidjson::StringBuffer text;
            rapidjson::Writer<rapidjson::StringBuffer> writer(text);
            member.value.Accept(writer);
            contents.emplace_back(text.GetString(), text.GetSize());
        }
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

void yard_sha256_documents(benchmark::State& state) {
    std::size_t bytes = 0;
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    EVP_MD* sha256 = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    unsigned char digest[EVP_MAX_MD_SIZE];
    for (auto _ : state) {
        bytes = 0;
        for (const std::string& content : data(state).contents) {
            EVP_DigestInit_ex2(context, sha256, nullptr);
            EVP_DigestUpdate(context, content.data(), content.size());
            EVP_DigestFinal_ex(context, digest, nullptr);
            benchmark::DoNotOptimize(digest);
            bytes += content.size();
        }
    }
    EVP_MD_free(sha256);
    EVP_MD_CTX_free(context);
    count(state, bytes, 0);
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

void open_handle(benchmark::State& state) {
    const Data& d = data(state);
    for (auto _ : state) Handle handle(new_sync_json_ptr(d.sync.c_str()));
    count(state, d.sync.size(), d.documents);
}

void open_dump(benchmark::State& state) {
    const Data& d = data(state);
    for (auto _ : state) {
        Handle handle(new_sync_json_ptr(d.sync.c_str()));
        std::free(dump_sync_json_ptr(handle));
    }
    count(state, d.sync.size(), d.documents);
}

void first_update(benchmark::State& state) {
    const Data& d = data(state);
    for (auto _ : state) {
        sync_json_result result = update_sync_json(d.host.c_str(), none, none);
        free_sync_json_result(&result);
    }
    count(state, d.host.size(), d.documents);
}

void update_unchanged_handle(benchmark::State& state) {
    const Data& d = data(state);
    Handle handle(new_sync_json_ptr(d.sync.c_str()));
    for (auto _ : state) Handle updated(update_sync_json_ptr(d.host.c_str(), handle, none));
    count(state, d.host.size(), d.documents);
}

void update_1_percent(benchmark::State& state) {
    const Data& d = data(state);
    for (auto _ : state) {
        sync_json_result result = update_sync_json(d.edited.c_str(), d.sync.c_str(), none);
        free_sync_json_result(&result);
    }
    count(state, d.host.size() + d.sync.size(), d.documents);
}

void read_handle(benchmark::State& state) {
    const Data& d = data(state);
    Handle handle(new_sync_json_ptr(d.sync.c_str()));
    for (auto _ : state) {
        sync_json_result result = read_sync_json_ptr(handle, none);
        free_sync_json_result(&result);
    }
    count(state, d.host.size(), d.documents);
}

void read_text(benchmark::State& state) {
    const Data& d = data(state);
    for (auto _ : state) {
        sync_json_result result = read_sync_json(d.sync.c_str(), none);
        free_sync_json_result(&result);
    }
    count(state, d.sync.size(), d.documents);
}

void replicate_handle(benchmark::State& state) {
    const Data& d = data(state);
    Handle source(new_sync_json_ptr(d.sync_edited.c_str()));
    Handle target(new_sync_json_ptr(d.sync.c_str()));
    for (auto _ : state) Handle merged(replicate_sync_json_ptr(source, target, none));
    count(state, d.sync.size(), d.documents);
}

void replicate_text(benchmark::State& state) {
    const Data& d = data(state);
    for (auto _ : state) {
        sync_json_result result = replicate_sync_json(d.sync_edited.c_str(), d.sync.c_str(), none);
        free_sync_json_result(&result);
    }
    count(state, d.sync.size() + d.sync_edited.size(), d.documents);
}

template <sync_json_result (*query)(sync_json_ptr, const char*)>
void query_handle(benchmark::State& state) {
    const Data& d = data(state);
    Handle handle(new_sync_json_ptr(d.sync.c_str()));
    std::vector<std::string> ids;
    for (std::int64_t i = 0; i < state.range(0); i += 7) ids.push_back("note-" + std::to_string(i));
    std::size_t next = 0;
    for (auto _ : state) {
        sync_json_result result = query(handle, ids[next++ % ids.size()].c_str());
        free_sync_json_result(&result);
    }
}

void resolve_handle(benchmark::State& state) {
    const Data& d = data(state);
    // Two copies edit one note apart, so that there is something to settle.
    const std::string mine = take(update_sync_json(d.edited.c_str(), d.sync.c_str(), none));
    std::string other_host = d.host;
    const std::string old_title = "\"title\":\"Note 0\"";
    other_host.replace(other_host.find(old_title), old_title.size(), "\"title\":\"Another\"");
    const std::string theirs = take(update_sync_json(other_host.c_str(), d.sync.c_str(), none));
    Handle handle(new_sync_json_ptr(take(replicate_sync_json(mine.c_str(), theirs.c_str(), none)).c_str()));
    const std::string loser = take(sync_json_ptr_conflicting(handle, "note-0"));
    require(!loser.empty(), "nothing to resolve");
    for (auto _ : state) Handle resolved(sync_json_ptr_resolve(handle, "note-0", loser.c_str()));
}

// Bytes per byte of text that a handle keeps.
void memory_of_handle(benchmark::State& state) {
    const Data& d = data(state);
    double kept = 0;
    for (auto _ : state) {
        const auto before = mallinfo2();
        Handle handle(new_sync_json_ptr(d.sync.c_str()));
        const auto after = mallinfo2();
        kept = static_cast<double>((after.uordblks + after.hblkhd) - (before.uordblks + before.hblkhd));
    }
    state.counters["per_byte"] = kept / static_cast<double>(d.sync.size());
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

void array_of_elements(benchmark::State& state) { host_round_trip(state, bench::tiny_elements(size_of(state))); }
void decimal_numbers(benchmark::State& state) { host_round_trip(state, bench::decimals(size_of(state))); }
void one_large_document(benchmark::State& state) { host_round_trip(state, bench::one_document(size_of(state))); }

void sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);
}
void doubled(benchmark::internal::Benchmark* benchmark, std::int64_t size) {
    benchmark->Arg(size / 2)->Arg(size)->Unit(benchmark::kMicrosecond);
}

BENCHMARK(yard_rapidjson_parse_host)->Apply(sizes);
BENCHMARK(yard_rapidjson_parse_sync)->Apply(sizes);
BENCHMARK(yard_rapidjson_write_host)->Apply(sizes);
BENCHMARK(yard_rapidjson_parse_write_sync)->Apply(sizes);
BENCHMARK(yard_simdjson_parse_sync)->Apply(sizes);
BENCHMARK(yard_sha256_documents)->Apply(sizes);
BENCHMARK(yard_memcpy_sync)->Apply(sizes);
BENCHMARK(open_handle)->Apply(sizes);
BENCHMARK(open_dump)->Apply(sizes);
BENCHMARK(first_update)->Apply(sizes);
BENCHMARK(update_unchanged_handle)->Apply(sizes);
BENCHMARK(update_1_percent)->Apply(sizes);
BENCHMARK(read_handle)->Apply(sizes);
BENCHMARK(read_text)->Apply(sizes);
BENCHMARK(replicate_handle)->Apply(sizes);
BENCHMARK(replicate_text)->Apply(sizes);
BENCHMARK(query_handle<sync_json_ptr_winning>)->Name("winning_handle")->Apply(sizes);
BENCHMARK(query_handle<sync_json_ptr_conflicting>)->Name("conflicting_handle")->Apply(sizes);
BENCHMARK(resolve_handle)->Apply(sizes);
BENCHMARK(memory_of_handle)->Apply(sizes)->Iterations(1);
BENCHMARK(chain_of_revisions)->Apply([](auto* b) { doubled(b, 100000); });
BENCHMARK(fan_of_branches)->Apply([](auto* b) { doubled(b, 10000); });
BENCHMARK(array_of_elements)->Apply([](auto* b) { doubled(b, 100000); });
BENCHMARK(decimal_numbers)->Apply([](auto* b) { doubled(b, 20000); });
BENCHMARK(one_large_document)->Apply([](auto* b) { doubled(b, 20000); });

}  // namespace
