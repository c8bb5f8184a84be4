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

// Whether a text is the error record of that function with that key, byte for byte but for the line.
static bool is_record(const char* text, const char* function, const char* key, const char* args) {
    static const char head[] = "{ \"filename\" : \"src/libzentadbpp\", \"line\": ";
    char rest[256];
    if (text == NULL || strncmp(text, head, strlen(head)) != 0) return false;
    text += strlen(head);
    if (*text < '1' || *text > '9') return false;
    text += strspn(text, "0123456789");
    snprintf(rest, sizeof rest, ", \"function\" : \"%s\", \"error\" : \"%s\"%s%s%s }", function, key,
             args == NULL ? "" : ", \"args\" : \"", args == NULL ? "" : args, args == NULL ? "" : "\"");
    return strcmp(text, rest) == 0;
}

// Each takes over the record: checks that it holds just this value or error, and frees it twice.
static bool gives(sync_json_result result, const char* expected) {
    const bool matches = is(result.value, expected) && result.error == NULL && result.reserved == NULL;
    const char* got = result.error != NULL ? result.error : result.value;
    if (!matches) fprintf(stderr, "got %s\n", got != NULL ? got : "nothing");
    free_sync_json_result(&result);
    free_sync_json_result(&result);
    return matches && result.value == NULL && result.error == NULL && result.reserved == NULL;
}

static bool fails(sync_json_result result, const char* expected) {
    const bool matches = result.value == NULL && is(result.error, expected) && result.reserved == NULL;
    free_sync_json_result(&result);
    free_sync_json_result(&result);
    return matches && result.error == NULL;
}

static bool fails_with_record(sync_json_result result, const char* function, const char* key, const char* args) {
    const bool matches = result.value == NULL && is_record(result.error, function, key, args);
    free_sync_json_result(&result);
    return matches;
}

static bool makes_no_handle(sync_json_ptr_result result, const char* function, const char* key) {
    const bool matches = result.ptr == NULL && is_record(result.error, function, key, NULL);
    free_sync_json_ptr_result(&result);
    free_sync_json_ptr_result(&result);
    return matches && result.error == NULL;
}

static void check_library(void) {
    CHECK(is(sync_json_lib_version(), "2019-06-07"));
    CHECK(sync_json_lib_version() == sync_json_lib_version());

    sync_json_query_result nothing = {NULL, NULL};
    free_sync_json_query_result(&nothing);
    free_sync_json_ptr(NULL);
    free_sync_json_ptr_result_all(NULL);
    CHECK(dump_sync_json_ptr(NULL) == NULL);
}

static void check_null_and_malformed_arguments(void) {
    CHECK(fails(sync_json_root(NULL), "null input"));
    CHECK(fails(sync_json_root(""), "invalid string_view position"));
    CHECK(fails(sync_json_root("{"), "unexpected end of input"));
    CHECK(fails(sync_json_winning("{}", NULL), "null input"));
    CHECK(fails(sync_json_prune_ids("{}", NULL, UINT32_MAX, true), "null input"));
    CHECK(fails_with_record(sync_json_winning("42", "a"), "sync_json_winning", "document_not_found", "a"));
    CHECK(fails_with_record(update_sync_json("{}", NULL, "[]"), "update_sync_json", "config_is_not_an_object", NULL));
    CHECK(
        fails_with_record(replicate_sync_json(NULL, NULL, "{}"), "replicate_sync_json", "null_source_syncjson", NULL));
    CHECK(fails_with_record(sync_json_ptr_root(NULL), "sync_json_ptr_root", "invalid_sync_json_ptr", NULL));
    CHECK(makes_no_handle(sync_json_ptr_prune(NULL, 0, false), "sync_json_ptr_prune", "invalid_sync_json_ptr"));

    flatten_result flat = json_object_flatten("[]", "{}");
    CHECK(flat.value == NULL && is(flat.error, "expecting_object_as_input_to_flatten"));
    free_flatten_result(&flat);
    free_flatten_result(&flat);
    CHECK(flat.error == NULL);
}

static void check_round_trip(void) {
    flatten_result flat = json_object_flatten("{\"a\": \"x\"}", "{}");
    CHECK(is(flat.value, "[{\"_id\": \"root\", \"a\": \"!x\"}]") && flat.error == NULL);
    flatten_result data = json_array_unflatten(flat.value, "{\"discard_id\": true}", NULL);
    CHECK(is(data.value, "{\"a\": \"x\"}") && data.error == NULL);
    free_flatten_result(&flat);
    free_flatten_result(&data);

    sync_json_result first = update_sync_json("{\"a\": \"x\"}", "{}", "{}");
    CHECK(first.value != NULL && first.error == NULL);
    CHECK(gives(read_sync_json(first.value, "{}"), "{\"_id\": \"root\", \"a\": \"x\"}"));

    sync_json_result packed = sync_json_compress(first.value);
    CHECK(packed.value != NULL && strcmp(packed.value, first.value) != 0);
    CHECK(gives(sync_json_uncompress(packed.value), first.value));
    free_sync_json_result(&packed);
    free_sync_json_result(&first);
}

// The handle that an update made outlives the one that it was made from, and neither shows in the other.
static void check_handles(void) {
    sync_json_result text = update_sync_json("{\"a\": \"x\"}", "{}", "{}");
    sync_json_ptr_result opened = new_sync_json_ptr(text.value);
    CHECK(opened.ptr != NULL && opened.error == NULL && opened.reserved == NULL);

    sync_json_ptr_result updated = update_sync_json_ptr("{\"a\": \"y\"}", opened.ptr, "{}");
    CHECK(updated.ptr != NULL && updated.error == NULL);
    CHECK(gives(sync_json_ptr_updated(updated.ptr, opened.ptr), "root"));
    CHECK(fails_with_record(sync_json_ptr_created(updated.ptr, NULL), "sync_json_ptr_created",
                            "invalid_old_sync_json_ptr", NULL));
    CHECK(makes_no_handle(replicate_sync_json_ptr(opened.ptr, NULL, "{}"), "replicate_sync_json_ptr",
                          "invalid_target_sync_json_ptr"));

    char* dumped = dump_sync_json_ptr(opened.ptr);
    CHECK(is(dumped, text.value));
    free(dumped);
    free_sync_json_result(&text);

    // The texts go, the handle stays.
    free_sync_json_ptr_result(&opened);
    CHECK(gives(sync_json_ptr_root(opened.ptr), "root"));
    free_sync_json_ptr(opened.ptr);

    sync_json_ptr_result pruned = sync_json_ptr_prune(updated.ptr, 1, true);
    CHECK(gives(sync_json_ptr_available(pruned.ptr, "root"), "false"));
    CHECK(gives(sync_json_ptr_available(updated.ptr, "root"), "true"));
    free_sync_json_ptr_result_all(&pruned);
    CHECK(gives(read_sync_json_ptr(updated.ptr, "{\"discard_id\": true}"), "{\"a\": \"y\"}"));
    free_sync_json_ptr_result_all(&updated);
}

int main(void) {
    check_library();
    check_null_and_malformed_arguments();
    check_round_trip();
    check_handles();
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
