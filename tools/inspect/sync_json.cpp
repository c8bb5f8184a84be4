#include "inspect/sync_json.h"

#include <algorithm>
#include <utility>

#include "cli/failure.h"
#include "inspect/names.h"
#include "store/raw_json.h"

namespace zentadb {

namespace {

const Entry* find(const std::vector<Entry>& entries, std::string_view key) {
    const auto found =
        std::ranges::lower_bound(entries, key, {}, [](const Entry& entry) -> std::string_view { return entry.key; });
    return found != entries.end() && found->key == key ? &*found : nullptr;
}

std::string quoted(std::string_view text) { return zentadbpp::Json::of(std::string(text)).dump(); }

}  // namespace

SyncJson::SyncJson(const zentadbpp::Handle& handle, std::string store)
    : store_(std::move(store)), owned_(handle.dump()), text_(owned_->view()) {
    read();
}

SyncJson::SyncJson(std::string_view text) : text_(text) { read(); }

void SyncJson::read() {
    const auto read_part = [this](std::string_view name, std::string_view value) {
        members_.push_back(name);
        if (name != "d" && name != "o") return;
        auto& entries = name == "d" ? documents_ : contents_;
        raw_json::for_each_member(value, [&](std::string_view key, std::string_view entry) {
            entries.push_back({raw_json::decoded(key), entry});
        });
    };
    raw_json::for_each_member(
        text_,
        [&](std::string_view name, std::string_view value) {
            if (name == "r" && value.starts_with('"')) root_id_ = raw_json::decoded(value.substr(1, value.size() - 2));
            read_part(name, value);
        },
        read_part);
    // The text is in the order of how keys are written, in which an escaped character comes elsewhere.
    for (auto* entries : {&documents_, &contents_}) std::ranges::stable_sort(*entries, {}, &Entry::key);
}

const Entry* SyncJson::document(std::string_view id) const { return find(documents_, id); }

const Entry* SyncJson::content(std::string_view hash) const { return find(contents_, hash); }

RevisionTree SyncJson::tree(std::string_view id) const {
    const std::string place = (store_.empty() ? "" : store_ + ": ").append(id);
    if (const Entry* history = document(id)) return RevisionTree(history->value, place);
    throw Failure(ExitCode::input, place + ": no such document", "zentadb docs STORE lists the documents.");
}

bool SyncJson::has_content(const Revision& revision) const {
    return is_reserved(revision.hash()) || content(revision.hash()) != nullptr;
}

std::optional<std::string_view> SyncJson::stored(const Revision& revision) const {
    if (revision.hash() == "deleted") return std::nullopt;
    if (is_reserved(revision.hash())) return "{}";
    const Entry* found = content(revision.hash());
    return found == nullptr ? std::nullopt : std::optional(found->value);
}

void SyncJsonText::add(std::string& part, std::string_view key, std::string_view value) {
    part.append(part.empty() ? "" : ", ").append(quoted(key)).append(": ").append(value);
}

std::string SyncJsonText::with_root(std::string_view id) const {
    return R"({"d": {)" + documents_ + R"(}, "o": {)" + contents_ + R"(}, "r": )" + quoted(id) + "}";
}

}  // namespace zentadb
