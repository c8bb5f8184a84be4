#include <algorithm>
#include <array>
#include <iostream>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "cli/table.h"
#include "cli/terminal.h"
#include "commands.h"
#include "couchdb/checkpoint.h"
#include "couchdb/exchange.h"
#include "couchdb/names.h"
#include "couchdb/outgoing.h"
#include "store/store.h"

namespace zentadb {

namespace {

using Json = Database::Json;

class Push {
   public:
    Push(const ExchangeOptions& options, const zentadbpp::Handle& store)
        : options_(options),
          progress_(!options.quiet),
          store_(store),
          database_(connect(options, progress_)),
          checkpoint_(options.store, database_) {}

    void run() {
        if (store_.documents().empty()) return;
        const SyncText::Document& root = *store_.find(store_.root());
        const std::string first = server_rev(RevisionTree(root.value)[0]);
        check_same_data(database_, root.key, first);
        checkpoint_.recall(store_, options_.afresh);
        const std::vector<Outgoing> asked = unshared();
        for (const Outgoing& each : asked) check_id(each.document->key);
        std::vector<Outgoing> outgoing = missing_of(asked);
        check_sendable(outgoing);
        check_begun_here(outgoing);
        note_data(database_, root.key, first);
        keep_attachments(outgoing);
        put_parents_first(store_, outgoing);
        send_all(outgoing);
        checkpoint_.save(store_, checkpoint_.since());
        progress_.clear();
    }

    void tell() const {
        pruned_.tell();
        if (options_.json) {
            std::cout << Json{{"documents", documents_}, {"revisions", revisions_}, {"compared", compared_}} << '\n';
        } else if (options_.quiet) {
            // What went wrong is told all the same.
        } else if (revisions_ == 0) {
            std::cout << "Nothing to send: the server has all of " << counted(store_.documents().size(), "document")
                      << ".\n";
        } else {
            std::cout << "Sent " << counted(revisions_, "revision") << " of " << counted(documents_, "document")
                      << ".\n";
        }
        if (!not_taken_.empty()) {
            throw Failure(Outcome::refused,
                          "the server did not take " + counted(not_taken_.size(), "document") + ", such as " + problem_,
                          "The others were sent.");
        }
    }

   private:
    // The last revisions of all branches that the server is not known to have.
    std::vector<Outgoing> unshared() const {
        std::vector<Outgoing> result;
        for (const SyncText::Document& document : store_.documents()) {
            const RevisionTree tree(document.value);
            Outgoing each{&document, tips_of(tree)};
            std::erase_if(each.tips, [&](std::size_t tip) {
                return checkpoint_.is_shared(mark_of(document.key, server_rev(tree[tip])));
            });
            if (!each.tips.empty()) result.push_back(std::move(each));
        }
        return result;
    }

    // Those of them that the server lacks.
    std::vector<Outgoing> missing_of(const std::vector<Outgoing>& asked) {
        std::vector<Outgoing> result;
        for (std::size_t begin = 0; begin < asked.size(); begin += options_.batch) {
            progress_.show("Comparing", begin, asked.size());
            const std::size_t end = std::min(asked.size(), begin + options_.batch);
            Json question = Json::object();
            for (std::size_t at = begin; at < end; ++at) {
                const RevisionTree tree(asked[at].document->value);
                Json& revs = question[asked[at].document->key];
                for (const std::size_t tip : asked[at].tips) revs.push_back(server_rev(tree[tip]));
                for (const std::string& rev : first_revs(tree)) revs.push_back(rev);
            }
            const Json answer = database_.revs_diff(question);
            for (std::size_t at = begin; at < end; ++at) add_missing(asked[at], answer, result);
            compared_ += end - begin;
        }
        return result;
    }

    // The first revision, as zentadb calls it, and as hosts do that send what the library makes for _bulk_docs.
    static std::array<std::string, 2> first_revs(const RevisionTree& tree) {
        const std::string entry(entry_of(tree[0]));
        return {"1-" + server_id(entry), "1-" + std::string(hash_of(entry))};
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
                checkpoint_.share(mark_of(id, rev));
            } else if (has_content(store_, tree[tip])) {
                missing.tips.push_back(tip);
            } else {
                pruned_.add(id);
            }
        }
        if (!missing.tips.empty()) result.push_back(std::move(missing));
    }

    // All or nothing: what a server cannot hold is told before anything is sent.
    void check_sendable(const std::vector<Outgoing>& outgoing) {
        std::size_t longest = 0;
        std::string longest_id;
        for (const Outgoing& each : outgoing) {
            const RevisionTree tree(each.document->value);
            for (const std::size_t tip : each.tips) {
                (void)text_for_server(store_, *each.document, tree, tip);
                if (generation_of(tree[tip]) <= longest) continue;
                longest = generation_of(tree[tip]);
                longest_id = each.document->key;
            }
        }
        constexpr std::size_t any_server_keeps = 100;
        const std::size_t limit = longest <= any_server_keeps ? 0 : database_.revs_limit();
        if (limit == 0 || longest <= limit) return;
        throw Failure(Outcome::refused,
                      "document \"" + printable(longest_id) + "\" has a history of " + std::to_string(longest) +
                          " revisions, of which the database would keep " + std::to_string(limit),
                      "Others could not take it from there. Raise the limit: curl -X PUT " + database_.url() +
                          "/_revs_limit -d " + std::to_string(10 * longest));
    }

    // A document that the server has under an id of this store, but not from its beginning, is another one: the two
    // could never be merged.
    void check_begun_here(const std::vector<Outgoing>& outgoing) {
        Json ids = Json::array();
        for (std::size_t at = 0; at < outgoing.size(); ++at) {
            const std::string& id = outgoing[at].document->key;
            if (begins_on_server_.contains(id) || id.starts_with("ord-")) continue;
            ids.push_back(id);
            if (ids.size() < options_.batch && at + 1 < outgoing.size()) continue;
            check_absent(std::exchange(ids, Json::array()));
        }
        if (!ids.empty()) check_absent(ids);
    }

    void check_absent(const Json& ids) {
        const Json present = database_.leading_revs(ids);
        if (present.empty()) return;
        for (const Json& result : database_.bulk_get(present)) {
            for (const Json& each : result.at("docs")) {
                if (each.contains("ok")) check_same_beginning(each["ok"]);
            }
        }
    }

    // Some servers call a revision missing of which they have the name only, as that of one before.
    void check_same_beginning(const Json& found) {
        if (!found.contains("_revisions")) return;
        const Json& path = found["_revisions"];
        // A history that was cut short does not tell.
        if (path.at("ids").empty() || path.at("start") != path["ids"].size()) return;
        const auto id = found.at("_id").get<std::string>();
        const SyncText::Document* own = store_.find(id);
        expect_shape(own != nullptr, "it gives out a document that was not asked for");
        const auto firsts = first_revs(RevisionTree(own->value));
        if (std::ranges::count(firsts, "1-" + path["ids"].back().get<std::string>()) != 0) return;
        throw Failure(
            Outcome::unmergeable, "document \"" + printable(id) + "\": the database has another document under this id",
            "Somebody made it there, or in another store. Give the object here another id. Nothing was sent.");
    }

    // Attachments are made on the server, and so in a document that has a revision of the server's. Such a document
    // goes on with those of the last revision that the server has, named and not sent.
    void keep_attachments(const std::vector<Outgoing>& outgoing) {
        Json wanted = Json::array();
        std::unordered_multimap<std::string, std::uint64_t> tips_after;
        const auto key_of = [](const std::string& id, const std::string& rev) { return id + '\0' + rev; };
        const auto ask = [&] {
            for (const Json& result : database_.bulk_get(std::exchange(wanted, Json::array()))) {
                for (const Json& each : result.at("docs")) {
                    if (!each.contains("ok")) continue;
                    const auto rev = each["ok"].at("_rev").get<std::string>();
                    const auto [begin, end] =
                        tips_after.equal_range(key_of(each["ok"].at("_id").get<std::string>(), rev));
                    for (auto tip = begin; tip != end; ++tip) {
                        Attachments& kept = attachments_[tip->second];
                        const std::size_t generation = generation_of(Revision{rev, Revision::none, {}});
                        if (generation <= kept.generation) continue;
                        kept = {generation, each["ok"].value("_attachments", Json())};
                    }
                }
            }
            tips_after.clear();
        };
        for (const Outgoing& each : outgoing) {
            const RevisionTree tree(each.document->value);
            for (const std::size_t tip : each.tips) {
                if (is_ended(entry_of(tree[tip]))) continue;
                for (const std::size_t at : back_to_server_revision(tree, tip)) {
                    const std::string rev = server_rev(tree[at]);
                    wanted.push_back({{"id", each.document->key}, {"rev", rev}});
                    tips_after.emplace(key_of(each.document->key, rev),
                                       mark_of(each.document->key, server_rev(tree[tip])));
                }
            }
            if (wanted.size() >= options_.batch) ask();
        }
        if (!wanted.empty()) ask();
    }

    // The ancestors up to the next one that was made on a server; none where there is no such one.
    static std::vector<std::size_t> back_to_server_revision(const RevisionTree& tree, std::size_t tip) {
        std::vector<std::size_t> path;
        for (std::size_t at = tree[tip].parent; at != Revision::none; at = tree[at].parent) {
            path.push_back(at);
            if (!is_library_hash(tree[at].hash())) return path;
        }
        return {};
    }

    struct Attachments {
        std::size_t generation = 0;  // of the revision that has them
        Json named;
    };

    void send_all(const std::vector<Outgoing>& outgoing) {
        constexpr std::size_t large = std::size_t{4} << 20;
        std::vector<Element> batch;
        std::size_t bytes = 0;
        for (std::size_t at = 0; at < outgoing.size(); ++at) {
            progress_.show("Sending", at, outgoing.size());
            const SyncText::Document& document = *outgoing[at].document;
            const RevisionTree tree(document.value);
            for (const std::size_t tip : outgoing[at].tips) {
                const std::uint64_t mark = mark_of(document.key, server_rev(tree[tip]));
                std::string text = text_for_server(store_, document, tree, tip);
                if (const auto kept = attachments_.find(mark);
                    kept != attachments_.end() && !kept->second.named.is_null()) {
                    text.replace(text.size() - 1, 1, R"(, "_attachments": )" + kept->second.named.dump() + "}");
                }
                batch.push_back({&document, mark, std::move(text)});
                bytes += batch.back().text.size();
            }
            if (batch.size() < options_.batch && bytes < large && at + 1 < outgoing.size()) continue;
            send(batch);
            batch.clear();
            bytes = 0;
        }
        documents_ = outgoing.size() - not_taken_.size();
    }

    struct Element {
        const SyncText::Document* document;
        std::uint64_t mark;
        std::string text;
    };

    void send(std::span<const Element> batch) {
        std::string body = R"({"docs": [)";
        for (const Element& element : batch) body.append(body.ends_with('[') ? "" : ", ").append(element.text);
        const auto answer = database_.bulk_docs(body.append(R"(], "new_edits": false})"));
        if (!answer && batch.size() > 1) {
            send(batch.first(batch.size() / 2));
            send(batch.subspan(batch.size() / 2));
            return;
        }
        std::unordered_map<std::string, std::string> problems;
        if (!answer) problems[batch.front().document->key] = "it is larger than the server allows";
        for (const Json& each : answer.value_or(Json::array())) {
            if (!each.contains("error")) continue;
            std::string why;
            for (const char* member : {"error", "reason"}) {
                const auto text = each.find(member);
                if (text != each.end() && text->is_string()) why.append(why.empty() ? "" : ", ").append(*text);
            }
            problems[each.at("id").get<std::string>()] = why;
        }
        for (const Element& element : batch) {
            const std::string& id = element.document->key;
            if (const auto problem = problems.find(id); problem != problems.end()) {
                if (not_taken_.empty()) problem_ = "\"" + printable(id) + "\": " + printable(problem->second);
                not_taken_.insert(id);
                continue;
            }
            checkpoint_.share(element.mark);
            ++revisions_;
        }
        std::erase_if(problems, [this](const auto& problem) { return not_taken_.contains(problem.first); });
        expect_shape(problems.empty(), "it refuses a document that was not sent");
    }

    const ExchangeOptions& options_;
    Progress progress_;
    SyncText store_;
    Database database_;
    Checkpoint checkpoint_;
    Warning pruned_{"document has revisions whose content was pruned here; those were not sent",
                    "documents have revisions whose content was pruned here; those were not sent"};
    std::unordered_set<std::string> begins_on_server_;
    std::unordered_map<std::uint64_t, Attachments> attachments_;  // by mark
    std::size_t documents_ = 0;
    std::size_t revisions_ = 0;
    std::size_t compared_ = 0;
    std::unordered_set<std::string> not_taken_;
    std::string problem_;
};

// Only last revisions travel, so those of the lists have to say all: what older ones know of the places of documents is
// written into them first, as every read does.
zentadbpp::Handle with_lists_up_to_date(const ExchangeOptions& options) {
    StoreChange change(options.store);
    const zentadbpp::Value before = change.store().handle.dump();
    zentadbpp::Handle store(before);
    Json config = Json::parse(options.settings.config_for(change.store()));
    const zentadbpp::List instances = store.instances();
    // Of several instances any will do, but not one more.
    if (!config.contains("instance_id") && !instances.empty()) config["instance_id"] = instances[0];
    try {
        (void)store.read(config.dump());
    } catch (const zentadbpp::Error&) {
        return zentadbpp::Handle(before);  // pruned, so there is nothing to be brought up to date
    }
    if (!(store.dump() == before)) change.commit(store);
    return store;
}

Outcome push(const ExchangeOptions& options) {
    Push push(options, with_lists_up_to_date(options));
    push.run();
    push.tell();
    return Outcome::done;
}

}  // namespace

void add_push(Program& program) {
    const auto options = std::make_shared<ExchangeOptions>();
    CLI::App& command = program.command("push", exchange, "Send a CouchDB database what it lacks",
                                        "zentadb push trip.sync https://couch.example.org/trip\n"
                                        "zentadb push trip.sync http://localhost:5984/trip --create");
    Arguments arguments(command);
    options->declare(arguments);
    arguments.flag("--create", options->create, "Make the database if it is not there");
    options->settings.declare_reading(arguments);
    program.on(command, [options] { return run_exchange(*options, push); });
}

}  // namespace zentadb
