#include "resolve/join.h"

#include <algorithm>
#include <set>

#include "cli/failure.h"
#include "cli/table.h"
#include "inspect/places.h"
#include "inspect/sync_json.h"
#include "resolve/stored_content.h"
#include "store/raw_json.h"
#include "store/settings.h"

namespace zentadb {

using zentadbpp::Json;

namespace {

// The first revision in a history array: "<hash>_first".
std::string_view first_entry(std::string_view history) {
    const std::size_t begin = history.find('"');
    if (begin == std::string_view::npos) return {};
    return history.substr(begin + 1, raw_json::string_end(history, begin) - begin - 2);
}

constexpr std::string_view empty_first = "empty_first";

struct Clash {
    std::string id;
    std::string first_in_a;
    std::string first_in_b;
};

// Both lists are in the order of ids. The library merges ordering documents itself.
std::vector<Clash> clashes_of(const SyncJson& a, const SyncJson& b) {
    std::vector<Clash> clashes;
    auto in_b = b.documents().begin();
    for (const Entry& document : a.documents()) {
        while (in_b != b.documents().end() && in_b->key < document.key) ++in_b;
        if (in_b == b.documents().end()) break;
        if (in_b->key != document.key || is_ordering(document.key)) continue;
        const std::string_view first = first_entry(document.value);
        const std::string_view other = first_entry(in_b->value);
        if (first != other) clashes.push_back({document.key, std::string(first), std::string(other)});
    }
    return clashes;
}

// Where the winning content of a document has an object that is a document.
struct Member {
    std::string document;
    std::string place;
    bool operator==(const Member&) const = default;
};

// One of two stores that are to be joined.
class Side {
   public:
    explicit Side(Store& store) : store_(&store), sync_json_(store.handle), config_(Settings().config_for(store)) {
        for (const Entry& document : sync_json_.documents()) {
            if (is_ordering(document.key)) continue;
            const RevisionTree tree(document.value);
            const auto content = content_of(sync_json_, tree[tree.find(store.handle.winning(document.key))]);
            if (content) look_for_members(*content, document.key, {});
        }
        Json config = Json::parse(config_);
        if (splits_all_ && config.find("flatten_objects") == nullptr)
            config.set("flatten_objects", Json::boolean(true));
        const Json* all = config.find("flatten_objects");
        splits_all_ = all != nullptr && *all == Json::boolean(true);
        config_ = config.dump();
    }

    [[nodiscard]] const SyncJson& sync_json() const { return sync_json_; }
    [[nodiscard]] bool is_root(const std::string& id) const { return id == sync_json_.root_id(); }

    [[nodiscard]] const Member* member(const std::string& id) const {
        const auto found = members_.find(id);
        return found == members_.end() ? nullptr : &found->second;
    }

    // Objects in it go along: they would be shown in one place only, were the other store to have them too. What only
    // this store has stays under its old id as well, deleted, for older versions that lead to it.
    void rename(const std::string& id, const Side& other) {
        for (std::vector<std::string> open{id}; !open.empty();) {
            const std::string at = std::move(open.back());
            open.pop_back();
            const Entry* document = sync_json_.document(at);
            if (document == nullptr || new_ids_.contains(at)) continue;
            constexpr std::size_t enough = 7;
            const std::string_view hash = hash_in(first_entry(document->value));
            new_ids_[at] = at + "-" + std::string(hash.starts_with('x') ? hash : hash.substr(0, enough));
            if (other.sync_json_.document(at) == nullptr) kept_.insert(at);
            const auto [begin, end] = objects_in_.equal_range(at);
            for (auto object = begin; object != end; ++object) open.push_back(object->second);
        }
    }
    [[nodiscard]] bool renames(const std::string& id) const { return new_ids_.contains(id); }
    // The history becomes a branch after an empty first revision, which is the same on every side.
    void graft(const std::string& id) { grafts_.insert(id); }

    // The store with these changes.
    [[nodiscard]] zentadbpp::Handle changed() const {
        zentadbpp::Handle store(text());
        if (new_ids_.empty()) return store;
        Json data = Json::parse(store_->handle.read(zentadbpp::detail::config_for_reading(config_)));
        rename_in(data, true);
        const std::string given = data.dump();
        zentadbpp::Handle updated = store.update(given, config_);
        const auto lost = zentadbpp::check_stored(given, config_, updated);
        if (lost.empty()) return updated;
        throw Failure(ExitCode::unmergeable, store_->path + ": " + lost.front().place + " would be lost by joining",
                      "Give one of the objects another id by hand: read, change its \"_id\", and update.");
    }

    [[nodiscard]] const std::map<std::string, std::string>& new_ids() const { return new_ids_; }

   private:
    // An object that leads to others without "#df" was split because all are.
    void look_for_members(const Json& value, const std::string& document, const std::string& place) {
        if (value.is_object() && value.find("#nf") != nullptr) return;
        for (std::size_t at = 0; at < value.items.size(); ++at) {
            const Json& item = value.items[at];
            const std::string below =
                place + (value.is_object() ? zentadbpp::member_step(value.keys[at]) : zentadbpp::element_step(at));
            if (item.kind == Json::Kind::reference && item.text.starts_with('O')) {
                members_.try_emplace(item.text.substr(1), Member{document, below});
                objects_in_.emplace(document, item.text.substr(1));
                splits_all_ = splits_all_ || value.find("#df") == nullptr;
            } else {
                look_for_members(item, document, below);
            }
        }
    }

    // Ids of objects that are documents; an "_id" of any other object is the host's.
    void rename_in(Json& value, bool is_document) const {
        if (value.is_object()) {
            if (const auto new_id = new_ids_.find(std::string(value.id())); is_document && new_id != new_ids_.end()) {
                value.set("_id", Json::of(new_id->second));
            }
            if (value.find("#nf") != nullptr) return;
            const bool is_split = splits_all_ || value.find("#df") != nullptr;
            for (Json& item : value.items) {
                rename_in(item, item.is_object() && is_split && item.find("#nf") == nullptr);
            }
        } else if (value.is_array()) {
            const bool are_documents = std::ranges::all_of(value.items, &Json::is_object);
            for (Json& item : value.items) rename_in(item, are_documents);
        }
    }

    [[nodiscard]] std::string text() const {
        SyncJsonText text;
        for (const auto& [id, history] : sync_json_.documents()) {
            const auto new_id = new_ids_.find(id);
            if (kept_.contains(id)) text.add_document(id, history);
            text.add_document(new_id == new_ids_.end() ? id : new_id->second,
                              grafts_.contains(id) ? grafted(history) : std::string(history));
        }
        for (const auto& [hash, content] : sync_json_.contents()) text.add_content(hash, content);
        return text.with_root(sync_json_.root_id());
    }

    static std::string grafted(std::string_view history) {
        const std::string_view first = first_entry(history);
        const std::string_view others = history.substr(history.find('"') + first.size() + 2);
        return R"([")" + std::string(empty_first) + R"(", ")" + std::string(hash_in(first)) + R"(_empty")" +
               std::string(others);
    }

    Store* store_;
    SyncJson sync_json_;
    std::string config_;
    bool splits_all_ = false;
    std::map<std::string, Member, std::less<>> members_;  // by id
    std::multimap<std::string, std::string> objects_in_;  // by document
    std::map<std::string, std::string> new_ids_;
    std::set<std::string, std::less<>> kept_;
    std::set<std::string, std::less<>> grafts_;
};

// What holds an object, and what holds that, and so on, while both sides have it at one place; the object first.
std::vector<std::string> holders(const Side& a, const Side& b, const std::string& id) {
    std::vector<std::string> holders{id};
    std::set<std::string> seen{id};
    for (;;) {
        const Member* in_a = a.member(holders.back());
        const Member* in_b = b.member(holders.back());
        if (in_a == nullptr || in_b == nullptr || *in_a != *in_b || !seen.insert(in_a->document).second) return holders;
        holders.push_back(in_a->document);
    }
}

void resolve(Side& a, Side& b, const std::vector<Clash>& clashes) {
    std::set<std::string> clashing;
    for (const Clash& clash : clashes) clashing.insert(clash.id);
    // What holds others comes first, as they go along with it.
    struct Task {
        std::vector<std::string> holders;
        const Clash* clash;
    };
    std::vector<Task> tasks;
    tasks.reserve(clashes.size());
    for (const Clash& clash : clashes) tasks.push_back({holders(a, b, clash.id), &clash});
    std::ranges::stable_sort(tasks, {}, [](const Task& task) { return task.holders.size(); });
    for (const auto& [holders, clash] : tasks) {
        const std::string& top = holders.back();
        const bool is_root = a.is_root(top) && b.is_root(top);
        if (is_root || (holders.size() > 1 && !clashing.contains(top))) {
            if (clash->first_in_a != empty_first) a.graft(clash->id);
            if (clash->first_in_b != empty_first) b.graft(clash->id);
        } else if (!a.renames(clash->id) && !b.renames(clash->id)) {
            const bool is_a_first = clash->first_in_a < clash->first_in_b;
            (is_a_first ? b : a).rename(clash->id, is_a_first ? a : b);
        }
    }
}

}  // namespace

void refuse_shared_ids(Store& target, Store& source, const zentadbpp::Error& error) {
    const std::vector<Clash> clashes = clashes_of(SyncJson(target.handle), SyncJson(source.handle));
    if (clashes.empty()) throw error;
    const Places here(target);
    const Places there(source);
    const auto place = [](const Places& places, const std::string& id) {
        const std::string found = places.of(id);
        return found.empty() ? "not in the data" : found;
    };
    std::string text = "both stores created " + counted(clashes.size(), "document") + " independently under the same " +
                       (clashes.size() == 1 ? "id" : "ids") + ":";
    for (const auto& [id, first, other] : clashes) {
        text.append("\n  ").append(id).append("  ").append(place(here, id));
        if (place(here, id) != place(there, id)) text.append(" and ").append(place(there, id));
    }
    throw Failure(ExitCode::unmergeable, text,
                  "zentadb merge --join keeps both: it gives one side new ids and merges the roots.\n"
                  "Copies that descend from one first version and never reuse an id need no joining.");
}

Joined joined(Store& target, Store& source) {
    Joined result;
    Store a{target.path, zentadbpp::Handle(target.handle.dump())};
    Store b{source.path, zentadbpp::Handle(source.handle.dump())};
    constexpr int enough = 8;  // a new id is taken by an object of another first revision only on purpose
    for (int round = 0; round < enough; ++round) {
        Side in_a(a);
        Side in_b(b);
        const std::vector<Clash> clashes = clashes_of(in_a.sync_json(), in_b.sync_json());
        if (clashes.empty()) break;
        resolve(in_a, in_b, clashes);
        zentadbpp::Handle new_a = in_a.changed();
        zentadbpp::Handle new_b = in_b.changed();
        for (const Side* side : {&in_a, &in_b}) result.new_ids.insert(side->new_ids().begin(), side->new_ids().end());
        a.handle = std::move(new_a);
        b.handle = std::move(new_b);
    }
    a.handle = zentadbpp::replicate(b.handle, a.handle);
    static_cast<void>(a.handle.read(Settings().config_for(a)));  // which stores the order of lists
    result.store = std::move(a.handle);
    return result;
}

}  // namespace zentadb
