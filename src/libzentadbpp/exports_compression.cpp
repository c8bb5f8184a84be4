#include "json/writer.h"
#include "libzentadbpp/frame.h"

using namespace libzentadbpp;

sync_json_result sync_json_compress(const char* object) {
    return answer("sync_json_compress", [&](Call& call) {
        const WholeObject given = call.whole_object(object);
        return given.is_compressed ? Call::rendered(given.written()) : Call::compressed(given.written());
    });
}

sync_json_result sync_json_uncompress(const char* object) {
    return answer("sync_json_uncompress", [&](Call& call) {
        return Call::rendered(call.inflated(call.whole_object(object), Inflation::reported).written());
    });
}
