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

}  // namespace
}  // namespace c_api
