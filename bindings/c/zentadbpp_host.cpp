#include "zentadbpp_host.h"

#include <cstdlib>
#include <cstring>
#include <zentadbpp.hpp>
#include <zentadbpp_verify.hpp>

namespace {

using zentadbpp::Json;

// free_sync_json_result releases it, like texts of the library.
char* copied(const char* text, std::size_t size) noexcept {
    char* copy = static_cast<char*>(std::malloc(size + 1));
    if (copy != nullptr) std::memcpy(copy, text, size + 1);
    return copy;
}

template <typename Body>
sync_json_result answer(const Body& body) noexcept {
    sync_json_result result{};
    try {
        const std::string text = body().dump();
        if (text.find('\0') != std::string::npos) throw zentadbpp::Error("text_contains_nul");
        result.value = copied(text.c_str(), text.size());
    } catch (const std::exception& error) {
        result.error = copied(error.what(), std::strlen(error.what()));
    } catch (...) {
        result.error = copied("unknown_failure", std::strlen("unknown_failure"));
    }
    return result;
}

Json json_or_null(const std::optional<std::string>& text) { return text ? Json::parse(*text) : Json(); }

Json value_of(const std::optional<std::string>& text) {
    Json value = Json::object();
    if (text) value.set("value", Json::parse(*text));
    return value;
}

Json object_of(const zentadbpp::Difference& difference) {
    Json object = Json::object();
    object.set("id", Json::of(difference.id));
    object.set("place", Json::of(difference.place));
    object.set("reason", Json::of(difference.reason));
    return object;
}

Json object_of(const zentadbpp::ThreeWay::Version& version) {
    Json object = Json::object();
    object.set("content", json_or_null(version.content));
    object.set("deleted", Json::boolean(version.deleted));
    object.set("revision", Json::of(version.revision));
    return object;
}

Json object_of(const zentadbpp::ThreeWay::Clash& clash) {
    Json object = Json::object();
    Json versions = Json::array();
    for (const std::optional<std::string>& value : clash.versions) versions.items.push_back(value_of(value));
    object.set("common", value_of(clash.common));
    object.set("place", Json::of(clash.place));
    object.set("versions", std::move(versions));
    return object;
}

template <typename Items>
Json array_of(const Items& items) {
    Json array = Json::array();
    for (const auto& item : items) array.items.push_back(object_of(item));
    return array;
}

}  // namespace

sync_json_result zentadbpp_check(const char* data, const char* config, const char* sync_json) {
    return answer([&] { return array_of(zentadbpp::check(data, config, sync_json)); });
}

sync_json_result zentadbpp_three_way(const char* sync_json, const char* id, const char* config) {
    return answer([&] {
        const zentadbpp::ThreeWay help = zentadbpp::three_way(sync_json, id, config);
        Json object = Json::object();
        object.set("clashes", array_of(help.clashes));
        object.set("common", object_of(help.common));
        object.set("id", Json::of(help.id));
        object.set("merged", json_or_null(help.merged));
        object.set("versions", array_of(help.versions));
        return object;
    });
}

sync_json_result zentadbpp_verify(const char* sync_json, const char* known) {
    return answer([&] {
        Json names = Json::array();
        for (std::string& name : zentadbpp::verify(sync_json, known)) names.items.push_back(Json::of(std::move(name)));
        return names;
    });
}
