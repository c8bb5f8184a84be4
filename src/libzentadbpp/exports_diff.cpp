#include "libzentadbpp/frame.h"
#include "replication/sync_json_diff.h"

using namespace libzentadbpp;

sync_json_result sync_json_diff(const char* before, const char* after, const char* config) {
    return answer([&](Call& call) {
        const JsonValue configuration = call.configuration(config);
        const WholeObject given_before = call.whole_object(before);
        const WholeObject given_after = call.whole_object(after);
        const WholeObject open_before = call.inflated(given_before, Inflation::reported);
        const WholeObject open_after = call.inflated(given_after, Inflation::reported);
        TextBuffer diff;
        write_diff(open_before.value, open_after.value, diff);
        return Call::rendered(std::move(diff), asks_for_compression(configuration));
    });
}

sync_json_result sync_json_patch(const char* before, const char* patch) {
    return answer([&](Call& call) {
        const WholeObject given_before = call.whole_object(before);
        const WholeObject given_patch = call.whole_object(patch);
        const WholeObject open_before = call.inflated(given_before, Inflation::reported);
        const WholeObject open_patch = call.inflated(given_patch, Inflation::reported);
        TextBuffer patched;
        write_patched(open_before.value, open_patch.value, patched);
        return Call::rendered(std::move(patched), given_before.is_compressed);
    });
}
