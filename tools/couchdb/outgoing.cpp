#include "couchdb/outgoing.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <unordered_map>
#include <utility>

#include "cli/failure.h"
#include "cli/terminal.h"
#include "couchdb/names.h"
#include "inspect/references.h"
#include "store/raw_json.h"

namespace zentadb {

namespace {

constexpr std::string_view no_content = "{}";

std::string_view content_of(const SyncJson& store, const Revision& revision) {
    return is_ended(revision.hash()) ? no_content : store.stored(revision).value_or(no_content);
}

[[noreturn]] void fail(const std::string& id, const std::string& why, const std::string& advice) {
    throw Failure(ExitCode::input, "document \"" + printable(id) + "\": " + why, advice + " Nothing was sent.");
}

std::string json_string(std::string_view text) { return nlohmann::json(text).dump(); }

// Which documents refer to which, among those that are sent.
class Links {
   public:
    Links(const SyncJson& store, const std::vector<Outgoing>& outgoing) : contents_(outgoing.size()) {
        for (std::size_t place = 0; place < outgoing.size(); ++place) {
            const Entry& document = *outgoing[place].document;
            places_[document.key] = place;
            const RevisionTree tree(document.value);
            for (const std::size_t tip : outgoing[place].tips) {
                const std::string_view content = content_of(store, tree[tip]);
                contents_[place].push_back(content);
                const auto list = is_ordering(document.key) ? list_in(parsed(content)) : std::nullopt;
                if (!list) continue;
                auto& elements = lists_[list->domain];
                elements.insert(elements.end(), list->elements.begin(), list->elements.end());
            }
        }
    }

    // Calls `take` with the place of each document that the one at `place` refers to. It takes the elements of a list
    // once, however many documents refer to the list: that puts one of those before them, and costs no more than the
    // text.
    template <class Take>
    void for_each(std::size_t place, Take take) {
        const auto take_id = [&](const std::string& id) {
            if (const auto found = places_.find(id); found != places_.end()) take(found->second);
        };
        for (const std::string_view content : contents_[place]) {
            const auto [ids, domains] = references_in(parsed(content));
            std::ranges::for_each(ids, take_id);
            for (const std::string& domain : domains) {
                const auto list = lists_.find(domain);
                if (list != lists_.end()) std::ranges::for_each(std::exchange(list->second, {}), take_id);
            }
        }
    }

   private:
    static nlohmann::json parsed(std::string_view content) { return nlohmann::json::parse(content, nullptr, false); }

    std::unordered_map<std::string, std::size_t> places_;
    std::unordered_map<std::string, std::vector<std::string>> lists_;
    std::vector<std::vector<std::string_view>> contents_;
};

}  // namespace

void put_parents_first(const SyncJson& store, std::vector<Outgoing>& outgoing) {
    Links links(store, outgoing);
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
                links.for_each(place, [&](std::size_t child) {
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
        return each.document->key == store.root_id() || is_ordering(each.document->key);
    });
    outgoing = std::move(ordered);
}

void check_id(const std::string& id) {
    if (id.empty() || id.starts_with('_')) {
        fail(id, "CouchDB accepts no id that is empty or begins with _", "Give the object another id.");
    }
    try {
        static_cast<void>(json_string(id));
    } catch (const nlohmann::json::exception&) {
        fail(id, "its id is not UTF-8, which CouchDB requires", "Give the object another id.");
    }
}

std::string text_for_server(const SyncJson& store, const Entry& document, const RevisionTree& tree, std::size_t tip) {
    const Revision& revision = tree[tip];
    try {
        const std::string_view content = content_of(store, revision);
        if (!nlohmann::json::accept(content)) {
            fail(document.key, "its strings are not all UTF-8, which CouchDB requires", "Correct them.");
        }
        std::string text = R"({"_id": )" + json_string(document.key) + R"(, "_revisions": {"start": )" +
                           std::to_string(revision.generation()) + R"(, "ids": [)";
        for (std::size_t at = tip; at != Revision::none; at = tree[at].parent) {
            if (at != tip) text.append(", ");
            text.append(json_string(server_id(tree[at].entry())));
        }
        text.append("]}");
        if (is_ended(revision.hash())) text.append(R"(, "_deleted": true)");
        raw_json::for_each_member(content, [&](std::string_view key, std::string_view value) {
            const auto name = nlohmann::json::parse('"' + std::string(key) + '"').get<std::string>();
            if (name == "_id") return;
            if (name.starts_with('_')) {
                fail(document.key, "CouchDB reserves members that begin with _, such as " + name, "Rename the member.");
            }
            text.append(", \"").append(key).append("\": ").append(value);
        });
        return text.append("}");
    } catch (const nlohmann::json::exception&) {
        fail(document.key, "its members are not all UTF-8, which CouchDB requires", "Correct them.");
    }
}

}  // namespace zentadb
