#include <algorithm>
#include <iostream>
#include <optional>
#include <unordered_set>
#include <utility>

#include "cli/explain.h"
#include "cli/table.h"
#include "cli/terminal.h"
#include "commands.h"
#include "couchdb/exchange.h"
#include "couchdb/incoming.h"
#include "couchdb/journal.h"
#include "couchdb/names.h"
#include "inspect/hidden_documents.h"
#include "inspect/summary.h"
#include "store/json_text.h"
#include "store/store.h"

namespace zentadb {

namespace {

using Json = Database::Json;

class Pull {
   public:
    Pull(const ExchangeOptions& options, const zentadbpp::Handle& store) : exchange_(options, store) {}

    void run() {
        Journal journal(exchange_.checkpoint.journal_path(), exchange_.checkpoint.session());
        Json since = exchange_.checkpoint.since();
        for (const Json& line : journal.lines()) {
            // It skipped what the store had then. The store may have been restored from a backup since.
            if (!has_all(line.at("known"))) break;
            since = take(line);
        }
        since = fetch(std::move(since), journal);
        exchange_.progress.clear();
        count_ = incoming_.count();
        if (count_ > 0) {
            merge(since);
        } else if (!file_exists(exchange_.options.store)) {
            throw Failure(ExitCode::input, exchange_.database.url() + ": the database does not contain a store yet",
                          "Push a store to it first.");
        } else {
            exchange_.checkpoint.save(exchange_.store, since);
        }
        journal.remove();
    }

    void print() const {
        incoming_.print_warnings();
        hidden_.print();
        if (exchange_.options.json) {
            std::cout << Json{{"documents", documents_.size()}, {"revisions", count_}} << '\n';
        } else if (exchange_.options.quiet) {
            return;
        } else if (count_ == 0) {
            std::cout << "Nothing new on the server.\n";
        } else {
            std::cout << "Received " << counted(count_, "revision") << " of " << counted(documents_.size(), "document")
                      << ".\n";
            if (!notice_.empty()) std::cerr << painted(Paint::yellow, notice_, std::cerr) << '\n';
        }
    }

   private:
    // Asks for all that changed after `since`, and returns up to where that goes.
    Json fetch(Json since, Journal& journal) {
        for (std::size_t seen = 0;;) {
            const Json changes = exchange_.database.changes(since, exchange_.options.batch);
            const Json& rows = changes.at("results");
            Json line = {{"seq", changes.at("last_seq")}, {"known", Json::array()}, {"docs", Json::array()}};
            fetch_missing(rows, line);
            since = take(line);
            seen += rows.size();
            const auto pending = changes.find("pending");
            const bool is_known = pending != changes.end() && pending->is_number_unsigned();
            exchange_.progress.show("Receiving", seen, is_known ? seen + pending->get<std::size_t>() : 0);
            if (rows.size() < exchange_.options.batch) return since;
            if (!journal.has_begun()) {
                exchange_.checkpoint.save(exchange_.store, exchange_.checkpoint.since());
                journal.begin(exchange_.checkpoint.session());
            }
            journal.add(line);
        }
    }

    // Those revisions of some changes that are known here, as [[id, rev], ...], and the others, as [{"rev", "doc"},
    // ...].
    void fetch_missing(const Json& rows, Json& line) {
        Json wanted = Json::array();
        std::unordered_set<std::string> deleted;
        for (const Json& row : rows) {
            const auto id = row.at("id").get<std::string>();
            if (id.starts_with('_')) continue;
            if (row.value("deleted", false)) deleted.insert(id);
            const auto known = known_revs(id);
            for (const Json& change : row.at("changes")) {
                const auto rev = change.at("rev").get<std::string>();
                if (known.contains(rev)) {
                    line["known"].push_back({id, rev});
                } else {
                    wanted.push_back({{"id", id}, {"rev", rev}});
                }
            }
        }
        line["docs"] = fetch_revisions(wanted, deleted);
    }

    bool has_all(const Json& known) const {
        return std::ranges::all_of(known, [this](const Json& each) {
            return known_revs(each.at(0).get<std::string>()).contains(each.at(1).get<std::string>());
        });
    }

    Json fetch_revisions(const Json& wanted, const std::unordered_set<std::string>& deleted) {
        Json docs = Json::array();
        for (std::size_t begin = 0; begin < wanted.size(); begin += exchange_.options.batch) {
            const std::size_t end = std::min(wanted.size(), begin + exchange_.options.batch);
            const auto at = [&wanted](std::size_t place) {
                return wanted.begin() + static_cast<Json::difference_type>(place);
            };
            std::size_t count = 0;
            for (const Json& result : exchange_.database.bulk_get(Json(at(begin), at(end)))) {
                for (const Json& each : result.at("docs")) {
                    ++count;
                    if (!each.contains("ok")) {
                        refuse_but_gone(each);
                        continue;
                    }
                    const Json& ok = each["ok"];
                    auto accepted = incoming_.accept(ok, deleted.contains(ok.at("_id").get<std::string>()));
                    if (accepted) docs.push_back({{"rev", ok.at("_rev")}, {"doc", std::move(*accepted)}});
                }
            }
            // What is skipped silently would never be requested again.
            expect_shape(count >= end - begin, "it omits revisions that were requested");
        }
        return docs;
    }

    // What is gone by now was followed by something in a later change. Anything else that keeps a revision
    // back must not be passed over, as nobody would ask for it again.
    static void refuse_but_gone(const Json& entry) {
        const Json& error = entry.contains("error") && entry["error"].is_object() ? entry["error"] : entry;
        const std::string* what = string_member(error, "error");
        if (what == nullptr || *what == "not_found") return;
        throw Failure(ExitCode::network, "the server withholds a revision: " + printable(*what),
                      "Nothing was changed. Run the same command again later.");
    }

    std::unordered_set<std::string> known_revs(const std::string& id) const {
        std::unordered_set<std::string> known;
        if (const Entry* document = exchange_.store.document(id)) {
            const RevisionTree tree(document->value);
            for (const Revision& revision : tree.revisions()) {
                known.insert(server_rev(revision));
            }
        }
        return known;
    }

    Json take(const Json& line) {
        for (const Json& each : line.at("known")) {
            exchange_.checkpoint.share(mark_of(each.at(0).get<std::string>(), each.at(1).get<std::string>()));
        }
        for (const Json& each : line.at("docs")) {
            const Json& doc = each.at("doc");
            incoming_.add(doc);
            const auto id = doc.at("_id").get<std::string>();
            documents_.insert(id);
            // A deletion that goes by another name here could not be found in the store again.
            if (each.at("rev") == doc.at("_rev"))
                exchange_.checkpoint.share(mark_of(id, each.at("rev").get<std::string>()));
        }
        return line.at("seq");
    }

    void merge(const Json& since) {
        StoreChange change(exchange_.options.store, {}, StoreChange::Missing::is_empty);
        const zentadbpp::Handle& before = change.store().handle;
        const std::string root = exchange_.noted_root();
        zentadbpp::Handle merged = with_older_lists(incoming_.merged_into(before, root), before, root, is_branching);
        if (auto data = data_of(before, merged); data && !hidden_in(merged, *data).empty()) {
            // Older lists say where it was; a server has them until it is compacted.
            merged = with_older_lists(std::move(merged), before, root, [](const auto&, const auto&) { return true; });
            data = data_of(before, merged);
            for (const std::string& id : hidden_in(merged, *data)) hidden_.add(id);
        }
        change.commit(merged);
        notice_ = conflict_notice(merged, exchange_.options.store);
        exchange_.checkpoint.save(SyncJson(merged), since);
    }

    // Nothing if the data could not be read before either, because contents were pruned. What others have half pushed,
    // or written by hand, must not make the data unreadable here.
    static std::optional<zentadbpp::Value> data_of(const zentadbpp::Handle& before, const zentadbpp::Handle& after) {
        try {
            return zentadbpp::read(after.dump());
        } catch (const zentadbpp::Error& error) {
            try {
                (void)zentadbpp::read(before.dump());
            } catch (const zentadbpp::Error&) {
                return std::nullopt;
            }
            throw Failure(
                ExitCode::unmergeable,
                std::string("the data could not be read with the contents of the database: ") + explained(error).what(),
                "A push to it may still be running, or was interrupted. Nothing was changed.");
        }
    }

    // The lists that the branches of an ordering document began with: with them, branches are merged three ways,
    // without them only by adding.
    static bool is_branching(const RevisionTree& tree, const Revision& revision) {
        return revision.children.size() > 1 && std::ranges::count_if(tree.revisions(), &Revision::is_leaf) > 1;
    }

    // Adds the lists that `is_wanted` and the store lacks, as far as the server still has them, and merges again.
    template <class IsWanted>
    zentadbpp::Handle with_older_lists(zentadbpp::Handle merged, const zentadbpp::Handle& before,
                                       const std::string& root, const IsWanted& is_wanted) {
        constexpr std::size_t enough = 5000;
        const SyncJson store(merged);
        Json wanted = Json::array();
        for (const Entry& document : store.documents()) {
            if (!is_ordering(document.key)) continue;
            const RevisionTree tree(document.value);
            for (const Revision& revision : tree.revisions()) {
                if (wanted.size() == enough) break;
                if (store.has_content(revision) || !is_wanted(tree, revision)) continue;
                wanted.push_back({{"id", document.key}, {"rev", server_rev(revision)}});
            }
        }
        if (wanted.empty()) return merged;
        for (const Json& each : fetch_revisions(wanted, {})) incoming_.add(each.at("doc"));
        return incoming_.merged_into(before, root);
    }

    Exchange exchange_;
    Incoming incoming_{exchange_.store, exchange_.options.force ? "" : exchange_.database.url()};
    std::unordered_set<std::string> documents_;
    std::size_t count_ = 0;
    std::string notice_;
    Warning hidden_{
        "document is not in the data because its list is unknown here; the next push of a copy that has the list "
        "restores it, but an update here before that deletes it",
        "documents are not in the data because their lists are unknown here; the next push of a copy that has the "
        "lists "
        "restores them, but an update here before that deletes them"};
};

ExitCode pull(const ExchangeOptions& options) {
    return run_exchange(options, [&] {
        Pull pull(options, file_exists(options.store) ? open_store(options.store).handle : zentadbpp::Handle("{}"));
        pull.run();
        pull.print();
    });
}

}  // namespace

void add_pull(Program& program) {
    auto [arguments, options] = program.command("pull", pull, exchange, "Merge a CouchDB database into a store",
                                                "zentadb pull trip.sync https://couch.example.org/trip");
    options.declare(arguments);
    arguments.flag("--force", options.force, "Merge contents even if they do not hash to their names");
}

}  // namespace zentadb
