#include "libzentadbpp/frame.h"

using namespace libzentadbpp;

sync_json_result sync_json_compress(const char* object) {
    return answer([&](Call& call) {
        const WholeObject given = call.whole_object(object);
        return Call::rendered(given.written(), !given.is_compressed);
    });
}

sync_json_result sync_json_uncompress(const char* object) {
    return answer([&](Call& call) {
        return Call::rendered(call.inflated(call.whole_object(object), Inflation::reported).written());
    });
}
