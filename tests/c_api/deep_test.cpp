#include <pthread.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <tuple>

#include "c_api/export_table.h"
#include "c_api/samples.h"

// What is nested, chained or long costs no stack: all of it runs on as small a stack as a host may have.
namespace c_api {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool checked = true;
#elif defined(__has_feature)
constexpr bool checked = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool checked = false;
#endif

// The checkers make frames several times as large as the library's are.
constexpr std::size_t stack_size = (checked ? 4096 : 256) * std::size_t{1024};

void on_small_stack(void (*run)()) {
    pthread_attr_t attributes;
    pthread_t thread;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, stack_size), 0);
    const auto start = [](void* work) -> void* {
        reinterpret_cast<void (*)()>(work)();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, start, reinterpret_cast<void*>(run)), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

std::string repeated(std::string_view text, std::size_t times) {
    std::string all;
    for (; times > 0; --times) all += text;
    return all;
}

std::string nested(std::size_t levels) { return repeated("[", levels) + repeated("]", levels); }
std::string nested_member(std::size_t levels) { return R"({"x": )" + nested(levels) + "}"; }

std::string with_root(const std::string& history, const std::string& contents) {
    return R"({"d": {"root": )" + history + R"(}, "o": {)" + contents + R"(}, "r": "root"})";
}

// A history that forks again and again: each fork along a path adds two levels.
std::string forked(std::size_t forks) {
    return R"(["A_first")" + repeated(R"(, ["B_A", ["C_A", "D_C")", forks) + repeated("]]", forks) + "]";
}

std::string chain(std::size_t length) { return R"(["A_first")" + repeated(R"(, "B_A", "A_B")", length / 2) + "]"; }

// Documents of which each refers to the next one: as a member, or as the one element of an array.
std::string linked(std::size_t count, bool in_arrays, std::size_t last_refers_to) {
    std::string documents;
    std::string contents;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string name = i == 0 ? "root" : "n" + std::to_string(i);
        const std::size_t next = i + 1 < count ? i + 1 : last_refers_to;
        const std::string next_name = next == 0 ? "root" : "n" + std::to_string(next);
        const std::string hash = "H" + std::to_string(i);
        const std::string domain = "D" + std::to_string(i);
        documents += (i == 0 ? "\"" : ", \"") + name + "\": [\"" + hash + "_first\"]";
        contents += (i == 0 ? "\"" : ", \"") + hash + "\": {";
        if (next < count) contents += "\"x\": \"" + (in_arrays ? "A" + domain : "O" + next_name) + '"';
        contents += "}";
        if (!in_arrays || next >= count) continue;
        documents += ", \"ord-" + domain + "\": [\"L" + hash + "_first\"]";
        contents += ", \"L" + hash + R"(": {"d": ")" + domain + R"(", "i": "default", "s": [")" + next_name + "\"]}";
    }
    return R"({"d": {)" + documents + R"(}, "o": {)" + contents + R"(}, "r": "root"})";
}

constexpr std::size_t nowhere = static_cast<std::size_t>(-1);
const char* const too_deep = "exceeded maximum nesting depth";

// --- Texts

TEST(Deep, TextsUpToTheLimitByEveryExport) {
    on_small_stack([] {
        for (const Export& row : exports()) {
            for (std::size_t at = 0; at < row.arguments.size(); ++at) {
                const Kind kind = row.arguments[at].kind;
                if (!is_json(kind)) continue;
                Texts given = good_arguments(row);
                const auto error_of = [&](std::size_t levels) {
                    given[at] = kind == Kind::array ? nested(levels + 1) : nested_member(levels);
                    return row.call(given).error;
                };
                EXPECT_NE(error_of(200), too_deep) << row.name;
                EXPECT_EQ(error_of(201), too_deep) << row.name;
                EXPECT_EQ(error_of(1000000), too_deep) << row.name;
                given[at] = "@d1:x" + repeated("@l", 1000000);
                EXPECT_NE(row.call(given).error, "") << row.name;
            }
        }
    });
}

TEST(Deep, ContentsUpToTheLimits) {
    on_small_stack([] {
        struct Limit {
            std::size_t levels;  // of arrays in a member
            std::string reading;
            std::string rebuilding;
        };
        for (const auto& [levels, reading, rebuilding] : std::vector<Limit>{{200, "", ""},
                                                                            {201, "", too_deep},
                                                                            {256, "", too_deep},
                                                                            {257, too_deep, too_deep},
                                                                            {100000, too_deep, too_deep}}) {
            const std::string set = with_root(R"(["A_first"])", R"("A": {"a": )" + nested(levels) + "}");
            EXPECT_EQ(open(set).error, reading) << levels;
            EXPECT_EQ(taken(read_sync_json(set.c_str(), "{}")).error, rebuilding) << levels;
            EXPECT_EQ(taken(sync_json_uncompress(set.c_str())).error, reading) << levels;
            EXPECT_EQ(taken(sync_json_diff("{}", set.c_str(), "{}")).error, reading) << levels;
        }
    });
}

// Host data as deep as it may be, in documents, in lists of documents and in neither: what is written is read back.
TEST(Deep, HostDataUpToTheLimit) {
    on_small_stack([] {
        const std::string config = R"({"flatten_objects": true, "discard_id": true})";
        for (const auto& [begin, end, levels] :
             {std::tuple{"[", "]", 198}, {R"({"x": )", "}", 198}, {R"([{"x": )", "}]", 99}}) {
            const auto count = static_cast<std::size_t>(levels);
            const std::string data = R"({"x": )" + repeated(begin, count) + "1" + repeated(end, count) + "}";
            const std::string set = taken(update_sync_json(data.c_str(), "{}", config.c_str())).text();
            EXPECT_EQ(taken(read_sync_json(set.c_str(), config.c_str())).text(), data);
            const std::string documents = taken(json_object_flatten(data.c_str(), config.c_str())).text();
            EXPECT_EQ(taken(json_array_unflatten(documents.c_str(), config.c_str(), "")).text(), data);
        }
    });
}

// --- Document sets

// Each is taken by every export, on its own and with what an update made of it.
TEST(Deep, SetsByEveryExport) {
    on_small_stack([] {
        for (const std::string& set : {with_root(R"(["A_first"])", R"("A": {"a": )" + nested(256) + "}"),
                                       with_root(forked(5000), R"("D": {})"), linked(200, false, nowhere),
                                       linked(5000, true, nowhere), linked(5000, false, 0), linked(5000, true, 1)}) {
            const std::string updated = taken(update_sync_json(R"({"new": 1})", set.c_str(), "{}")).text();
            EXPECT_EQ(open(updated).value, updated);
            const std::string winning = taken(sync_json_winning(updated.c_str(), "root")).text();
            for (const Export& row : exports()) {
                Texts given = good_arguments(row);
                for (std::size_t at = 0; at < given.size(); ++at) {
                    const Kind kind = row.arguments[at].kind;
                    if (kind == Kind::sync_json || kind == Kind::handle) given[at] = at % 2 == 0 ? updated : set;
                    if (kind == Kind::revision) given[at] = winning;
                }
                const Answer answer = row.call(given);
                const bool may_fail = row.name.find("data") != std::string_view::npos ||
                                      row.name.find("read") != std::string_view::npos ||
                                      row.name.find("bulk") != std::string_view::npos;
                EXPECT_TRUE(answer.value || may_fail) << row.name << answer.error;
            }
        }
    });
}

TEST(Deep, ReferencesRebuildUpToTheLimit) {
    on_small_stack([] {
        const auto error_of = [](const std::string& set) {
            const std::string error = taken(read_sync_json(set.c_str(), "{}")).error;
            EXPECT_EQ(taken(sync_json_data(set.c_str(), "root", "1-H0_first", "{}")).error, error);
            return error;
        };
        EXPECT_EQ(error_of(linked(200, false, nowhere)), "");
        EXPECT_EQ(error_of(linked(201, false, nowhere)), too_deep);
        EXPECT_EQ(error_of(linked(100, true, nowhere)), "");
        EXPECT_EQ(error_of(linked(101, true, nowhere)), too_deep);
        EXPECT_EQ(error_of(linked(100000, false, nowhere)), too_deep);
        // What lies inside itself is left out there.
        for (const bool in_arrays : {false, true}) {
            EXPECT_EQ(error_of(linked(90, in_arrays, 0)), "");
            EXPECT_EQ(error_of(linked(90, in_arrays, 89)), "");
        }
    });
}

// --- Histories

// What could be quadratic in a wide or a long history, or take a frame for each of its revisions.
TEST(Deep, LongHistories) {
    on_small_stack([] {
        constexpr int length = 1000000;
        constexpr int children = 200000;
        std::string star = R"(["A_first", [)";
        for (int i = 0; i < children; ++i) star += (i == 0 ? "\"B" : ", \"B") + std::to_string(i) + "_A\"";
        const std::string set = R"({"d": {"again": ["A_first", ["B_first")" +
                                repeated(R"(, ["C_A", "D_C"])", children) + R"(]], "chain": )" + chain(length) +
                                R"(, "root": )" + star + R"(]]}, "r": "root"})";
        const std::clock_t begin = std::clock();
        const Answer handle = open(set);
        const std::clock_t opened = std::clock();
        ASSERT_TRUE(handle.handle) << handle.error;
        EXPECT_TRUE(open(*handle.value).value == handle.value);
        const std::string last = std::to_string(length + 1) + "-A_B";
        EXPECT_EQ(taken(sync_json_ptr_winning(handle.handle.get(), "chain")).text(), last);
        EXPECT_EQ(taken(sync_json_ptr_ancestor(handle.handle.get(), "chain", last.c_str())).text(),
                  std::to_string(length) + "-B_A");
        const std::string history = taken(sync_json_ptr_history(handle.handle.get(), "chain", last.c_str())).text();
        EXPECT_EQ(std::ranges::count(history, ','), length);
        EXPECT_EQ(taken(sync_json_ptr_leafs(handle.handle.get(), "again")).text(), "2-B_first,3-D_C");
        EXPECT_EQ(taken(sync_json_ptr_winning(handle.handle.get(), "root")).text(), "2-B0_A");
        EXPECT_EQ(split_list(taken(sync_json_ptr_siblings(handle.handle.get(), "root", "2-B7_A")).text()).size(),
                  children - 1U);

        // The chain's document is deleted, the star gets a winner that goes on.
        const Answer updated = taken(update_sync_json_ptr("{}", handle.handle.get(), "{}"));
        EXPECT_EQ(taken(sync_json_ptr_winning(updated.handle.get(), "chain")).text(),
                  std::to_string(length + 2) + "-deleted_A");
        EXPECT_TRUE(taken(replicate_sync_json_ptr(handle.handle.get(), updated.handle.get(), "{}")) == updated);
        EXPECT_TRUE(taken(replicate_sync_json_ptr(updated.handle.get(), handle.handle.get(), "{}")) == updated);
        EXPECT_TRUE(taken(sync_json_ptr_all_winning(updated.handle.get())).handle);
        EXPECT_TRUE(taken(sync_json_ptr_prune(updated.handle.get(), 1, false)).handle);

        const std::string nest = repeated("[", length) + "\"B_A\"" + repeated("]", length);
        EXPECT_EQ(open(with_root(R"(["A_first", )" + nest + "]", "")).value,
                  R"({"d": {"root": ["A_first", "B_A"]}, "r": "root"})");

        const Answer resolved = taken(sync_json_ptr_resolve(handle.handle.get(), "root", "2-B0_A"));
        EXPECT_EQ(taken(sync_json_ptr_winning(resolved.handle.get(), "root")).text(),
                  "2-B100000_A");  // the bytes decide, and a digit is less than "_"
        EXPECT_TRUE(taken(replicate_sync_json_ptr(resolved.handle.get(), handle.handle.get(), "{}")) == resolved);
        // All of this takes two to four times as long as opening.
        EXPECT_LT(std::clock() - opened, 15 * (opened - begin));
    });
}

// What is only passed over takes a bit a level, and a place in an object does not hold all that leads to it.
TEST(Deep, ReadingTakesLittleMemory) {
    if (checked) GTEST_SKIP() << "the checkers take memory of their own";
    constexpr std::size_t levels = std::size_t{1} << 25;
    const std::string history = with_root(R"(["A_first", )" + nested(levels) + "]", R"("A": {})");
    // Members that an object had, each of them a document.
    std::string members;
    for (int i = 0; i < 100000; ++i) members += (i == 0 ? "\"k" : ", \"k") + std::to_string(i) + R"(": "Olost")";
    const auto inside = [](const std::string& object) {
        return repeated(R"({"x": )", 190) + object + repeated("}", 190);
    };
    const std::string lost = R"({"d": {"lost": ["E_first"], "root": ["A_first", "B_A"]}, "o": {"A": )" +
                             inside("{" + members + "}") + R"(, "B": )" + inside("{}") + R"(, "E": {}}, "r": "root"})";
    const auto kilobytes = [] {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss;
    };
    const auto read =
        [&](const auto& call,
            std::string_view begins) {  // in a process of its own, whose peak is not that of an earlier test
            const long before = kilobytes();
            const sync_json_result result = call();
            const long taken = kilobytes() - before;
            const bool is_read = result.value != nullptr && std::string_view(result.value).starts_with(begins);
            std::exit(is_read && taken < 32L * 1024 ? 0 : 1);
        };
    EXPECT_EXIT(read([&] { return sync_json_winning(history.c_str(), "root"); }, "1-A_first"),
                testing::ExitedWithCode(0), "");
    EXPECT_EXIT(read([&] { return read_sync_json(lost.c_str(), "{}"); }, R"({"_id": "root", "x": )"),
                testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace c_api
