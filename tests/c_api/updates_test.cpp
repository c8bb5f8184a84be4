#include <algorithm>
#include <array>
#include <random>

#include "c_api/zenta.h"

namespace c_api {
namespace {

std::string without_contents(const std::string& sync_json) {
    return sync_json.substr(0, sync_json.find(R"("o": )")) + R"("o": {})" +
           sync_json.substr(sync_json.find(R"(, "r": )"));
}

// What a handle remembers of its last updates must not show.
TEST(Updates, OnceMoreWithTheSameData) {
    const std::string data = R"({"_id": "root", "a": [{"_id": "x", "n": 1}, {"_id": "y"}], "s": "t"})";
    const std::string reordered = R"({"_id": "root", "a": [{"_id": "y"}, {"_id": "x", "n": 1}], "s": "t"})";
    const std::string plain = "{}";
    const std::string other = R"({"instance_id": "other"})";
    const std::string whole = taken(update_sync_json(data.c_str(), "{}", "{}")).text();
    struct Update {
        std::string data;
        std::string configuration;
    };
    const struct {
        std::string sync_json;
        std::vector<Update> updates;
    } cases[] = {
        {whole, {{data, plain}}},
        {whole, {{data, plain}, {reordered, plain}, {data, plain}}},
        {whole, {{data, plain}, {data, other}, {data, plain}}},
        // What a revision names but nothing stores is stored again, though no document changes.
        {without_contents(whole), {{data, plain}}},
    };
    constexpr int times = 4;
    for (const auto& [sync_json, updates] : cases) {
        std::string text = sync_json;
        Handle handle = open(sync_json).handle;
        for (const auto& [input, configuration] : updates) {
            const char* const config = configuration.c_str();
            const std::string once = taken(update_sync_json(input.c_str(), text.c_str(), config)).text();
            for (int time = 0; time < times; ++time) {
                const Answer same = taken(update_sync_json_ptr(input.c_str(), handle.get(), config));
                EXPECT_EQ(same.text(), once);
            }
            for (int time = 0; time < times; ++time) {
                text = taken(update_sync_json(input.c_str(), text.c_str(), config)).text();
                Answer next = taken(update_sync_json_ptr(input.c_str(), handle.get(), config));
                EXPECT_EQ(next.text(), text);
                handle = std::move(next.handle);
            }
            EXPECT_EQ(taken(read_sync_json_ptr(handle.get(), config)).text(),
                      taken(read_sync_json(text.c_str(), config)).text());
            text = dump(handle).value_or("");  // reading may store an order
        }
    }
}

// What a handle passes on to those made from it must not show.
TEST(Updates, FindWhatAnEarlierReadMissed) {
    // A member has the document, so the list of another instance does not add it.
    const std::string contents = R"("o": {"e": {"n": 1}, "l": {"d": "A", "i": "other", "s": ["x"]}, )"
                                 R"("r": {"a": "AA", "m": "Ox"}}, "r": "root"})";
    const std::string lacking = R"({"d": {"ord-1": ["l_first"], "root": ["r_first"]}, )" + contents;
    const std::string whole = R"({"d": {"ord-1": ["l_first"], "root": ["r_first"], "x": ["e_first"]}, )" + contents;
    const Handle before = open(lacking).handle;
    EXPECT_FALSE(taken(read_sync_json_ptr(before.get(), "{}")).value);
    const Handle after = taken(replicate_sync_json_ptr(open(whole).handle.get(), before.get(), "{}")).handle;
    EXPECT_EQ(taken(read_sync_json_ptr(after.get(), "{}")).text(),
              R"({"_id": "root", "a": [], "m": {"_id": "x", "n": 1}})");
}

// Many copies put a few elements in order again and again, so they often reach one order along different ways.
TEST(Updates, SetAnOrderThatManyCopiesHad) {
    std::mt19937 random(1);
    std::array<int, 3> order{0, 1, 2};
    const auto any_order = [&] {
        std::ranges::shuffle(order, random);
        std::string elements;
        for (const int element : order) {
            elements += (elements.empty() ? "" : ", ") + (R"({"_id": "e)" + std::to_string(element)) + "\"}";
        }
        return R"({"_id": "root", "a": [)" + elements + "]}";
    };
    const auto reordered = [&](std::string set, int copies, int edits) {
        const std::string base = set;
        for (int copy = 0; copy < copies; ++copy) {
            std::string text = base;
            for (int edit = 0; edit < edits; ++edit) {
                text = taken(update_sync_json(any_order().c_str(), text.c_str(), "{}")).text();
            }
            set = taken(replicate_sync_json(text.c_str(), set.c_str(), "{}")).text();
        }
        return set;
    };
    for (int round = 0; round < 300; ++round) {
        std::string set = taken(update_sync_json(any_order().c_str(), "{}", "{}")).text();
        // Thirty copies fork the list, and six settle that on their own.
        set = reordered(reordered(std::move(set), 30, 2), 6, 1);
        const std::string shown = taken(read_sync_json(set.c_str(), "{}")).text();
        for (const char* const element : {"e0", "e1", "e2"}) EXPECT_NE(shown.find(element), std::string::npos) << shown;
        const std::string data = any_order();
        set = taken(update_sync_json(data.c_str(), set.c_str(), "{}")).text();
        EXPECT_EQ(taken(read_sync_json(set.c_str(), "{}")).text(), data) << round;
    }
}

}  // namespace
}  // namespace c_api
