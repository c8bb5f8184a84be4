#include "inspect/below.h"

#include <algorithm>
#include <optional>

#include "cli/table.h"
#include "cli/terminal.h"
#include "inspect/homeless.h"

namespace zentadb {

namespace {

using nlohmann::json;

std::string_view hash_of_name(std::string_view revision) {
    const std::size_t begin = revision.find('-') + 1;
    return revision.substr(begin, revision.rfind('_') - begin);
}

// The ids that data does not show. Nothing where it cannot be read.
std::optional<std::set<std::string>> hidden_in(zentadbpp::Handle& handle) {
    json config{{"preserve_old_ordering", true}};
    const zentadbpp::List instances = handle.instances();
    if (instances.size() == 1) config["instance_id"] = instances[0];
    try {
        return homeless(handle, handle.read(config.dump()));
    } catch (const zentadbpp::Error&) {
        return std::nullopt;
    }
}

std::string some_of(const std::vector<std::string>& ids) {
    constexpr std::size_t enough = 5;
    std::string text;
    for (std::size_t at = 0; at < std::min(ids.size(), enough); ++at) {
        text.append(text.empty() ? "" : ", ").append(printable(ids[at]));
    }
    return text + (ids.size() > enough ? ", ..." : "");
}

}  // namespace

Below::Below(const zentadbpp::Handle& handle, const Inside& inside) : handle_(handle) {
    for (const Entry& content : inside.contents()) contents_.emplace(content.key, content.value);
    for (const Entry& document : inside.histories()) {
        documents_.emplace(document.key, &document);
        if (!is_ordering(document.key)) continue;
        const RevisionTree tree(document.value);
        for (const Revision& revision : tree.revisions()) {
            const auto content = revision.is_leaf() ? contents_.find(revision.hash()) : contents_.end();
            if (content == contents_.end()) continue;
            const json list = json::parse(content->second, nullptr, false);
            if (!list.is_object() || !list.contains("d") || !list["d"].is_string() || !list.contains("s")) continue;
            for (const json& id : list["s"]) {
                if (id.is_string()) lists_[list["d"].get<std::string>()].push_back(id.get<std::string>());
            }
        }
    }
}

std::vector<std::string> Below::next_of(std::string_view hash) const {
    std::vector<std::string> ids;
    const auto content = contents_.find(hash);
    if (content == contents_.end()) return ids;
    const json parsed = json::parse(content->second, nullptr, false);
    std::vector<const json*> left{&parsed};
    while (!left.empty()) {
        const json& value = *left.back();
        left.pop_back();
        if (value.is_string()) {
            const auto& text = value.get_ref<const std::string&>();
            if (text.starts_with('O')) ids.push_back(text.substr(1));
            const auto list = text.starts_with('A') ? lists_.find(text.substr(1)) : lists_.end();
            if (list != lists_.end()) ids.insert(ids.end(), list->second.begin(), list->second.end());
        }
        if (!value.is_structured() || (value.is_object() && value.contains("#nf"))) continue;
        for (const json& inner : value) left.push_back(&inner);
    }
    return ids;
}

std::set<std::string> Below::of(const std::string& id, const Revision& version) const {
    std::set<std::string> found;
    std::vector<std::string> left = next_of(version.hash());
    while (!left.empty()) {
        const std::string next = std::move(left.back());
        left.pop_back();
        if (next == id || !documents_.contains(next) || found.contains(next)) continue;
        const zentadbpp::Value winner = handle_.winning(next);
        const std::string_view hash = hash_of_name(winner);
        if (hash == "deleted") continue;
        found.insert(next);
        for (std::string& further : next_of(hash)) left.push_back(std::move(further));
    }
    return found;
}

std::vector<std::string> hidden_notices(const zentadbpp::Handle& before, zentadbpp::Handle& after,
                                        const std::string& name) {
    const zentadbpp::List unresolved = after.unresolved();
    const Inside inside(after);
    // Without either, all that is live is shown.
    if (unresolved.empty() && inside.text().find("\"deleted_") == std::string_view::npos) return {};
    std::optional<std::set<std::string>> hidden = hidden_in(after);
    if (!hidden || hidden->empty()) return {};

    std::vector<std::string> notices;
    std::set<std::string> in_losing;
    if (!unresolved.empty()) {
        const Below below(after, inside);
        for (const std::string_view view : unresolved) {
            const std::string id(view);
            const RevisionTree tree = inside.tree(id);
            for (const std::string_view loser : after.conflicting(id)) {
                in_losing.merge(below.of(id, tree[tree.find(loser)]));
            }
        }
    }
    const std::size_t all = hidden->size();
    std::erase_if(*hidden, [&](const std::string& id) { return in_losing.contains(id); });
    if (const std::size_t count = all - hidden->size(); count > 0) {
        notices.push_back(counted(count, "document") + (count == 1 ? " is" : " are") + " only in a losing version; " +
                          (count == 1 ? "it comes" : "they come") + " back if that is kept");
    }
    if (hidden->empty()) return notices;

    // What was hidden before and did not change was reported before.
    std::set<std::string> changed;
    for (const zentadbpp::List& ids : {after.created(before), after.updated(before)}) {
        for (const std::string_view id : ids) changed.emplace(id);
    }
    zentadbpp::Handle older(before.dump());
    const std::set<std::string> hidden_before = hidden_in(older).value_or(std::set<std::string>{});
    std::vector<std::string> news;
    for (const std::string& id : *hidden) {
        if (changed.contains(id) || !hidden_before.contains(id)) news.push_back(id);
    }
    if (!news.empty()) {
        notices.push_back(counted(news.size(), "document") + " with changes" + (news.size() == 1 ? " lies" : " lie") +
                          " in something that was removed: " + some_of(news) + "; zentadb show " + printable(name) +
                          " " + printable(news.front()) + " shows " + (news.size() == 1 ? "it" : "the first"));
    }
    return notices;
}

}  // namespace zentadb
