#include "resolve/version_merge.h"

#include <algorithm>
#include <unordered_map>
#include <zentadbpp_verify.hpp>

#include "cli/failure.h"
#include "resolve/stored_content.h"

namespace zentadb {

using zentadbpp::Json;

namespace {

// Newest first.
std::vector<std::size_t> path_to(const RevisionTree& tree, std::size_t version) {
    std::vector<std::size_t> path;
    for (std::size_t at = version; at != Revision::none; at = tree[at].parent) path.push_back(at);
    return path;
}

Json entry_of(const Revision& revision) { return Json::of(std::string(revision.entry())); }

// Of the kind of hash that the parent's content has.
std::string hash_like(std::string_view parent, const std::string& content) {
    return content == "{}" ? "empty" : zentadbpp::hash_of(content, zentadbpp::hash_kind(parent));
}

}  // namespace

std::vector<std::size_t> open_versions(const zentadbpp::Handle& handle, const std::string& id,
                                       const RevisionTree& tree) {
    const zentadbpp::List losers = handle.conflicting(id);
    if (losers.empty()) return {tree.find(handle.winning(id))};
    std::unordered_map<std::string_view, std::size_t> by_name;
    for (std::size_t index = 0; index < tree.revisions().size(); ++index) by_name.try_emplace(tree[index].name, index);
    std::vector<std::size_t> versions{by_name.at(handle.winning(id).view())};
    for (const std::string_view loser : losers) versions.push_back(by_name.at(loser));
    return versions;
}

zentadbpp::MergedVersions merge_of(const SyncJson& sync_json, const RevisionTree& tree,
                                   const std::vector<std::size_t>& versions) {
    std::map<std::string, std::size_t, std::less<>> by_name;
    std::vector<std::vector<std::string>> histories;
    for (const std::size_t version : versions) {
        std::vector<std::string>& history = histories.emplace_back();
        for (const std::size_t index : path_to(tree, version)) {
            history.push_back(tree[index].name);
            by_name.try_emplace(tree[index].name, index);
        }
    }
    return zentadbpp::merge_versions(histories, [&](const std::string& name) -> std::optional<Json> {
        const auto found = by_name.find(name);
        return found == by_name.end() ? std::nullopt : content_of(sync_json, tree[found->second]);
    });
}

void Resolution::add(const std::string& id, const RevisionTree& tree, std::size_t winner, const Json& content) {
    const Revision& parent = tree[winner];
    const std::string stored = stored_from(content);
    const std::string hash = hash_like(parent.hash(), stored);
    if (hash == parent.hash()) {
        winners_[id] = parent.name;
        return;
    }
    Json history = Json::array();
    const std::vector<std::size_t> path = path_to(tree, winner);
    for (auto index = path.rbegin(); index != path.rend(); ++index) history.items.push_back(entry_of(tree[*index]));
    constexpr std::size_t suffix_length = 7;
    const std::string entry = hash + "_" + std::string(parent.hash().substr(0, suffix_length));
    history.items.push_back(Json::of(entry));
    winners_[id] = std::to_string(path.size() + 1) + "-" + entry;
    histories_.set(id, std::move(history));
    if (hash != "empty") contents_.set(hash, Json::parse(stored));
}

zentadbpp::Handle Resolution::apply(const zentadbpp::Handle& handle) const {
    zentadbpp::Handle result;
    const auto latest = [&]() -> const zentadbpp::Handle& { return result ? result : handle; };
    if (!histories_.keys.empty()) {
        const std::string root(sync_json_->root_id());
        Json addition = Json::object();
        addition.set("d", histories_);
        addition.set("o", contents_);
        addition.set("r", Json::of(root));
        // Without its root, nothing is a part of the store.
        if (histories_.find(root) == nullptr) {
            Json documents = histories_;
            documents.set(root, Json::array({entry_of(sync_json_->tree(root)[0])}));
            addition.set("d", std::move(documents));
        }
        result = zentadbpp::replicate(zentadbpp::Handle(addition.dump()), handle);
    }
    for (const auto& [id, winner] : winners_) {
        for (const std::string_view loser : latest().conflicting(id)) {
            if (loser != winner) result = latest().resolve(id, loser);
        }
        if (latest().winning(id) == winner && latest().conflicting(id).empty()) continue;
        throw Failure(ExitCode::input, id + ": the merged version cannot be made to win",
                      "Keep one of the versions: zentadb resolve STORE " + id);
    }
    return result;
}

}  // namespace zentadb
