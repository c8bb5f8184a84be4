/* Two copies of a shopping list are edited independently and merged: a minimal host. */

#include <stdio.h>
#include <zentadbpp.h>

int main(void) {
    const char* config = "{\"instance_id\": \"me\"}";
    sync_json_result first = update_sync_json("{\"list\": [{\"_id\": \"1\", \"buy\": \"milk\"}]}", "{}", config);

    /* One copy edits the entry, the other adds one. */
    sync_json_result phone =
        update_sync_json("{\"list\": [{\"_id\": \"1\", \"buy\": \"oat milk\"}]}", first.value, config);
    sync_json_result laptop = update_sync_json(
        "{\"list\": [{\"_id\": \"1\", \"buy\": \"milk\"}, {\"_id\": \"2\", \"buy\": \"bread\"}]}", first.value, config);

    sync_json_result merged = replicate_sync_json(phone.value, laptop.value, config);
    sync_json_result data = read_sync_json(merged.value, config);

    sync_json_result* all[] = {&first, &phone, &laptop, &merged, &data};
    int failed = 0;
    puts(data.value != NULL ? data.value : "failed");
    for (size_t i = 0; i < sizeof all / sizeof all[0]; ++i) {
        if (all[i]->value == NULL) {
            fprintf(stderr, "%s\n", all[i]->error != NULL ? all[i]->error : "out of memory");
            failed = 1;
        }
        free_sync_json_result(all[i]);
    }
    return failed;
}
