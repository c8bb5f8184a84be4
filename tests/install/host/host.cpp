#include <zentadbpp.h>

#include <iostream>
#include <memory>

using Result = std::unique_ptr<sync_json_result, decltype(&free_sync_json_result)>;

int main() {
    sync_json_result stored = update_sync_json(R"({"title": "x"})", "{}", "{}");
    const Result stored_owner(&stored, free_sync_json_result);
    sync_json_result data = read_sync_json(stored.value, "{}");
    const Result data_owner(&data, free_sync_json_result);
    if (data.value == nullptr) return 1;
    std::cout << data.value << '\n';
}
