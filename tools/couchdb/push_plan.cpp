#include "couchdb/push_plan.h"

#include <algorithm>
#include <array>
#include <string>
#include <unordered_set>
#include <utility>

#include "cli/failure.h"
#include "cli/terminal.h"
#include "couchdb/names.h"

namespace zentadb {

namespace {

using Json = Database::Json;

class Planner {
   public:
    explicit Planner(Exchange& begun) : exchange_(begun) {}

    PushPlan plan() && {
        const std::vector<Outgoing> asked = unshared();
        for (const Outgoing& each : asked) check_id(each.document->key);
        std::vector<Outgoing>& outgoing = plan_.outgoing;
        outgoing = missing_of(asked);
        check_sendable(outgoing);
        check_begun_here(outgoing);
        keep_attachments(outgoing);
        put_parents_first(exchange_.store, outgoing);
        return std::move(plan_);
    }

   private:
    // The last revisions of all branches that the server is not known to have.
    std::vector<Outgoing> unshared() const {
        std::vector<Outgoing> result;
        for (const Entry& document : exchange_.store.documents()) {
            const RevisionTree tree(document.value);
            Outgoing each{&document, tips_of(tree)};
            std::erase_if(each.tips, [&](std::size_t tip) {
                return exchange_.checkpoint.is_shared(mark_of(document.key, server_rev(tree[tip])));
            });
            if (!each.tips.empty()) result.push_back(std::move(each));
        }
        return result;
    }

    // Those of them that the server lacks.
    std::vector<Outgoing> missing_of(const std::vector<Outgoing>& asked) {
        std::vector<Outgoing> result;
        for (std::size_t begin = 0; begin < asked.size(); begin += exchange_.options.batch) {
            exchange_.progress.show("Comparing", begin, asked.size());
            const std::size_t end = std::min(asked.size(), begin + exchange_.options.batch);
            Json question = Json::object();
            for (std::size_t at = begin; at < end; ++at) {
                const RevisionTree tree(asked[at].document->value);
                Json& revs = question[asked[at].document->key];
                for (const std::size_t tip : asked[at].tips) revs.push_back(server_rev(tree[tip]));
                for (const std::string& rev : first_revs(tree)) revs.push_back(rev);
            }
            const Json answer = exchange_.database.revs_diff(question);
            for (std::size_t at = begin; at < end; ++at) add_missing(asked[at], answer, result);
            plan_.compared += end - begin;
        }
        return result;
    }

    // The first revision, as zentadb calls it, and as hosts do that send what the library makes for _bulk_docs.
    static std::array<std::string, 2> first_revs(const RevisionTree& tree) {
        const std::string entry(tree[0].entry());
        return {"1-" + server_id(entry), "1-" + std::string(hash_in(entry))};
    }

    void add_missing(const Outgoing& asked, const Json& answer, std::vector<Outgoing>& result) {
        const std::string& id = asked.document->key;
        const RevisionTree tree(asked.document->value);
        const auto of_document = answer.find(id);
        const auto is_there = [&](const std::string& rev) {
            return of_document == answer.end() || std::ranges::count(of_document->at("missing"), Json(rev)) == 0;
        };
        if (std::ranges::any_of(first_revs(tree), is_there)) begins_on_server_.insert(id);
        Outgoing missing{asked.document, {}};
        for (const std::size_t tip : asked.tips) {
            const std::string rev = server_rev(tree[tip]);
            if (is_there(rev)) {
                exchange_.checkpoint.share(mark_of(id, rev));
            } else if (exchange_.store.has_content(tree[tip])) {
                missing.tips.push_back(tip);
            } else {
                plan_.pruned.add(id);
            }
        }
        if (!missing.tips.empty()) result.push_back(std::move(missing));
    }

    // All or nothing: what a server cannot hold is reported before anything is sent.
    void check_sendable(const std::vector<Outgoing>& outgoing) {
        std::size_t longest = 0;
        std::string longest_id;
        for (const Outgoing& each : outgoing) {
            const RevisionTree tree(each.document->value);
            for (const std::size_t tip : each.tips) {
                (void)text_for_server(exchange_.store, *each.document, tree, tip);
                if (tree[tip].generation() <= longest) continue;
                longest = tree[tip].generation();
                longest_id = each.document->key;
            }
        }
        constexpr std::size_t any_server_keeps = 100;
        const std::size_t limit = longest <= any_server_keeps ? 0 : exchange_.database.revs_limit();
        if (limit == 0 || longest <= limit) return;
        throw Failure(ExitCode::refused,
                      "document \"" + printable(longest_id) + "\" has a history of " + std::to_string(longest) +
                          " revisions, of which the database would keep " + std::to_string(limit),
                      "Other copies could not pull it. Raise the limit: curl -X PUT " + exchange_.database.url() +
                          "/_revs_limit -d " + std::to_string(10 * longest));
    }

    // A document that the server has under an id of this store, but not from its beginning, is another one: the two
    // could never be merged.
    void check_begun_here(const std::vector<Outgoing>& outgoing) {
        Json ids = Json::array();
        for (std::size_t at = 0; at < outgoing.size(); ++at) {
            const std::string& id = outgoing[at].document->key;
            if (begins_on_server_.contains(id) || is_ordering(id)) continue;
            ids.push_back(id);
            if (ids.size() < exchange_.options.batch && at + 1 < outgoing.size()) continue;
            check_absent(std::exchange(ids, Json::array()));
        }
        if (!ids.empty()) check_absent(ids);
    }

    void check_absent(const Json& ids) {
        const Json present = exchange_.database.leading_revs(ids);
        if (present.empty()) return;
        for (const Json& result : exchange_.database.bulk_get(present)) {
            for (const Json& each : result.at("docs")) {
                if (each.contains("ok")) check_same_beginning(each["ok"]);
            }
        }
    }

    // Some servers call a revision missing of which they have the name only, as that of one before.
    void check_same_beginning(const Json& found) {
        if (!found.contains("_revisions")) return;
        const Json& path = found["_revisions"];
        // A history that was cut short does not show it.
        if (path.at("ids").empty() || path.at("start") != path["ids"].size()) return;
        const auto id = found.at("_id").get<std::string>();
        const Entry* own = exchange_.store.document(id);
        expect_shape(own != nullptr, "it returns a document that was not requested");
        const auto firsts = first_revs(RevisionTree(own->value));
        if (std::ranges::count(firsts, "1-" + path["ids"].back().get<std::string>()) != 0) return;
        throw Failure(ExitCode::unmergeable,
                      "document \"" + printable(id) + "\": the database has another document under this id",
                      "It was created there or in another store. Give the object here another id. Nothing was sent.");
    }

    // Attachments are made on the server, and so in a document that has a revision of the server's. Such a document
    // goes on with those of the last revision that the server has, named and not sent.
    void keep_attachments(const std::vector<Outgoing>& outgoing) {
        Json wanted = Json::array();
        std::unordered_multimap<std::string, std::uint64_t> tips_after;
        const auto key_of = [](const std::string& id, const std::string& rev) { return id + '\0' + rev; };
        const auto ask = [&] {
            for (const Json& result : exchange_.database.bulk_get(std::exchange(wanted, Json::array()))) {
                for (const Json& each : result.at("docs")) {
                    if (!each.contains("ok")) continue;
                    const auto rev = each["ok"].at("_rev").get<std::string>();
                    const auto [begin, end] =
                        tips_after.equal_range(key_of(each["ok"].at("_id").get<std::string>(), rev));
                    for (auto tip = begin; tip != end; ++tip) {
                        std::size_t& newest = newest_[tip->second];
                        if (generation_in(rev) <= newest) continue;
                        newest = generation_in(rev);
                        plan_.attachments[tip->second] = each["ok"].value("_attachments", Json());
                    }
                }
            }
            tips_after.clear();
        };
        for (const Outgoing& each : outgoing) {
            const RevisionTree tree(each.document->value);
            for (const std::size_t tip : each.tips) {
                if (is_ended(tree[tip].hash())) continue;
                for (const std::size_t at : back_to_server_revision(tree, tip)) {
                    const std::string rev = server_rev(tree[at]);
                    wanted.push_back({{"id", each.document->key}, {"rev", rev}});
                    tips_after.emplace(key_of(each.document->key, rev),
                                       mark_of(each.document->key, server_rev(tree[tip])));
                }
            }
            if (wanted.size() >= exchange_.options.batch) ask();
        }
        if (!wanted.empty()) ask();
    }

    // The ancestors up to the next one that was made on a server; none if there is none.
    static std::vector<std::size_t> back_to_server_revision(const RevisionTree& tree, std::size_t tip) {
        std::vector<std::size_t> path;
        for (std::size_t at = tree[tip].parent; at != Revision::none; at = tree[at].parent) {
            path.push_back(at);
            if (!is_library_hash(tree[at].hash())) return path;
        }
        return {};
    }

    Exchange& exchange_;
    PushPlan plan_;
    std::unordered_set<std::string> begins_on_server_;
    std::unordered_map<std::uint64_t, std::size_t> newest_;  // generations that `attachments` are of
};

}  // namespace

PushPlan plan_push(Exchange& begun) { return Planner(begun).plan(); }

}  // namespace zentadb
