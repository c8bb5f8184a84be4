#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "c_api/zenta.h"

namespace c_api {
namespace {

// What several threads do at once has to come out as when one does it alone. These tests say most under the thread
// sanitizer.

constexpr int thread_count = 4;

// Runs the work of each thread, begun as nearly at once as can be.
void at_once(const std::function<void(int thread)>& work) {
    std::atomic<int> waiting{thread_count};
    std::vector<std::thread> threads;
    for (int i = 0; i < thread_count; ++i) {
        threads.emplace_back([&, i] {
            --waiting;
            while (waiting > 0) std::this_thread::yield();
            work(i);
        });
    }
    for (std::thread& thread : threads) thread.join();
}

std::string notes(int count, const std::string& text) {
    std::string data = R"({"notes": [)";
    for (int i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        data += (i > 0 ? ", " : "") + std::string(R"({"_id": "n)") + number + R"(", "in": {"x": )" + number +
                R"(.5}, "text": ")" + text + "\"}";
    }
    return data + "]}";
}

std::string updated(const std::string& data, const std::string& before, const std::string& config = "{}") {
    return taken(update_sync_json(data.c_str(), before.c_str(), config.c_str())).text();
}

// A set with a conflict, a deleted document, and orders of two instances.
std::string merged_notes() {
    const std::string first = updated(notes(20, "first"), "{}");
    const std::string left = updated(notes(18, "left"), first, R"({"instance_id": "left"})");
    const std::string right = updated(notes(22, "right"), first);
    return taken(replicate_sync_json(left.c_str(), right.c_str(), "{}")).text();
}

using Query = std::function<Answer(sync_json_ptr)>;

// Asks about a revision of a document.
template <class Function, class... More>
Query of_revision(Function* function, const char* id, sync_json_result (*which)(sync_json_ptr, const char*),
                  More... more) {
    return [=](sync_json_ptr h) { return taken(function(h, id, taken(which(h, id)).text().c_str(), more...)); };
}

const std::vector<Query>& queries() {
    static const std::vector<Query> all = [] {
        std::vector<Query> made = {
            of_revision(sync_json_ptr_data, "n3", sync_json_ptr_winning, "{}"),
            of_revision(sync_json_ptr_history, "n4", sync_json_ptr_conflicting),
            of_revision(sync_json_ptr_siblings, "n5", sync_json_ptr_winning),
            of_revision(sync_json_ptr_ancestor, "n5", sync_json_ptr_winning),
            of_revision(sync_json_ptr_resolve, "n7", sync_json_ptr_conflicting),
            [](sync_json_ptr h) { return taken(dump_sync_json_ptr(h)); },
            [](sync_json_ptr h) { return taken(sync_json_ptr_winning(h, "nobody")); },
            [](sync_json_ptr h) { return taken(sync_json_ptr_leafs(h, "n4")); },
            [](sync_json_ptr h) { return taken(sync_json_ptr_available(h, "n6")); },
            [](sync_json_ptr h) { return taken(sync_json_ptr_prune(h, 1, false)); },
            [](sync_json_ptr h) { return taken(sync_json_ptr_prune_ids(h, R"(["n1", "n2"])", 1, false)); },
            [](sync_json_ptr h) { return taken(replicate_sync_json_ptr(h, h, "{}")); },
            [](sync_json_ptr h) { return taken(update_sync_json_ptr(notes(5, "new").c_str(), h, "{}")); },
            [](sync_json_ptr h) { return taken(sync_json_ptr_all_winning(h)); },
        };
        for (const auto function : {sync_json_ptr_root, sync_json_ptr_all_docs, sync_json_ptr_instances,
                                    sync_json_ptr_unresolved, sync_json_ptr_to_bulk_docs}) {
            made.emplace_back([=](sync_json_ptr h) { return taken(function(h)); });
        }
        for (const auto function : {sync_json_ptr_created, sync_json_ptr_updated, sync_json_ptr_deleted}) {
            made.emplace_back([=](sync_json_ptr h) { return taken(function(h, h)); });
        }
        for (const char* config :
             {R"({"preserve_old_ordering": true})", R"({"preserve_old_ordering": true, "instance_id": "left"})"}) {
            made.emplace_back([=](sync_json_ptr h) { return taken(read_sync_json_ptr(h, config)); });
        }
        return made;
    }();
    return all;
}

// By-value operations, each with a configuration that would be noticed in the results of the others.
std::vector<std::string> by_value(int thread) {
    static const char* const configs[] = {
        R"({"instance_id": "a", "flatten_objects": true})",
        R"({"instance_id": "b", "force_fast_hash_only": true})",
        R"({"instance_id": "c", "id_generation_rules": "text", "discard_id": true})",
        R"({"instance_id": "d", "compressed": true})",
    };
    const char* config = configs[thread % thread_count];
    const std::string first = updated(notes(10, "first"), "{}", config);
    const std::string second = updated(notes(11, "second"), first, config);
    const std::string data = R"({"list": [{"text": "x", "in": {"y": 0.1}}, {"text": "z"}]})";
    return {first,
            second,
            taken(replicate_sync_json(second.c_str(), first.c_str(), config)).text(),
            taken(read_sync_json(second.c_str(), config)).text(),
            taken(sync_json_diff(first.c_str(), second.c_str(), config)).text(),
            taken(json_object_flatten(data.c_str(), config)).text(),
            taken(sync_json_winning(first.c_str(), nullptr)).error};
}

// Stands first, and is run in a process of its own as well: then nothing of the library was used before.
TEST(Threads, FirstUseMayBeSimultaneousAndConfigurationsDoNotMix) {
    std::vector<std::vector<std::string>> first(thread_count);
    at_once([&](int thread) { first[static_cast<std::size_t>(thread)] = by_value(thread); });
    std::vector<std::vector<std::string>> alone;
    for (int thread = 0; thread < thread_count; ++thread) alone.push_back(by_value(thread));
    EXPECT_EQ(first, alone);
    for (std::size_t i = 1; i < thread_count; ++i) EXPECT_NE(alone[0], alone[i]);
    at_once([&](int thread) {
        for (int i = 0; i < 8; ++i) {
            const int which = (thread + i) % thread_count;
            EXPECT_EQ(by_value(which), alone[static_cast<std::size_t>(which)]) << "configuration " << which;
        }
    });
}

TEST(Threads, OneHandleAnswersAllAtOnce) {
    const std::string sync_json = merged_notes();
    const Handle alone = open(sync_json).handle;
    std::vector<Answer> expected;
    for (const Query& query : queries()) expected.push_back(query(alone.get()));
    EXPECT_EQ(std::ranges::count_if(expected, [](const Answer& answer) { return !answer.error.empty(); }), 1);

    // Opened anew, so that what a handle might put off until it is asked is still to be done.
    const Handle shared = open(sync_json).handle;
    at_once([&](int thread) {
        const std::size_t count = queries().size();
        for (std::size_t i = 0; i < 4 * count; ++i) {
            const std::size_t which = (i + static_cast<std::size_t>(thread) * 5) % count;
            EXPECT_EQ(queries()[which](shared.get()), expected[which]) << "query " << which;
        }
    });
    EXPECT_EQ(dump(shared), sync_json);
}

// Each thread goes its own way from one handle: chains of changes, reads that write, and frees in any order, the first
// handle among them.
std::string chain(Handle handle, int thread) {
    const std::string text = "by " + std::to_string(thread);
    const std::string config = R"({"instance_id": ")" + text + R"("})";
    for (int i = 0; i < 5; ++i) {
        handle =
            taken(update_sync_json_ptr(notes(10 + i, text + std::to_string(i)).c_str(), handle.get(), "{}")).handle;
        EXPECT_TRUE(taken(read_sync_json_ptr(handle.get(), config.c_str())).value);
        const std::string loser = taken(sync_json_ptr_conflicting(handle.get(), "n3")).text();
        if (!loser.empty()) handle = taken(sync_json_ptr_resolve(handle.get(), "n3", loser.c_str())).handle;
        handle = taken(sync_json_ptr_prune(handle.get(), 3, false)).handle;
        handle = taken(replicate_sync_json_ptr(handle.get(), handle.get(), "{}")).handle;
    }
    return dump(handle).value_or("");
}

TEST(Threads, SuccessorsOfOneHandleAreIndependent) {
    const std::string sync_json = merged_notes();
    std::vector<std::string> expected;
    for (int thread = 0; thread < thread_count; ++thread) expected.push_back(chain(open(sync_json).handle, thread));

    const Handle first = open(sync_json).handle;
    const Answer read = taken(read_sync_json_ptr(first.get(), R"({"preserve_old_ordering": true})"));
    EXPECT_TRUE(read.value);  // what it now knows of its data, all successors begin with
    at_once([&](int thread) { EXPECT_EQ(chain(first, thread), expected[static_cast<std::size_t>(thread)]); });
    EXPECT_EQ(dump(first), sync_json);
}

TEST(Threads, TheLastOneFreesWhatHandlesShare) {
    for (int round = 0; round < 20; ++round) {
        std::vector<Handle> handles = {open(merged_notes()).handle};
        while (handles.size() < thread_count) {
            handles.push_back(taken(update_sync_json_ptr(notes(3, "x").c_str(), handles.back().get(), "{}")).handle);
        }
        at_once([&](int thread) {
            Handle& own = handles[static_cast<std::size_t>(thread)];
            EXPECT_EQ(taken(sync_json_ptr_root(own.get())).text(), "root");
            own.reset();
        });
    }
}

}  // namespace
}  // namespace c_api
