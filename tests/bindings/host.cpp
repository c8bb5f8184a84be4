// host FILE: what libzentadbpp_host does, and with it the header for C++, on the cases in the file.

#include <zentadbpp_host.h>

#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <zentadbpp.hpp>

namespace {

using nlohmann::json;

// What copies come to that made these updates one after the other, and were merged.
std::string store_of(const json& copies, const std::string& config) {
    zentadbpp::Handle store("{}");
    for (const json& updates : copies) {
        zentadbpp::Handle copy("{}");
        for (const json& data : updates) copy = copy.update(data.dump(), config);
        store = zentadbpp::replicate(copy, store);
    }
    return store.dump().str();
}

json outcome(sync_json_result result) {
    const zentadbpp::Record<sync_json_result> record(result);
    return result.value != nullptr ? json::parse(result.value) : json(result.error);
}

json given(const json& each) {
    const std::string config = each.value("config", json::object()).dump();
    const std::string store = store_of(each["copies"], config);
    if (each.contains("check") || each.contains("check_text")) {
        const std::string data = each.contains("check") ? each["check"].dump() : each["check_text"].get<std::string>();
        return outcome(zentadbpp_check(data.c_str(), config.c_str(), store.c_str()));
    }
    json help = outcome(zentadbpp_three_way(store.c_str(), each["three_way"].get<std::string>().c_str(), "{}"));
    json wanted = json::object();
    for (const auto& [name, value] : each["json"].items()) wanted[name] = help[name];
    return wanted;
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) return 2;
    std::ifstream file(arguments[1]);
    const json cases = json::parse(file);
    int failures = 0;
    const auto expect = [&](const std::string& what, const json& wanted, const json& found) {
        if (wanted == found) return;
        ++failures;
        std::cerr << what << ": gives " << found << '\n';
    };
    for (const json& each : cases) expect(each["what"], each["json"], given(each));
    expect("null", "null input", outcome(zentadbpp_check(nullptr, "{}", "{}")));
    expect("null", "null input", outcome(zentadbpp_check("{}", nullptr, "{}")));
    expect("null", "null input", outcome(zentadbpp_three_way("{}", nullptr, "{}")).get<std::string>().substr(0, 10));
    expect("no JSON", "unexpected end of input", outcome(zentadbpp_check("[", "{}", "{}")));
    std::cout << cases.size() << " cases checked, " << failures << " failures\n";
    return failures == 0 && !cases.empty() ? 0 : 1;
}
