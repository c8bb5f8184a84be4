// Answers to _bulk_get requests, and what they become when they are sent on.

#include "checks.h"
#include "generate.h"

namespace fuzzing {
namespace {

using c_api::Answer;
using c_api::taken;

// The body of a _bulk_docs request as the answer to a _bulk_get request for the same documents.
std::string as_answer(const std::string& bulk_docs) {
    std::string results;
    for (const std::string& document : c_api::entries(c_api::member(bulk_docs, "docs"))) {
        results += (results.empty() ? "" : ", ") + std::string(R"({"docs": [{"ok": )") + document + "}]}";
    }
    return R"({"results": [)" + results + "]}";
}

}  // namespace
}  // namespace fuzzing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace fuzzing;
    Choices choices(data, size);
    Generator generate(choices);
    const std::string body = choices.one_in(6) ? choices.rest() : generate.bulk_get();
    const std::string configuration = generate.configuration();
    const Answer set = taken(sync_json_from_bulk_get(body.c_str(), "{}"));
    expect_sound(set, true);
    expect_sound(taken(sync_json_from_bulk_get(body.c_str(), configuration.c_str())), true);
    const Answer handle = taken(sync_json_ptr_from_bulk_get(body.c_str(), "{}"));
    EXPECT_EQ(handle.value, set.value);
    if (!handle.handle) return 0;

    const Answer sent = taken(sync_json_ptr_to_bulk_docs(handle.handle.get()));
    expect_sound(sent, false);
    if (!sent.value) return 0;
    const Answer imported = taken(sync_json_ptr_from_bulk_get(as_answer(*sent.value).c_str(), "{}"));
    expect_sound(imported, true);
    if (imported.handle) {
        EXPECT_EQ(taken(sync_json_ptr_to_bulk_docs(imported.handle.get())).value, sent.value) << *handle.value;
    }
    return 0;
}
