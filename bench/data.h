#pragma once

#include <benchmark/benchmark.h>
#include <zentadbpp.h>

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

inline constexpr const char* none = "{}";

std::string take(sync_json_result result);
std::string dumped(sync_json_ptr handle);
void require(bool holds, const char* what);

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

    explicit Data(std::size_t notes);

   private:
    void check_handles(const std::string& read) const;
    void find_hashed();
};

// What valgrind counts while one of these lives, if the benchmark runs under it (scripts/bench --counts).
class Counted {
   public:
    Counted();
    ~Counted();
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
};

// Of the size that the benchmark runs at.
const Data& data(const benchmark::State& state);

void sizes(benchmark::internal::Benchmark* benchmark);
void count(benchmark::State& state, std::size_t bytes, std::size_t documents);

}  // namespace bench
