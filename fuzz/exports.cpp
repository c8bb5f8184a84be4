// Every export, with arguments that have the shape of what it takes, by value and by handle.

#include "c_api/export_table.h"
#include "checks.h"
#include "generate.h"
#include "json/random_json.h"

namespace fuzzing {
namespace {

using c_api::Answer;
using c_api::Export;
using c_api::Kind;

std::string argument(Generator& generate, Choices& choices, Kind kind) {
    switch (kind) {
        case Kind::sync_json:
        case Kind::handle:
            return generate.any_set();
        case Kind::object:
            return choices.one_in(4) ? generate.json() : generate.host_object();
        case Kind::array:
            return generate.documents();
        case Kind::config:
            return generate.configuration();
        case Kind::revision:
            return generate.revision();
        case Kind::revision_or_id:
            return choices.one_in(3) ? generate.id() : generate.revision();
        case Kind::ids:
            return generate.ids();
        case Kind::number:
            return choices.pick({"0", "1", "2", "4294967295"});
        case Kind::flag:
            return choices.pick({"false", "true"});
        default:
            return generate.id();
    }
}

}  // namespace
}  // namespace fuzzing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace fuzzing;
    Choices choices(data, size);
    Generator generate(choices);
    const Export& row = c_api::exports()[choices.below(c_api::exports().size())];
    c_api::Texts given;
    for (const c_api::Argument& taken : row.arguments) {
        std::string text = argument(generate, choices, taken.kind);
        if (row.name.ends_with("from_bulk_get") && taken.kind == Kind::sync_json) text = generate.bulk_get();
        if (row.name.ends_with("_patch") && !given.empty()) text = generate.patch();
        const bool may_be_null = taken.kind != Kind::number && taken.kind != Kind::flag;
        const bool cannot_be_opened = taken.kind == Kind::handle && !c_api::open(text).handle;
        const bool is_null = cannot_be_opened || (may_be_null && choices.one_in(40));
        given.push_back(is_null ? std::nullopt : std::optional(text));
    }
    const Answer answer = row.call(given);
    expect_sound(answer, row.gives == c_api::Gives::sync_json && row.name != "sync_json_uncompress");

    // The twin that takes handles, where the sync JSONs can be opened as they are.
    const Export* const twin = c_api::twin_of(row);
    for (std::size_t at = 0; twin != nullptr && at < given.size(); ++at) {
        if (twin->arguments[at].kind != Kind::handle) continue;
        if (!given[at] || !given[at]->starts_with('{') || !c_api::open(*given[at]).handle) return 0;
    }
    if (twin != nullptr) {
        const Answer by_handle = opened(c_api::call_in_the_name_of(row, *twin, given));
        // A bulk body that was compressed is read again as plain JSON, where "-0" is the integer 0.
        const bool loses_minus_zero = answer.value && c_api::is_compressed(*answer.value) && by_handle.value &&
                                      libzentadbpp::testing_json::may_hold_minus_zero(*by_handle.value);
        // A handle is made without being written.
        const bool is_not_written = answer.error == "invalid_revision_state_uuid_empty" && by_handle.handle;
        if (!loses_minus_zero && !is_not_written) {
            EXPECT_EQ(opened(answer), by_handle) << row.name;
        }
    }
    return 0;
}
