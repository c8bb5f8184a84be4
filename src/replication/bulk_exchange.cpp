#include "replication/bulk_exchange.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <map>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "contents/document_index.h"
#include "contents/ordering_content.h"
#include "contents/result_limit.h"
#include "contents/vocabulary.h"
#include "json/canonical_object.h"
#include "json/error.h"
#include "json/writer.h"
#include "memory/arena.h"
#include "memory/by_number.h"

namespace libzentadbpp {

namespace {

void write_path(const MultiVersionDocument& document, TextBuffer& out) {
    out.append(R"({"ids": [)");
    ListSeparator separator;
    for (std::uint32_t at = document.winning_position(); at != no_entry; at = document.revisions()[at].parent) {
        separator.append_to(out);
        write_json_string(document.revisions()[at].datahash(), out);
    }
    out.append(R"(], "start": )");
    write_json_integer(document.winning().index, out);
    out.push_back('}');
}

// A document as its paths come in, one returned revision after the other.
struct ReturnedDocument {
    std::map<std::pair<std::uint32_t, std::string_view>, std::uint32_t> positions;
    std::vector<TreeRevision> revisions;
};

std::string_view hash_of(std::string_view id) { return id.substr(0, id.find('_', 1)); }

// What an element says of its path, as it came.
struct GivenPath {
    std::span<const JsonValue> ids;
    double start = 0;

    // The data hash that the newest one begins with; empty if there is none.
    [[nodiscard]] std::string_view newest_hash() const {
        return ids.empty() ? std::string_view{} : hash_of(ids[0].as_string());
    }
    [[nodiscard]] bool is_whole() const {
        const auto is_string = [](const JsonValue& id) { return id.is_string(); };
        return std::trunc(start) == static_cast<double>(ids.size()) && std::ranges::all_of(ids, is_string);
    }
};

GivenPath given_path(const JsonValue& returned) {
    const JsonValue* revisions = returned.find("_revisions");
    const JsonValue* ids = revisions == nullptr ? nullptr : revisions->find("ids");
    const JsonValue* start = revisions == nullptr ? nullptr : revisions->find("start");
    if (ids == nullptr || start == nullptr || !start->is_number()) return {};
    return {ids->elements(), start->as_real()};
}

class BulkGet {
   public:
    void take(const JsonValue& returned) {
        const JsonValue* id = returned.find("_id");
        if (id == nullptr || !id->is_string()) return;
        ReturnedDocument& incoming = documents_[id->as_string()];
        const std::size_t known = incoming.revisions.size();
        keep_fault(
            [&] {
                const GivenPath given = given_path(returned);
                const std::vector<std::string_view> path = read_path(given);
                add_path(id->as_string(), incoming, path);
                add_content(incoming, returned, given);
            },
            [&] {
                while (incoming.revisions.size() > known) {
                    const TreeRevision& revision = incoming.revisions.back();
                    incoming.positions.erase({revision.index, revision.text});
                    incoming.revisions.pop_back();
                }
            });
    }

    // What was taken, without the documents and elements that are at fault.
    [[nodiscard]] BulkImport imported() {
        DocumentChanges changes;
        ContentChanges contents;
        SharedMemory memory;
        for (auto& [given_id, incoming] : documents_) {
            if (incoming.revisions.empty()) continue;
            const std::string_view id = given_id;
            std::vector<TreeRevision>& revisions = incoming.revisions;
            keep_fault(
                [&] {
                    // A history of one entry is read as a revision string, so it must be one.
                    if (revisions.size() == 1) (void)Revision(revisions.front().revision_string());
                    changes.set(MultiVersionDocument::make(id, revisions, memory));
                },
                [&] { revisions.clear(); });
        }
        // Of several contents of one hash the first one stays, and the last one added does.
        for (auto content = contents_.rbegin(); content != contents_.rend(); ++content) {
            if (!content->document->revisions.empty()) contents.add(content->hash, content->text, memory);
        }
        DocumentStorage storage(std::move(changes).applied_to({}), std::move(contents).applied_to({}), {});
        if (storage.documents().empty()) return {{}, first_fault_};
        std::string root = choose_root(storage);
        return {DocumentStorage(storage.documents(), storage.data(), std::move(root)), first_fault_};
    }

   private:
    // Does something that what came in may refuse. Then it is undone, and all else goes on.
    template <class Do, class Undo>
    void keep_fault(const Do& act, const Undo& undo) {
        try {
            act();
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception&) {
            undo();
            if (first_fault_ == nullptr) first_fault_ = std::current_exception();
        }
    }

    // The texts of a path that reaches back to the first revision, newest first; empty for any other.
    std::vector<std::string_view> read_path(const GivenPath& given) {
        if (!given.is_whole()) return {};
        const auto hashes = given.ids;
        std::vector<std::string_view> path(hashes.size());
        std::string_view parent_hash;
        for (std::size_t at = hashes.size(); at-- > 0;) {
            path[at] =
                with_suffix(hashes[at].as_string(), at + 1 == hashes.size() ? "first" : parent_hash.substr(0, 7));
            parent_hash = hash_of(path[at]);
        }
        return path;
    }

    // A bare hash gets the suffix that it has as a child of its parent.
    std::string_view with_suffix(std::string_view id, std::string_view suffix) {
        if (id.find('_', 1) != std::string_view::npos) return id;
        return arena_.copy(std::string(id).append("_").append(suffix));
    }

    void add_path(std::string_view id, ReturnedDocument& incoming, std::span<const std::string_view> path) {
        std::uint32_t parent = no_entry;
        for (std::size_t at = path.size(); at-- > 0;) {
            const auto index = static_cast<std::uint32_t>(path.size() - at);
            const TreeRevision revision = TreeRevision::make(path[at], index, parent);
            if (revision.suffix().empty()) throw InvalidRevisionException("invalid_revision_state_uuid_empty");
            const std::pair name{index, revision.text};
            auto known = incoming.positions.find(name);
            if (known == incoming.positions.end()) {
                const auto next = static_cast<std::uint32_t>(incoming.revisions.size());
                if (parent == no_entry && next != 0) {
                    raise<InvalidParentRevisionException>(source::multiversiondocument, "ancestor",
                                                          "cannot_replace_first_revision", id);
                }
                incoming.revisions.push_back(revision);
                known = incoming.positions.emplace(name, next).first;
            } else if (incoming.revisions[known->second].parent != parent) {
                raise<InvalidParentRevisionException>(source::multiversiondocument, "ancestor",
                                                      "invalid_parent_revision_in_ancestor");
            }
            parent = known->second;
        }
    }

    void add_content(const ReturnedDocument& incoming, const JsonValue& returned, const GivenPath& given) {
        const std::string_view hash = content_hash(returned, given);
        if (hash.empty() || DataStorage::is_reserved(hash)) return;
        std::vector<JsonMember> members;
        for (const JsonMember& member : returned.members()) {
            if (member.key != "_id" && member.key != "_rev" && member.key != "_revisions") members.push_back(member);
        }
        TextBuffer text;
        write_json(JsonValue::object(members), text);
        contents_.push_back({&incoming, hash, arena_.copy(text.view())});
    }

    // What the content is stored under: the hash in "_rev", which is a revision string, or the generation and the first
    // of the ids; without "_rev" the hash of that one. Empty if neither is there.
    std::string_view content_hash(const JsonValue& returned, const GivenPath& given) {
        const std::string_view newest = given.newest_hash();
        const JsonValue* rev = returned.find("_rev");
        if (rev == nullptr || (!newest.empty() && is_exchange_form(rev->as_string(), given.start, newest)))
            return newest;
        return arena_.copy(Revision(rev->as_string()).datahash());
    }

    // Whether a text is the generation, "-" and the hash, as servers name a revision that came as a bare hash.
    static bool is_exchange_form(std::string_view rev, double start, std::string_view hash) {
        std::int64_t generation = 0;
        const auto [end, error] = std::from_chars(rev.data(), rev.data() + rev.size(), generation);
        const std::string_view rest = rev.substr(static_cast<std::size_t>(end - rev.data()));
        return error == std::errc() && static_cast<double>(generation) == std::trunc(start) && rest.starts_with('-') &&
               rest.substr(1) == hash;
    }

    // A document that is neither deleted nor an ordering document, if there are any, rather than any other.
    static std::string choose_root(const DocumentStorage& storage) {
        const DocumentIndex index(storage);
        std::vector<bool> is_candidate(index.size());
        bool any = false;
        for (const bool live : {true, false}) {
            for (std::uint32_t number = 0; !any && number < index.size(); ++number) {
                is_candidate[number] = !index.is_ordering(number) && index.is_live(number) == live;
            }
            any = any || std::ranges::find(is_candidate, true) != is_candidate.end();
        }
        if (!any) is_candidate.assign(index.size(), true);
        if (const auto root = index.find(vocabulary::root_name); root && is_candidate[*root]) {
            return std::string(vocabulary::root_name);
        }
        std::vector<bool> referenced(index.size());
        mark_referenced_objects(index, referenced);
        mark_openly_listed(index, referenced);
        std::uint32_t chosen = no_entry;
        for (std::uint32_t number = 0; number < index.size(); ++number) {
            if (!is_candidate[number]) continue;
            if (!referenced[number]) return std::string(index.id(number));
            if (chosen == no_entry) chosen = number;
        }
        return std::string(index.id(chosen));
    }

    // Marks what the list of any leaf has, deleted documents too: there may be no others.
    static void mark_openly_listed(const DocumentIndex& index, std::vector<bool>& listed) {
        Arena arena;
        NumberSet seen;  // documents may share a long content
        const auto [first, end] = index.ordering_ids();
        for (std::uint32_t number = first; number < end; ++number) {
            for (const std::uint32_t leaf : index.document(number).leaves_or_none()) {
                const auto content = index.content(number, leaf);
                if (!content || !seen.insert(content->number)) continue;
                const auto list = read_ordering_content(content->text, arena);
                if (!list) continue;
                visit_listed_ids(list->ids, [&](std::optional<std::string_view> id) {
                    const auto element = id ? index.find(*id) : std::nullopt;
                    if (element) listed[*element] = true;
                });
            }
        }
    }

    // A content as it came; it counts if its document gets a revision in the end.
    struct Returned {
        const ReturnedDocument* document;
        std::string_view hash;
        std::string_view text;
    };

    Arena arena_;
    std::map<std::string_view, ReturnedDocument> documents_;
    std::vector<Returned> contents_;
    std::exception_ptr first_fault_;
};

std::span<const JsonValue> elements_of(const JsonValue& object, std::string_view key) {
    const JsonValue* member = object.find(key);
    return member == nullptr ? std::span<const JsonValue>{} : member->elements();
}

}  // namespace

void write_bulk_docs(const DocumentStorage& storage, TextBuffer& out) {
    TextBuffer id;
    TextBuffer path;
    ResultLimit limit(storage.data().bytes(), out);
    ListSeparator separator;
    out.append(R"({"docs": [)");
    for (const auto& entry : storage.documents()) {
        const std::string_view content = storage.data().read_object(entry.value->winning().datahash());
        limit.check(content.size(), out);
        separator.append_to(out);
        id.clear();
        write_json_string(entry.key, id);
        path.clear();
        write_path(*entry.value, path);
        const WrittenMember members[] = {{"_id", id.view()}, {"_revisions", path.view()}};
        write_object_with(content, members, out);
    }
    out.append(R"(], "new_edits": false})");
}

BulkImport from_bulk_get(const JsonValue& body) {
    BulkGet import;
    for (const JsonValue& result : elements_of(body, "results")) {
        for (const JsonValue& returned : elements_of(result, "docs")) {
            if (const JsonValue* ok = returned.find("ok"); ok != nullptr && ok->is_object()) import.take(*ok);
        }
    }
    return import.imported();
}

}  // namespace libzentadbpp
