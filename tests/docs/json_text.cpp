// json_text json|syncjson: writes the JSON text, or the sync JSON, that it reads as the library does, so that two texts
// can be compared whatever their layout.

#include <zentadbpp.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>

namespace {

int fail(const char* error) {
    std::cerr << (error != nullptr ? error : "out of memory") << '\n';
    return EXIT_FAILURE;
}

using Result = std::unique_ptr<sync_json_result, decltype(&free_sync_json_result)>;

int write_json(const std::string& text) {
    // The library writes objects, so any other value is wrapped in one. A text that is not a value may be members of
    // one.
    const std::string_view before = "{\"text\": ";
    sync_json_result value = sync_json_uncompress((std::string(before) + text + "}").c_str());
    sync_json_result members = sync_json_uncompress(("{" + text + "}").c_str());
    const Result value_owner(&value, free_sync_json_result);
    const Result members_owner(&members, free_sync_json_result);
    if (value.value == nullptr && members.value == nullptr) return fail(value.error);
    std::string_view written = value.value != nullptr ? value.value : members.value;
    if (value.value != nullptr) written = written.substr(before.size(), written.size() - before.size() - 1);
    std::cout << written << '\n';
    return EXIT_SUCCESS;
}

int write_sync_json(const std::string& text) {
    sync_json_ptr_result opened = new_sync_json_ptr(text.c_str());
    const std::unique_ptr<sync_json_ptr_result, decltype(&free_sync_json_ptr_result_all)> owner(
        &opened, free_sync_json_ptr_result_all);
    if (opened.ptr == nullptr) return fail(opened.error);
    sync_json_result data = read_sync_json_ptr(opened.ptr, "{\"preserve_old_ordering\": true}");
    const Result data_owner(&data, free_sync_json_result);
    const std::unique_ptr<char, decltype(&std::free)> written(dump_sync_json_ptr(opened.ptr), std::free);
    if (data.value == nullptr || !written) return fail(data.error);
    std::cout << written.get() << '\n';
    return EXIT_SUCCESS;
}

}  // namespace

int main(int count, char** arguments) {
    const std::string text{std::istreambuf_iterator<char>(std::cin), {}};
    return count == 2 && std::string_view(arguments[1]) == "syncjson" ? write_sync_json(text) : write_json(text);
}
