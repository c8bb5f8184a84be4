#include "couchdb/outgoing.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "cli/failure.h"
#include "cli/terminal.h"
#include "couchdb/names.h"
#include "store/raw_json.h"

namespace zentadb {

namespace {

constexpr std::string_view no_content = "{}";

std::string_view content_of(const SyncText& store, const Revision& revision) {
    return is_ended(entry_of(revision)) ? no_content : store.content(revision.hash()).value_or(no_content);
}

[[noreturn]] void fail(const std::string& id, const std::string& why, const std::string& advice) {
    throw Failure(Outcome::input, "document \"" + printable(id) + "\": " + why, advice + " Nothing was sent.");
}

// All strings in a content but the keys.
std::vector<std::string> strings_in(std::string_view content) {
    std::vector<std::string> strings;
    const auto json = nlohmann::json::parse(content, nullptr, false);
    std::vector<const nlohmann::json*> left{&json};
    while (!left.empty()) {
        const nlohmann::json& value = *left.back();
        left.pop_back();
        if (value.is_string()) strings.push_back(value.get<std::string>());
        if (!value.is_structured()) continue;
        for (const auto& element : value) left.push_back(&element);
    }
    return strings;
}

// Which documents refer to which, among those that are sent.
class References {
   public:
    References(const SyncText& store, const std::vector<Outgoing>& outgoing) : contents_(outgoing.size()) {
        for (std::size_t place = 0; place < outgoing.size(); ++place) places_[outgoing[place].document->key] = place;
        for (std::size_t place = 0; place < outgoing.size(); ++place) {
            const RevisionTree tree(outgoing[place].document->value);
            for (const std::size_t tip : outgoing[place].tips) {
                const std::string_view content = content_of(store, tree[tip]);
                contents_[place].push_back(content);
                if (is_ordering(outgoing[place])) note_list(content);
            }
        }
    }

    static bool is_ordering(const Outgoing& outgoing) { return outgoing.document->key.starts_with("ord-"); }

    // Calls `take` with the place of each document that the one at `place` refers to. The elements of a list are told
    // once, however many documents refer to it: that puts one of those before them, and costs no more than the text.
    template <class Take>
    void for_each(std::size_t place, Take take) {
        const auto take_id = [&](const std::string& id) {
            if (const auto found = places_.find(id); found != places_.end()) take(found->second);
        };
        for (const std::string_view content : contents_[place]) {
            for (const std::string& text : strings_in(content)) {
                if (text.starts_with('O')) take_id(text.substr(1));
                const auto list = text.starts_with('A') ? lists_.find(text.substr(1)) : lists_.end();
                if (list != lists_.end()) std::ranges::for_each(std::exchange(list->second, {}), take_id);
            }
        }
    }

   private:
    void note_list(std::string_view content) {
        const auto json = nlohmann::json::parse(content, nullptr, false);
        if (!json.is_object() || !json.contains("d") || !json.contains("s")) return;
        if (!json["d"].is_string() || !json["s"].is_array()) return;
        auto& list = lists_[json["d"].get<std::string>()];
        for (const auto& id : json["s"]) {
            if (id.is_string()) list.push_back(id.get<std::string>());
        }
    }

    std::unordered_map<std::string, std::size_t> places_;
    std::unordered_map<std::string, std::vector<std::string>> lists_;
    std::vector<std::vector<std::string_view>> contents_;
};

}  // namespace

void put_parents_first(const SyncText& store, std::vector<Outgoing>& outgoing) {
    References references(store, outgoing);
    // Depth first; a document comes out after all that it refers to, which is the order wanted, backwards.
    enum class State : char { unseen, open, done };
    std::vector<State> states(outgoing.size(), State::unseen);
    std::vector<std::size_t> backwards;
    std::vector<std::size_t> stack;
    for (std::size_t first = 0; first < outgoing.size(); ++first) {
        stack.push_back(first);
        while (!stack.empty()) {
            const std::size_t place = stack.back();
            if (states[place] == State::unseen) {
                states[place] = State::open;
                references.for_each(place, [&](std::size_t child) {
                    if (states[child] == State::unseen) stack.push_back(child);
                });
                continue;
            }
            if (states[place] == State::open) backwards.push_back(place);
            states[place] = State::done;
            stack.pop_back();
        }
    }
    std::vector<Outgoing> ordered;
    ordered.reserve(outgoing.size());
    for (auto place = backwards.rbegin(); place != backwards.rend(); ++place) {
        ordered.push_back(std::move(outgoing[*place]));
    }
    std::stable_partition(ordered.begin(), ordered.end(), [&](const Outgoing& each) {
        return each.document->key == store.root() || References::is_ordering(each);
    });
    outgoing = std::move(ordered);
}

bool has_content(const SyncText& store, const Revision& revision) {
    return is_ended(entry_of(revision)) || revision.hash() == "empty" || store.content(revision.hash()).has_value();
}

void check_id(const std::string& id) {
    if (id.empty() || id.starts_with('_')) {
        fail(id, "a CouchDB server takes no id that is empty or begins with _", "Give the object another id.");
    }
    try {
        static_cast<void>(quoted(id));
    } catch (const nlohmann::json::exception&) {
        fail(id, "its id is not in UTF-8, as a CouchDB server wants it", "Give the object another id.");
    }
}

std::string text_for_server(const SyncText& store, const SyncText::Document& document, const RevisionTree& tree,
                            std::size_t tip) {
    const Revision& revision = tree[tip];
    try {
        const std::string_view content = content_of(store, revision);
        if (!nlohmann::json::accept(content)) {
            fail(document.key, "its strings are not all UTF-8, as a CouchDB server wants them", "Correct them.");
        }
        std::string text = R"({"_id": )" + quoted(document.key) + R"(, "_revisions": {"start": )" +
                           std::to_string(generation_of(revision)) + R"(, "ids": [)";
        for (std::size_t at = tip; at != Revision::none; at = tree[at].parent) {
            if (at != tip) text.append(", ");
            text.append(quoted(server_id(entry_of(tree[at]))));
        }
        text.append("]}");
        if (is_ended(entry_of(revision))) text.append(R"(, "_deleted": true)");
        raw_json::for_each_member(content, [&](std::string_view key, std::string_view value) {
            const auto name = nlohmann::json::parse('"' + std::string(key) + '"').get<std::string>();
            if (name == "_id") return;
            if (name.starts_with('_')) {
                fail(document.key, "a CouchDB server keeps members that begin with _ for itself, such as " + name,
                     "Rename the member.");
            }
            text.append(", \"").append(key).append("\": ").append(value);
        });
        return text.append("}");
    } catch (const nlohmann::json::exception&) {
        fail(document.key, "its members are not in UTF-8, as a CouchDB server wants them", "Correct them.");
    }
}

}  // namespace zentadb
