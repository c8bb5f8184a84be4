#include "host/salvage.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "integrity.h"

namespace zentadb {

namespace {

using nlohmann::json;

struct Parts {
    std::map<std::string, json> histories;
    std::map<std::string, json> contents;
    std::string root;
    std::size_t stopped_at = 0;
};

// The entries of a sync JSON, as many as stand whole before the text goes wrong.
Parts parts_of(const std::string& text) {
    Parts parts;
    std::string part;
    std::string key;
    const auto take = [&](int depth, json::parse_event_t event, json& parsed) {
        if (event == json::parse_event_t::key) {
            if (depth == 1) part = parsed.get<std::string>();
            if (depth == 2) key = parsed.get<std::string>();
            return true;
        }
        const bool is_end = event == json::parse_event_t::object_end || event == json::parse_event_t::array_end ||
                            event == json::parse_event_t::value;
        if (is_end && depth == 1 && part == "r" && parsed.is_string()) parts.root = parsed.get<std::string>();
        if (!is_end || depth != 2 || (part != "d" && part != "o")) return true;
        (part == "d" ? parts.histories : parts.contents)[key] = std::move(parsed);
        return false;
    };
    try {
        const json rest = json::parse(text, take);
    } catch (const json::parse_error& error) {
        parts.stopped_at = error.byte;
    } catch (const json::exception&) {
        parts.stopped_at = text.size();
    }
    return parts;
}

// Whether a set with just this history and this content is in order.
bool is_whole(const json& history, const std::string& hash, const json& content) {
    json set{{"d", {{"x", history}}}, {"o", json::object()}, {"r", "x"}};
    if (!hash.empty()) set["o"][hash] = content;
    const IntegrityReport report = check_integrity(set.dump(-1, ' ', false, json::error_handler_t::ignore));
    return report.refused.empty() && std::ranges::none_of(report.findings, [&](const Finding& finding) {
               return hash.empty() ? finding.trouble == Trouble::wrong_suffix
                                   : finding.trouble == Trouble::wrong_content;
           });
}

}  // namespace

Salvage salvage(const std::string& text) {
    Parts parts = parts_of(text);
    Salvage result;
    result.stopped_at = parts.stopped_at;
    std::erase_if(parts.histories, [&](const auto& entry) {
        const bool keeps = entry.second.is_array() && is_whole(entry.second, {}, {});
        if (!keeps) result.damaged.push_back("the history of document " + entry.first);
        return !keeps;
    });
    std::erase_if(parts.contents, [&](const auto& entry) {
        const bool keeps =
            entry.second.is_object() && is_whole(json::array({entry.first + "_first"}), entry.first, entry.second);
        if (!keeps) result.damaged.push_back("content " + entry.first);
        return !keeps;
    });
    result.histories = parts.histories.size();
    result.contents = parts.contents.size();
    // The root comes last in a text, and is the first to go where it breaks off.
    if (!parts.histories.contains(parts.root)) parts.root = "root";
    if (!parts.histories.contains(parts.root)) return result;
    const json set{{"d", std::move(parts.histories)}, {"o", std::move(parts.contents)}, {"r", parts.root}};
    result.sync_json = set.dump();
    return result;
}

}  // namespace zentadb
