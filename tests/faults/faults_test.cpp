#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include "c_api/export_table.h"
#include "c_api/samples.h"
#include "faults/allocation.h"

using namespace c_api;
using faults::Failing;

namespace {

const std::string& sample(const std::string& name) {
    return std::ranges::find(samples(), name, &Sample::name)->sync_json;
}

// What may be said of a call that got no memory: that, or what libdeflate and zlib make of it.
bool tells_no_memory(const std::string& error) {
    return error == "std::bad_alloc" || error == "failed_to_uncompress_obj" ||
           error == record("compress_object", "failed_to_uncompress_data") ||
           error == record("uncompress_object", "failed_to_allocate_memory_for_uncompressed_data");
}

// Arguments of which a call has much to do, some of them compressed, and arguments with which it fails.
std::vector<Texts> arguments_of(const Export& row) {
    Texts rich = good_arguments(row);
    Texts wrong = rich;
    for (std::size_t at = 0; at < rich.size(); ++at) {
        const Kind kind = row.arguments[at].kind;
        if (at == 1 && (kind == Kind::sync_json || kind == Kind::handle)) rich[at] = sample("left");
        if (kind == Kind::id || kind == Kind::revision) wrong[at] = "9-no_body";
        if (is_json(kind)) wrong[at]->pop_back();
    }
    if (row.name.find("from_bulk_get") != std::string_view::npos) {
        rich[0] = as_bulk_get_answer(taken(sync_json_to_bulk_docs(rich_sample().c_str())).text());
    }
    if (row.name == "sync_json_patch") {
        rich[1] = taken(sync_json_diff("{}", rich_sample().c_str(), "{}")).text();
    }
    Texts packed = rich;
    for (std::size_t at = 0; at < packed.size(); ++at) {
        const Kind kind = row.arguments[at].kind;
        if (kind == Kind::sync_json && row.inflation != Inflation::not_opened) packed[at] = compressed(*packed[at]);
        if (kind == Kind::config) {
            packed[at] = R"({"instance_id": "left", "flatten_objects": true, "id_generation_rules": "n,k;z",)"
                         R"( "indexed_array_paths": "a,b", "compressed": true})";
        }
    }
    return {rich, packed, wrong};
}

// Makes the call again and again, with each of its allocations failing in turn; answers how many these are.
std::size_t sweep(const Export& row, const Texts& given, Failing failing) {
    const Answer whole = row.call(given);
    for (std::size_t n = 1;; ++n) {
        std::size_t asked_for = 0;
        const Around around{[&] { faults::fail_allocations(n, failing); }, [&] { asked_for = faults::stop_failing(); },
                            true};
        const std::ptrdiff_t live = faults::live_allocations();
        {
            const Answer answer = row.call(given, around);
            // What is answered all the same is the whole answer, and never that of a call with less. Nothing at all
            // comes where the error's text was what failed, or the one function that has none.
            const bool allowed =
                answer == whole || (asked_for >= n && !answer.value &&
                                    (answer.error.empty() ? failing == Failing::all_from_then || !whole.value ||
                                                                row.name == "dump_sync_json_ptr"
                                                          : tells_no_memory(answer.error)));
            if (!allowed) ADD_FAILURE() << row.name << ", allocation " << n << ": " << testing::PrintToString(answer);
        }
        if (testing::Test::HasFailure()) return n;
        EXPECT_EQ(faults::live_allocations(), live) << row.name << ", allocation " << n;
        if (asked_for < n) return n - 1;
    }
}

TEST(Faults, AnyAllocationOfAnyFunctionMayFail) {
    std::size_t points = 0;
    for (const Export& row : exports()) {
        for (const Texts& given : arguments_of(row)) {
            for (const Failing failing : {Failing::one, Failing::all_from_then}) points += sweep(row, given, failing);
        }
        if (HasFailure()) return;
    }
    std::cout << points << " allocations failed in " << exports().size() << " functions\n";
}

TEST(Faults, FreeingNeedsNoMemory) {
    Handle first = open(rich_sample()).handle;
    Handle second = taken(update_sync_json_ptr(R"({"list": []})", first.get(), "{}")).handle;
    Handle third = taken(replicate_sync_json_ptr(second.get(), first.get(), "{}")).handle;
    faults::fail_allocations(1, Failing::all_from_then);
    first.reset();
    third.reset();
    second.reset();
    EXPECT_EQ(faults::stop_failing(), 0U);
}

}  // namespace
