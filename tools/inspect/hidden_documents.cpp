#include "inspect/hidden_documents.h"

#include <algorithm>
#include <optional>

#include "cli/table.h"
#include "cli/terminal.h"
#include "inspect/references.h"
#include "store/json_text.h"

namespace zentadb {

namespace {

using nlohmann::json;

void remove_shown(const json& data, std::set<std::string>& ids) {
    std::vector<const json*> left{&data};
    while (!left.empty() && !ids.empty()) {
        const json& value = *left.back();
        left.pop_back();
        if (!value.is_structured()) continue;
        if (const std::string* id = string_member(value, "_id")) ids.erase(*id);
        for (const json& each : value) left.push_back(&each);
    }
}

// The same for the data as it is now. Nothing if it cannot be read.
std::optional<std::set<std::string>> hidden_now(zentadbpp::Handle& handle) {
    json config{{"preserve_old_ordering", true}};
    const zentadbpp::List instances = handle.instances();
    if (instances.size() == 1) config["instance_id"] = instances[0];
    try {
        return hidden_in(handle, handle.read(config.dump()));
    } catch (const zentadbpp::Error&) {
        return std::nullopt;
    }
}

}  // namespace

std::set<std::string> hidden_in(const zentadbpp::Handle& handle, const zentadbpp::Value& data) {
    std::set<std::string> ids;
    const SyncJson sync_json(handle);
    for (const Entry& document : sync_json.documents()) {
        if (is_ordering(document.key)) continue;
        if (!is_deletion(handle.winning(document.key))) ids.insert(document.key);
    }
    remove_shown(json::parse(data.view(), nullptr, false), ids);
    return ids;
}

Below::Below(const zentadbpp::Handle& handle, const SyncJson& sync_json) : handle_(handle), sync_json_(sync_json) {
    for (const Entry& document : sync_json.documents()) {
        if (!is_ordering(document.key)) continue;
        const RevisionTree tree(document.value);
        for (const Revision& revision : tree.revisions()) {
            const Entry* content = revision.is_leaf() ? sync_json.content(revision.hash()) : nullptr;
            if (content == nullptr) continue;
            const auto list = list_in(json::parse(content->value, nullptr, false));
            if (!list) continue;
            auto& elements = lists_[list->domain];
            elements.insert(elements.end(), list->elements.begin(), list->elements.end());
        }
    }
}

std::vector<std::string> Below::next_of(std::string_view hash) const {
    const Entry* content = sync_json_.content(hash);
    if (content == nullptr) return {};
    auto [ids, domains] = references_in(json::parse(content->value, nullptr, false));
    for (const std::string& domain : domains) {
        const auto list = lists_.find(domain);
        if (list != lists_.end()) ids.insert(ids.end(), list->second.begin(), list->second.end());
    }
    return ids;
}

std::set<std::string> Below::of(const std::string& id, const Revision& version) const {
    std::set<std::string> found;
    std::vector<std::string> left = next_of(version.hash());
    while (!left.empty()) {
        const std::string next = std::move(left.back());
        left.pop_back();
        if (next == id || sync_json_.document(next) == nullptr || found.contains(next)) continue;
        const zentadbpp::Value winner = handle_.winning(next);
        if (is_deletion(winner)) continue;
        found.insert(next);
        for (std::string& further : next_of(hash_in(entry_in(winner)))) left.push_back(std::move(further));
    }
    return found;
}

std::vector<std::string> hidden_notices(const zentadbpp::Handle& before, zentadbpp::Handle& after,
                                        const std::string& name) {
    const zentadbpp::List unresolved = after.unresolved();
    const SyncJson sync_json(after);
    // Without either, all that is live is shown.
    if (unresolved.empty() && sync_json.text().find("\"deleted_") == std::string_view::npos) return {};
    std::optional<std::set<std::string>> hidden = hidden_now(after);
    if (!hidden || hidden->empty()) return {};

    std::vector<std::string> notices;
    std::set<std::string> in_losing;
    if (!unresolved.empty()) {
        const Below below(after, sync_json);
        for (const std::string_view view : unresolved) {
            const std::string id(view);
            const RevisionTree tree = sync_json.tree(id);
            for (const std::string_view loser : after.conflicting(id)) {
                in_losing.merge(below.of(id, tree[tree.find(loser)]));
            }
        }
    }
    const std::size_t all = hidden->size();
    std::erase_if(*hidden, [&](const std::string& id) { return in_losing.contains(id); });
    if (const std::size_t count = all - hidden->size(); count > 0) {
        notices.push_back(counted(count, "document") + (count == 1 ? " is" : " are") + " only in a losing version; " +
                          (count == 1 ? "it comes" : "they come") + " back if that version is kept");
    }
    if (hidden->empty()) return notices;

    // What was hidden before and did not change was reported before.
    std::set<std::string> changed;
    for (const zentadbpp::List& ids : {after.created(before), after.updated(before)}) {
        for (const std::string_view id : ids) changed.emplace(id);
    }
    zentadbpp::Handle older(before.dump());
    const std::set<std::string> hidden_before = hidden_now(older).value_or(std::set<std::string>{});
    std::vector<std::string> news;
    for (const std::string& id : *hidden) {
        if (changed.contains(id) || !hidden_before.contains(id)) news.push_back(id);
    }
    if (!news.empty()) {
        notices.push_back(counted(news.size(), "document") + " with changes" + (news.size() == 1 ? " lies" : " lie") +
                          " in something that was removed: " + printable(comma_list(news, 5)) + "; zentadb show " +
                          printable(name) + " " + printable(news.front()) + " shows " +
                          (news.size() == 1 ? "it" : "the first"));
    }
    return notices;
}

std::size_t documents_back(const zentadbpp::Handle& before, const zentadbpp::Handle& after) {
    zentadbpp::Handle older(before.dump());
    zentadbpp::Handle newer(after.dump());
    const auto hidden_before = hidden_now(older);
    if (!hidden_before || hidden_before->empty()) return 0;
    const auto hidden_after = hidden_now(newer);
    if (!hidden_after) return 0;
    return static_cast<std::size_t>(std::ranges::count_if(*hidden_before, [&](const std::string& id) {
        return !hidden_after->contains(id) && !is_deletion(newer.winning(id));
    }));
}

}  // namespace zentadb
