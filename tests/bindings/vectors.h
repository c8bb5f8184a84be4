// The checks of the C program that is made from the vectors. Each gets what a call gave: a text, or null and an error.

#pragma once

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zentadbpp.h>

static int checked = 0;
static int failed = 0;

static void check(bool holds, const char* where, const char* expected, const char* value, const char* error) {
    ++checked;
    if (holds) return;
    ++failed;
    fprintf(stderr, "%s\n  expected %s\n  value    %s\n  error    %s\n", where, expected != NULL ? expected : "(null)",
            value != NULL ? value : "(null)", error != NULL ? error : "(null)");
}

static inline void gives(const char* where, const char* expected, const char* value, const char* error) {
    check(value != NULL && strcmp(value, expected) == 0 && error == NULL, where, expected, value, error);
}

static inline void succeeds(const char* where, const char* expected, const char* value, const char* error) {
    check(value != NULL && error == NULL, where, expected, value, error);
}

// With this text, or with none at all.
static inline void fails(const char* where, const char* expected, const char* value, const char* error) {
    const bool same = expected == NULL ? error == NULL : error != NULL && strcmp(error, expected) == 0;
    check(value == NULL && same, where, expected, value, error);
}

static inline bool is_record(const char* expected, const char* error) {
    const char* found = error != NULL ? strstr(error, "\"function\" : \"") : NULL;
    return found != NULL && strncmp(error, "{ \"filename\" : \"", 16) == 0 && strcmp(found, expected) == 0;
}

// With a record that goes on so after the line number.
static inline void fails_with_record(const char* where, const char* expected, const char* value, const char* error) {
    check(value == NULL && is_record(expected, error), where, expected, value, error);
}

// The same, beside a result with what did not fail.
static inline void fails_in_part(const char* where, const char* expected, const char* value, const char* error) {
    check(value != NULL && is_record(expected, error), where, expected, value, error);
}

static inline sync_json_ptr opened(const char* text) {
    sync_json_ptr_result result = new_sync_json_ptr(text);
    check(result.ptr != NULL, text, "a handle", NULL, result.error);
    sync_json_ptr handle = result.ptr;
    free_sync_json_ptr_result(&result);
    return handle;
}

static inline int report(void) {
    printf("%d calls checked, %d failed\n", checked, failed);
    return failed == 0 && checked > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
