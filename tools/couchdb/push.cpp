#include <iostream>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "cli/table.h"
#include "cli/terminal.h"
#include "commands.h"
#include "couchdb/exchange.h"
#include "couchdb/names.h"
#include "couchdb/push_plan.h"
#include "store/json_text.h"
#include "store/store.h"

namespace zentadb {

namespace {

using Json = Database::Json;

class Push {
   public:
    Push(const ExchangeOptions& options, const zentadbpp::Handle& store) : exchange_(options, store) {}

    void run() {
        if (exchange_.store.documents().empty()) return;
        plan_ = plan_push(exchange_);
        exchange_.note_data();
        send_all();
        exchange_.checkpoint.save(exchange_.store, exchange_.checkpoint.since());
        exchange_.progress.clear();
    }

    void print() const {
        plan_.pruned.print();
        if (exchange_.options.json) {
            std::cout << Json{{"documents", documents_}, {"revisions", revisions_}, {"compared", plan_.compared}}
                      << '\n';
        } else if (exchange_.options.quiet) {
            // Problems are reported anyway.
        } else if (revisions_ == 0) {
            std::cout << "Nothing to send: the server has all of "
                      << counted(exchange_.store.documents().size(), "document") << ".\n";
        } else {
            std::cout << "Sent " << counted(revisions_, "revision") << " of " << counted(documents_, "document")
                      << ".\n";
        }
        if (!not_taken_.empty()) {
            throw Failure(ExitCode::refused,
                          "the server rejected " + counted(not_taken_.size(), "document") + ", such as " + problem_,
                          "The others were sent.");
        }
    }

   private:
    void send_all() {
        const std::vector<Outgoing>& outgoing = plan_.outgoing;
        constexpr std::size_t large = std::size_t{4} << 20;
        std::vector<Element> batch;
        std::size_t bytes = 0;
        for (std::size_t at = 0; at < outgoing.size(); ++at) {
            exchange_.progress.show("Sending", at, outgoing.size());
            const Entry& document = *outgoing[at].document;
            const RevisionTree tree(document.value);
            for (const std::size_t tip : outgoing[at].tips) {
                const std::uint64_t mark = mark_of(document.key, server_rev(tree[tip]));
                std::string text = text_for_server(exchange_.store, document, tree, tip);
                const auto kept = plan_.attachments.find(mark);
                if (kept != plan_.attachments.end() && !kept->second.is_null()) {
                    text.replace(text.size() - 1, 1, R"(, "_attachments": )" + kept->second.dump() + "}");
                }
                batch.push_back({&document, mark, std::move(text)});
                bytes += batch.back().text.size();
            }
            if (batch.size() < exchange_.options.batch && bytes < large && at + 1 < outgoing.size()) continue;
            send(batch);
            batch.clear();
            bytes = 0;
        }
        documents_ = outgoing.size() - not_taken_.size();
    }

    struct Element {
        const Entry* document;
        std::uint64_t mark;
        std::string text;
    };

    void send(std::span<const Element> batch) {
        std::string body = R"({"docs": [)";
        for (const Element& element : batch) body.append(body.ends_with('[') ? "" : ", ").append(element.text);
        const auto answer = exchange_.database.bulk_docs(body.append(R"(], "new_edits": false})"));
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
                if (const std::string* text = string_member(each, member)) {
                    why.append(why.empty() ? "" : ", ").append(*text);
                }
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
            exchange_.checkpoint.share(element.mark);
            ++revisions_;
        }
        std::erase_if(problems, [this](const auto& problem) { return not_taken_.contains(problem.first); });
        expect_shape(problems.empty(), "it refuses a document that was not sent");
    }

    Exchange exchange_;
    PushPlan plan_;
    std::size_t documents_ = 0;
    std::size_t revisions_ = 0;
    std::unordered_set<std::string> not_taken_;
    std::string problem_;
};

// Only last revisions travel, so those of the lists must contain everything: what older ones know of the places of
// documents is written into them first, as every read does.
zentadbpp::Handle with_lists_up_to_date(const ExchangeOptions& options) {
    StoreChange change(options.store);
    const zentadbpp::Value before = change.store().handle.dump();
    zentadbpp::Handle store(before);
    Json config = Json::parse(options.settings.config_for(change.store()));
    const zentadbpp::List instances = store.instances();
    // Any of several instances will do, but not a new one.
    if (!config.contains("instance_id") && !instances.empty()) config["instance_id"] = instances[0];
    try {
        (void)store.read(config.dump());
    } catch (const zentadbpp::Error&) {
        return zentadbpp::Handle(before);  // pruned, so there is nothing to be brought up to date
    }
    if (!(store.dump() == before)) change.commit(store);
    return store;
}

ExitCode push(const ExchangeOptions& options) {
    return run_exchange(options, [&] {
        Push push(options, with_lists_up_to_date(options));
        push.run();
        push.print();
    });
}

}  // namespace

void add_push(Program& program) {
    auto [arguments, options] = program.command("push", push, exchange, "Send what a CouchDB database lacks",
                                                "zentadb push trip.sync https://couch.example.org/trip\n"
                                                "zentadb push trip.sync http://localhost:5984/trip --create");
    options.declare(arguments);
    arguments.flag("--create", options.create, "Create the database if it is missing");
    options.settings.declare_reading(arguments);
}

}  // namespace zentadb
