// A host in plain C that knows nothing but the public header, which comes first so that it has to stand on its own.

// clang-format off
#include "zentadbpp.h"
#include "zentadbpp.h"  // twice does no harm
// clang-format on

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failures = 0;

static void check(bool holds, const char* what, int line) {
    if (holds) return;
    ++failures;
    fprintf(stderr, "%s:%d: %s\n", __FILE__, line, what);
}
#define CHECK(condition) check(condition, #condition, __LINE__)

static bool is(const char* text, const char* expected) { return text != NULL && strcmp(text, expected) == 0; }

// Takes over the record, which has to hold just this value or this error, and frees it twice.
static bool gives(sync_json_result result, const char* value, const char* error) {
    const bool matches = (value != NULL ? is(result.value, value) : result.value == NULL) &&
                         (error != NULL ? is(result.error, error) : result.error == NULL) && result.reserved == NULL;
    free_sync_json_result(&result);
    free_sync_json_result(&result);
    return matches && result.value == NULL && result.error == NULL && result.reserved == NULL;
}

static void check_library(void) {
    CHECK(is(sync_json_lib_version(), "2019-06-07") && sync_json_lib_version() == sync_json_lib_version());
    sync_json_query_result nothing = {NULL, NULL};
    free_sync_json_query_result(&nothing);
    free_sync_json_ptr(NULL);
    free_sync_json_ptr_result_all(NULL);
    sync_json_ptr_result none = sync_json_ptr_prune(NULL, 0, false);
    CHECK(none.ptr == NULL && none.error != NULL);
    free_sync_json_ptr_result_all(&none);
    CHECK(none.error == NULL);

    flatten_result flat = json_object_flatten("{\"a\": \"x\"}", "{}");
    CHECK(is(flat.value, "[{\"_id\": \"root\", \"a\": \"!x\"}]") && flat.error == NULL);
    free_flatten_result(&flat);
    free_flatten_result(&flat);
    CHECK(gives(sync_json_root("{"), NULL, "unexpected end of input"));
    CHECK(gives(sync_json_prune_ids("{}", NULL, UINT32_MAX, true), NULL, "null input"));
}

int main(void) {
    check_library();
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
