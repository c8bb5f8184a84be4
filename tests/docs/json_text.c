// json_text json|syncjson: writes the JSON text, or the sync JSON, that it reads as the library does, so that two texts
// can be compared whatever their layout.

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zentadbpp.h>

// The library writes objects, so that any other value travels in one.
static const char before[] = "{\"text\": ";
static const char after[] = "}";

// All of the standard input, between these two.
static char* read_all(void) {
    size_t size = sizeof before - 1;
    size_t capacity = 1 << 16;
    char* text = malloc(capacity);
    if (text == NULL) return NULL;
    memcpy(text, before, size);
    for (size_t got; (got = fread(text + size, 1, capacity - size - sizeof after, stdin)) > 0;) {
        size += got;
        if (capacity - size > capacity / 2) continue;
        capacity *= 2;
        char* larger = realloc(text, capacity);
        if (larger == NULL) {
            free(text);
            return NULL;
        }
        text = larger;
    }
    memcpy(text + size, after, sizeof after);
    return text;
}

static int fail(const char* error) {
    fprintf(stderr, "%s\n", error != NULL ? error : "out of memory");
    return EXIT_FAILURE;
}

static int write_json(char* text) {
    sync_json_result value = sync_json_uncompress(text);
    // What is no value may be members of an object.
    if (value.value == NULL) memset(text + 1, ' ', sizeof before - 2);
    sync_json_result members = sync_json_uncompress(text);

    int answer = EXIT_SUCCESS;
    if (value.value != NULL) {
        const size_t size = strlen(value.value) - (sizeof before - 1) - (sizeof after - 1);
        printf("%.*s\n", (int)size, value.value + sizeof before - 1);
    } else if (members.value != NULL) {
        puts(members.value);
    } else {
        answer = fail(value.error);
    }
    free_sync_json_result(&members);
    free_sync_json_result(&value);
    return answer;
}

static int write_sync_json(char* text) {
    text[strlen(text) - (sizeof after - 1)] = '\0';
    sync_json_ptr_result opened = new_sync_json_ptr(text + sizeof before - 1);
    if (opened.ptr == NULL) {
        const int answer = fail(opened.error);
        free_sync_json_ptr_result(&opened);
        return answer;
    }
    int answer = EXIT_SUCCESS;
    sync_json_result data = read_sync_json_ptr(opened.ptr, "{\"preserve_old_ordering\": true}");
    char* written = dump_sync_json_ptr(opened.ptr);
    if (data.value == NULL) answer = fail(data.error);
    if (written == NULL) answer = fail(NULL);
    if (written != NULL) puts(written);
    free(written);
    free_sync_json_result(&data);
    free_sync_json_ptr_result_all(&opened);
    return answer;
}

int main(int count, char** arguments) {
    char* text = read_all();
    if (text == NULL) return fail(NULL);
    const int answer = count == 2 && strcmp(arguments[1], "syncjson") == 0 ? write_sync_json(text) : write_json(text);
    free(text);
    return answer;
}
