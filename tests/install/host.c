#include <stdio.h>
#include <zentadbpp.h>

int main(void) {
    sync_json_result stored = update_sync_json("{\"title\": \"x\"}", "{}", "{}");
    sync_json_result data = read_sync_json(stored.value, "{}");
    const int answer = data.value != NULL ? 0 : 1;
    puts(data.value != NULL ? data.value : "failed");
    free_sync_json_result(&data);
    free_sync_json_result(&stored);
    return answer;
}
