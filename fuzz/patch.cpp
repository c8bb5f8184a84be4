// Patches of any kind, and those that a diff makes.

#include "checks.h"
#include "generate.h"
#include "json/random_json.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace fuzzing;
    using c_api::Answer;
    using c_api::taken;
    Choices choices(data, size);
    Generator generate(choices);
    const std::string before = generate.any_set();
    const std::string after = generate.any_set();
    const std::string patch = choices.one_in(6) ? choices.rest() : generate.patch();

    expect_sound(taken(sync_json_patch(before.c_str(), patch.c_str())), false);
    const Answer diff = taken(sync_json_diff(before.c_str(), after.c_str(), "{}"));
    expect_sound(diff, false);
    if (!diff.value || libzentadbpp::testing_json::may_hold_minus_zero(*diff.value)) return 0;
    const Answer patched = taken(sync_json_patch(before.c_str(), diff.value->c_str()));
    expect_sound(patched, false);
    EXPECT_EQ(taken(sync_json_diff(patched.text().c_str(), after.c_str(), "{}")).value, R"({"d": [], "o": []})")
        << before << '\n'
        << after;
    return 0;
}
