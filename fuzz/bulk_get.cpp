// Answers to _bulk_get requests, and what they become when they are sent on.

#include "checks.h"
#include "generate.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace fuzzing;
    using c_api::Answer;
    using c_api::Both;
    using c_api::taken;
    Choices choices(data, size);
    Generator generate(choices);
    const std::string body = choices.one_in(6) ? choices.rest() : generate.bulk_get();
    const std::string configuration = generate.configuration();
    const Answer set = taken(sync_json_from_bulk_get(body.c_str(), "{}"), Both::allowed);
    expect_sound(set, true);
    expect_sound(taken(sync_json_from_bulk_get(body.c_str(), configuration.c_str()), Both::allowed), true);
    const Answer handle = taken(sync_json_ptr_from_bulk_get(body.c_str(), "{}"), Both::allowed);
    EXPECT_EQ(handle.value, set.value);
    if (!handle.handle) return 0;

    const Answer sent = taken(sync_json_ptr_to_bulk_docs(handle.handle.get()));
    expect_sound(sent, false);
    if (!sent.value) return 0;
    const std::string returned = c_api::as_bulk_get_answer(*sent.value);
    const Answer imported = taken(sync_json_ptr_from_bulk_get(returned.c_str(), "{}"), Both::allowed);
    expect_sound(imported, true);
    if (imported.handle && imported.error.empty()) {
        EXPECT_EQ(taken(sync_json_ptr_to_bulk_docs(imported.handle.get())).value, sent.value) << *handle.value;
    }
    return 0;
}
