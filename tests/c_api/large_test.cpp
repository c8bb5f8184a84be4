#include "c_api/zenta.h"

// Texts over 2 and over 4 GiB. They take up to 15 GiB of memory and some minutes, so they run on demand only:
//   c_api_test --gtest_also_run_disabled_tests --gtest_filter='Large.*'
namespace c_api {
namespace {

using Text = std::unique_ptr<char, void (*)(void*)>;

// The value of a record, without a copy.
Text value_of(sync_json_result made) {
    EXPECT_NE(made.value, nullptr) << made.error;
    std::free(made.error);
    return {made.value, std::free};
}

void expect_text(const Text& text, const std::string& begin, std::size_t filling, const std::string& end) {
    ASSERT_TRUE(text);
    const std::string_view whole(text.get());
    ASSERT_EQ(whole.size(), begin.size() + filling + end.size());
    EXPECT_TRUE(whole.starts_with(begin)) << whole.substr(0, 100);
    EXPECT_TRUE(whole.ends_with(end)) << whole.substr(whole.size() - 100);
    EXPECT_EQ(whole.find_first_not_of('x', begin.size()), begin.size() + filling);
}

std::string filled(const std::string& begin, std::size_t filling, const std::string& end) {
    std::string text;
    text.reserve(begin.size() + filling + end.size());
    return text.append(begin).append(filling, 'x').append(end);
}

class Large : public testing::TestWithParam<std::size_t> {};

TEST_P(Large, DISABLED_TextsAreTakenAndGiven) {
    const std::size_t filling = GetParam();
    const std::string history = R"({"root": ["A_first"]})";
    const auto has_winner = [](const std::string& set) {
        EXPECT_STREQ(value_of(sync_json_winning(set.c_str(), "root")).get(), "1-A_first");
    };
    has_winner(filled("@d1:o@d1:A@d1:a@" + std::to_string(filling + 1) + ":!", filling,
                      "xx1:d@d4:root@l@7:A_firstxx1:r@4:rootx"));

    const std::string written = R"({"d": )" + history + R"(, "o": {"A": {"a": "!)";
    const std::string written_end = R"("}}, "r": "root"})";
    std::string set = filled(R"({"o": {"A": {"a": "!)", filling, R"("}}, "d": )" + history + R"(, "r": "root"})");
    has_winner(set);
    const Text object = value_of(sync_json_compress(set.c_str()));
    EXPECT_NE(std::string_view(object.get()).find("\"uncompressed_size\": " + std::to_string(set.size()) + "}"),
              std::string_view::npos);
    const sync_json_ptr_result opened = new_sync_json_ptr(set.c_str());
    ASSERT_NE(opened.ptr, nullptr) << opened.error;
    set = {};
    expect_text(value_of(read_sync_json_ptr(opened.ptr, "{}")), R"({"_id": "root", "a": ")", filling, "\"}");
    expect_text({dump_sync_json_ptr(opened.ptr), std::free}, written, filling, written_end);
    const sync_json_ptr_result empty = new_sync_json_ptr("{}");
    const sync_json_ptr_result merged = replicate_sync_json_ptr(opened.ptr, empty.ptr, "{}");
    EXPECT_NE(merged.ptr, nullptr) << merged.error;
    free_sync_json_ptr(opened.ptr);
    free_sync_json_ptr(empty.ptr);
    expect_text({dump_sync_json_ptr(merged.ptr), std::free}, written, filling, written_end);
    free_sync_json_ptr(merged.ptr);
    expect_text(value_of(sync_json_uncompress(object.get())), written, filling, written_end);

    constexpr std::size_t most_to_hash = std::size_t{1} << 32;  // an update takes five times the memory of its input
    if (filling > most_to_hash) return;
    const std::string data = filled(R"({"a": ")", filling, "\"}");
    const Text updated = value_of(update_sync_json(data.c_str(), "{}", "{}"));
    ASSERT_TRUE(updated);
    EXPECT_GT(std::string_view(updated.get()).size(), filling);
}

INSTANTIATE_TEST_SUITE_P(GiB, Large, testing::Values(std::size_t{9} << 28, std::size_t{17} << 28));

}  // namespace
}  // namespace c_api
