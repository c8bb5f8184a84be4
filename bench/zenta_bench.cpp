#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>
#include <zentadbpp.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "data.h"
#include "notebook.h"

using namespace bench;

namespace {

// --- The library

// Frees a result. What failed would be measured as quick.
void release(sync_json_result result) {
    require(result.error == nullptr, "a call failed");
    free_sync_json_result(&result);
}
void release(sync_json_ptr_result result) {
    require(result.error == nullptr, "a call failed");
    free_sync_json_ptr_result_all(&result);
}
void release(char* text) {
    require(text != nullptr, "a call failed");
    std::free(text);
}

// Times `call(data)`, which works on texts.
template <class Call>
void by_text(const char* name, Call call) {
    benchmark::RegisterBenchmark(name, [call](benchmark::State& state) {
        const Data& d = data(state);
        for (auto _ : state) {
            const Counted counted;
            release(call(d));
        }
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
        // These make what a handle keeps for the next time, an update at its second one.
        for (int i = 0; i < 2; ++i) release(call(d, sync_json_ptr{handle}, sync_json_ptr{edited}));
        for (auto _ : state) {
            const Counted counted;
            release(call(d, sync_json_ptr{handle}, sync_json_ptr{edited}));
        }
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
                {
                    const Counted counted;
                    release(read_sync_json_ptr(fresh, none));
                }
                state.PauseTiming();
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
    first_read("first_read_updated",
               [](const Data& d, Ptr h, Ptr) { return update_sync_json_ptr(d.edited.c_str(), h, none); });
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
    // Two copies edit one note independently, so that there is a conflict to resolve.
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
    std::map<std::string, Past> made{{"2000_notes", {{notebook(2000), none}}},
                                     {"1000_notes", {{notebook(1000), none}}},
                                     {"16000_deleted", {{notebook(17000), none}, {notebook(1000), none}}}};
    for (int i = 0; i < 32; ++i) {
        made["32_instances"].emplace_back(notebook(2000), "{\"instance_id\": \"" + std::to_string(i) + "\"}");
    }
    for (unsigned edit = 1; edit <= 20; ++edit) made["20_edits"].emplace_back(notebook(1000, 100, edit), none);
    return made;
}

struct Store {
    std::string sync;
    std::string host;
    std::string configuration;

    explicit Store(const Past& past) : host(past.back().first), configuration(past.back().second) {
        Handle handle(new_sync_json_ptr(none));
        for (const auto& [data, with] : past) handle = Handle(update_sync_json_ptr(data.c_str(), handle, with.c_str()));
        sync = dumped(handle);
        const auto& [data, with] = past.back();
        for (int i = 0; i < 3; ++i) {
            const Handle updated(update_sync_json_ptr(data.c_str(), handle, with.c_str()));
            require(dumped(updated) == sync, "an update with the same data changed a store with a past");
        }
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
            for (int i = 0; i < 2; ++i) release(update());  // what is updated twice remembers
            for (auto _ : state) release(update());
        })->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(("update_text" + after).c_str(), [name](benchmark::State& state) {
            const Store& s = store(name);
            for (auto _ : state) release(update_sync_json(s.host.c_str(), s.sync.c_str(), s.configuration.c_str()));
            state.counters["text"] = static_cast<double>(s.sync.size());
        })->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(("read_text" + after).c_str(), [name](benchmark::State& state) {
            const Store& s = store(name);
            for (auto _ : state) release(read_sync_json(s.sync.c_str(), s.configuration.c_str()));
        })->Unit(benchmark::kMicrosecond);
    }
}

// --- A process that has done nothing yet

// Opens a text, reads it and updates it with what was read.
void open_read_update(const std::string& sync) {
    Handle handle(new_sync_json_ptr(sync.c_str()));
    const std::string host = take(read_sync_json_ptr(handle, none));
    release(update_sync_json_ptr(host.c_str(), handle, none));
}

void warm_process(benchmark::State& state) {
    const std::string& sync = data(state).sync;
    for (auto _ : state) open_read_update(sync);
}

// The same with the text of the standard input. Prints what that took, in seconds.
void run_cold() {
    const std::string sync{std::istreambuf_iterator<char>(std::cin), {}};
    const std::clock_t begin = std::clock();
    open_read_update(sync);
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

void chain_of_revisions(benchmark::State& state) { shape(state, chain(size_of(state))); }

void fan_of_branches(benchmark::State& state) {
    const std::string sync = fan(size_of(state));
    const std::string other = fan(size_of(state) + 1);
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

void tiny_documents(benchmark::State& state) { host_round_trip(state, tiny_objects(size_of(state))); }
void array_of_elements(benchmark::State& state) { host_round_trip(state, tiny_elements(size_of(state))); }
void decimal_numbers(benchmark::State& state) { host_round_trip(state, decimals(size_of(state))); }
void one_large_document(benchmark::State& state) { host_round_trip(state, one_document(size_of(state))); }

void doubled(benchmark::internal::Benchmark* benchmark, std::int64_t size) {
    benchmark->Arg(size / 2)->Arg(size)->Unit(benchmark::kMicrosecond);
}

BENCHMARK(warm_process)->Arg(1)->Apply(sizes);
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
        std::cout << notebook(std::stoul(arguments[2])) << "\n";
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
