// Configurations of any kind with any host data: flattened and rebuilt, stored and read.

#include "c_api/export_table.h"
#include "checks.h"
#include "generate.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace fuzzing;
    using c_api::Answer;
    using c_api::taken;
    Choices choices(data, size);
    Generator generate(choices);
    const std::string configuration = choices.one_in(8) ? choices.bytes(choices.below(200)) : generate.configuration();
    const std::string input = generate.host_object();
    const std::string set = generate.any_set();

    const Answer flat = taken(json_object_flatten(input.c_str(), configuration.c_str()));
    expect_sound(flat, false);
    if (flat.value) expect_sound(taken(json_array_unflatten(flat.value->c_str(), configuration.c_str(), "")), false);

    // Of elements that share an id each is a further revision of one document, every time.
    const Answer fresh = c_api::opened(taken(update_sync_json(input.c_str(), "{}", configuration.c_str())));
    const bool ids_are_shared = fresh.value && fresh.value->find("_first\", ") != std::string::npos;
    for (const std::string& before : {std::string("{}"), set}) {
        const Answer updated = taken(update_sync_json(input.c_str(), before.c_str(), configuration.c_str()));
        expect_sound(updated, true);
        if (!updated.value) continue;
        if (!ids_are_shared) {
            // What only a conflicting revision led to may show now, if its array is there again. Then one more update
            // deletes it.
            const Answer again = taken(update_sync_json(input.c_str(), updated.value->c_str(), configuration.c_str()));
            if (taken(sync_json_unresolved(before.c_str())).value == "") {
                EXPECT_EQ(again, updated);
            }
            EXPECT_EQ(taken(update_sync_json(input.c_str(), again.value->c_str(), configuration.c_str())), again);
        }
        expect_sound(taken(read_sync_json(updated.value->c_str(), configuration.c_str())), false);
        expect_sound(taken(replicate_sync_json(before.c_str(), updated.value->c_str(), configuration.c_str())), true);
    }
    return 0;
}
