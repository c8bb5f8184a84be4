#include "couchdb/incoming.h"

#include <algorithm>
#include <deque>

#include "cli/failure.h"
#include "cli/library_silence.h"
#include "cli/terminal.h"
#include "couchdb/names.h"
#include "inspect/forgery.h"

namespace zentadb {

namespace {

// What a merge into a store with another root accepts: the set with `root` as its root.
std::string rooted_at(const SyncJson& set, const Entry& root) {
    SyncJsonText text;
    if (set.document(root.key) == nullptr) text.add_document(root.key, root.value);
    for (const auto& [id, history] : set.documents()) text.add_document(id, history);
    for (const auto& [hash, content] : set.contents()) text.add_content(hash, content);
    return text.with_root(root.key);
}

}  // namespace

// A history that does not reach back to its beginning is completed with what is known here.
bool Incoming::complete(const std::string& id, Json& revisions) const {
    Json& ids = revisions["ids"];
    const auto start = revisions["start"].get<std::size_t>();
    if (ids.size() == start) return true;
    const Entry* known = store_.document(id);
    if (known == nullptr || ids.size() > start) return false;
    const RevisionTree tree(known->value);
    const auto oldest = std::ranges::find_if(tree.revisions(), [&](const Revision& revision) {
        return revision.generation() == start - ids.size() + 1 &&
               server_id(revision.entry()) == ids.back().get<std::string>();
    });
    if (oldest == tree.revisions().end()) return false;
    for (std::size_t at = oldest->parent; at != Revision::none; at = tree[at].parent) {
        ids.push_back(std::string(tree[at].entry()));
    }
    return ids.size() == start;
}

std::optional<Incoming::Json> Incoming::accept(Json document, bool is_document_deleted) {
    const auto id = document.at("_id").get<std::string>();
    Json revisions = document.at("_revisions");
    Json& ids = revisions.at("ids");
    expect_shape(ids.is_array() && revisions.at("start").is_number_unsigned(), "_revisions is not a history");
    const auto leave_out = [&id](Warning& why) {
        why.add(id);
        return std::nullopt;
    };
    if (id.empty() || id.starts_with('_')) return leave_out(foreign_);
    const auto is_acceptable = [](const Json& each) { return is_acceptable_id(each.get<std::string>()); };
    if (ids.empty() || !std::ranges::all_of(ids, is_acceptable)) return leave_out(unusable_);
    if (!complete(id, revisions)) return leave_out(cut_short_);
    // A document that was created on the server is another document, whatever its purpose.
    if (!is_library_hash(hash_in(ids.back().get<std::string>()))) return leave_out(foreign_);

    if (document.value("_deleted", false) && !is_ended(hash_in(ids[0].get<std::string>()))) {
        ids[0] = is_document_deleted ? "deleted" : "resolved";
    }
    if (document.contains("_attachments")) attachments_.add(id);
    for (auto member = document.begin(); member != document.end();) {
        member = member.key().starts_with('_') ? document.erase(member) : std::next(member);
    }
    document["_id"] = id;
    document["_rev"] = revisions["start"].dump() + "-" + ids[0].get<std::string>();
    document["_revisions"] = std::move(revisions);
    return document;
}

// The library keeps contents by their hash, so a name that came from elsewhere must not name two contents.
void Incoming::check_content(const Json& accepted) {
    const auto hash = std::string(hash_in(accepted.at("_revisions").at("ids").at(0).get<std::string>()));
    if (is_library_hash(hash)) return;
    Json content = accepted;
    for (const char* member : {"_id", "_rev", "_revisions"}) content.erase(member);
    const Entry* stored = store_.content(hash);
    const bool is_other = stored != nullptr && Json::parse(stored->value, nullptr, false) != content;
    const auto [same, is_new] = named_by_server_.try_emplace(hash, content);
    if (!is_other && (is_new || same->second == content)) return;
    throw Failure(ExitCode::unmergeable,
                  "document \"" + printable(accepted["_id"].get<std::string>()) + "\": another revision with other " +
                      "content is called " + printable(hash) + " as well",
                  "Name revisions that you write to the database by their content. Nothing was changed.");
}

void Incoming::add(const Json& accepted) {
    check_content(accepted);
    const auto first = accepted["_revisions"]["ids"].back().get<std::string>();
    auto& firsts = firsts_[accepted["_id"].get<std::string>()];
    const auto found = std::ranges::find(firsts, first);
    const auto place = static_cast<std::size_t>(found - firsts.begin());
    if (found == firsts.end()) firsts.push_back(first);
    if (place == bodies_.size()) bodies_.emplace_back(R"({"results": [{"docs": [)");
    std::string& body = bodies_[place];
    body.append(body.ends_with('[') ? "" : ", ").append(R"({"ok": )").append(accepted.dump()).append("}");
    ++count_;
}

zentadbpp::Handle Incoming::merged_into(const zentadbpp::Handle& target, const std::string& root) const {
    const SyncJson before(target);
    std::string root_id = before.root_id();
    zentadbpp::Handle merged(before.text());
    std::deque<SyncJson> sets;  // one of them may have the root, and the others only lists that began elsewhere
    for (const std::string& body : bodies_) {
        const zentadbpp::Handle received = zentadbpp::Handle::from_bulk_get(body + "]}]}");
        if (!source_.empty()) refuse_forged(received, target, nullptr, source_);
        const SyncJson& set = sets.emplace_back(received);
        if (root_id.empty()) root_id = root.empty() ? set.root_id() : root;
        const Entry* own = set.document(root_id);
        if (own == nullptr) own = before.document(root_id);
        for (auto earlier = sets.begin(); own == nullptr && earlier != sets.end(); ++earlier) {
            own = earlier->document(root_id);
        }
        if (own == nullptr) {
            throw Failure(ExitCode::input, "the database does not contain the root document yet",
                          "The first push to it may still be running. Nothing was changed.");
        }
        const zentadbpp::Handle rooted(rooted_at(set, *own));
        const LibrarySilence silence;
        merged = zentadbpp::replicate(rooted, merged);
    }
    return merged;
}

void Incoming::print_warnings() const {
    for (const Warning* warning : {&foreign_, &attachments_, &cut_short_, &unusable_}) warning->print();
}

}  // namespace zentadb
