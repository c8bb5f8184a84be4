#include "replication/bulk_exchange.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "common/arena.h"
#include "common/canonical_object.h"
#include "common/error.h"
#include "common/json_writer.h"
#include "documents/document_index.h"
#include "documents/ordering_lists.h"
#include "documents/result_limit.h"
#include "documents/vocabulary.h"

namespace libzentadbpp {

namespace {

void write_path(const MultiVersionDocument& document, TextBuffer& out) {
    out.append(R"({"ids": [)");
    const char* separator = "";
    for (std::uint32_t at = document.winning_position(); at != no_entry; at = document.revisions()[at].parent) {
        out.append(separator);
        separator = ", ";
        write_json_string(document.revisions()[at].datahash(), out);
    }
    out.append(R"(], "start": )");
    write_json_integer(document.winning().index, out);
    out.push_back('}');
}

// A document as its paths come in, one returned revision after the other.
struct Incoming {
    std::map<std::pair<std::uint32_t, std::string_view>, std::uint32_t> positions;
    std::vector<TreeRevision> revisions;
};

// What an element says of its path, as it came.
struct GivenPath {
    std::span<const JsonValue> ids;
    double start = 0;

    [[nodiscard]] std::string_view newest() const { return ids.empty() ? std::string_view{} : ids[0].as_string(); }
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
        Incoming& incoming = documents_[id->as_string()];
        const GivenPath given = given_path(returned);
        const std::vector<std::string_view> path = read_path(given);
        add_path(id->as_string(), incoming, path);
        add_content(incoming, returned, given, path);
    }

    [[nodiscard]] DocumentStorage storage() {
        DocumentChanges changes;
        ContentChanges contents;
        SharedMemory memory;
        for (const auto& [id, incoming] : documents_) {
            if (incoming.revisions.empty()) continue;
            // A history of one entry is read as a revision string, so it must be one.
            if (incoming.revisions.size() == 1) (void)Revision(incoming.revisions.front().revision_string());
            changes.set(MultiVersionDocument::make(id, incoming.revisions, memory));
        }
        for (const Returned& content : contents_) {
            if (!content.document->revisions.empty()) contents.add(content.hash, content.text, memory);
        }
        DocumentStorage storage(std::move(changes).applied_to({}), std::move(contents).applied_to({}), {});
        if (storage.documents().empty()) return {};
        std::string root = choose_root(storage);
        return DocumentStorage(storage.documents(), storage.data(), std::move(root));
    }

   private:
    // The texts of a path that reaches back to the first revision, newest first; empty for any other.
    std::vector<std::string_view> read_path(const GivenPath& given) {
        if (!given.is_whole()) return {};
        const auto hashes = given.ids;
        std::vector<std::string_view> path(hashes.size());
        std::string_view parent_hash;
        for (std::size_t at = hashes.size(); at-- > 0;) {
            path[at] =
                with_suffix(hashes[at].as_string(), at + 1 == hashes.size() ? "first" : parent_hash.substr(0, 7));
            parent_hash = path[at].substr(0, path[at].find('_', 1));
        }
        return path;
    }

    // A bare hash gets the suffix that it has as a child of its parent.
    std::string_view with_suffix(std::string_view id, std::string_view suffix) {
        if (id.find('_', 1) != std::string_view::npos) return id;
        return arena_.copy(std::string(id).append("_").append(suffix));
    }

    void add_path(std::string_view id, Incoming& incoming, std::span<const std::string_view> path) {
        std::uint32_t parent = no_entry;
        for (std::size_t at = path.size(); at-- > 0;) {
            const auto index = static_cast<std::uint32_t>(path.size() - at);
            const TreeRevision revision = TreeRevision::make(path[at], index, parent);
            const auto next = static_cast<std::uint32_t>(incoming.revisions.size());
            const auto [entry, is_new] = incoming.positions.try_emplace({index, revision.text}, next);
            if (is_new) {
                if (parent == no_entry && next != 0) {
                    raise<InvalidParentRevisionException>(source::multiversiondocument, "ancestor",
                                                          "cannot_replace_first_revision", id);
                }
                incoming.revisions.push_back(revision);
            } else if (incoming.revisions[entry->second].parent != parent) {
                raise<InvalidParentRevisionException>(source::multiversiondocument, "ancestor",
                                                      "invalid_parent_revision_in_ancestor");
            }
            parent = entry->second;
        }
    }

    void add_content(const Incoming& incoming, const JsonValue& returned, const GivenPath& given,
                     std::span<const std::string_view> path) {
        const std::string_view hash = content_hash(returned, given, path);
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
    // of the ids as they came. Empty where nothing tells it.
    std::string_view content_hash(const JsonValue& returned, const GivenPath& given,
                                  std::span<const std::string_view> path) {
        const std::string_view newest = path.empty() ? given.newest() : path[0].substr(0, path[0].find('_', 1));
        const JsonValue* rev = returned.find("_rev");
        if (rev == nullptr) return path.empty() ? std::string_view{} : newest;
        TextBuffer exchange_form;
        write_json_real(given.start, exchange_form);
        exchange_form.push_back('-');
        exchange_form.append(newest);
        if (!newest.empty() && rev->as_string() == exchange_form.view()) return newest;
        return arena_.copy(Revision(rev->as_string()).datahash());
    }

    static std::string choose_root(const DocumentStorage& storage) {
        const DocumentIndex index(storage);
        if (index.find(vocabulary::root_name)) return std::string(vocabulary::root_name);
        std::vector<bool> referenced(index.size());
        mark_referenced_objects(index, referenced);
        mark_listed_elements(index, referenced);
        for (std::uint32_t number = 0; number < index.size(); ++number) {
            if (!has_ordering_id(index.id(number)) && !referenced[number]) return std::string(index.id(number));
        }
        return std::string(index.id(0));
    }

    // A content as it came; it counts if its document gets a revision in the end.
    struct Returned {
        const Incoming* document;
        std::string_view hash;
        std::string_view text;
    };

    Arena arena_;
    std::map<std::string_view, Incoming> documents_;
    std::vector<Returned> contents_;
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
    const char* separator = "";
    out.append(R"({"docs": [)");
    for (const auto& entry : storage.documents()) {
        const std::string_view content = storage.data().read_object(entry.value->winning().datahash());
        limit.check(content, out);
        out.append(separator);
        separator = ", ";
        id.clear();
        write_json_string(entry.key, id);
        path.clear();
        write_path(*entry.value, path);
        const WrittenMember members[] = {{"_id", id.view()}, {"_revisions", path.view()}};
        write_object_with(content, members, out);
    }
    out.append(R"(], "new_edits": false})");
}

DocumentStorage from_bulk_get(const JsonValue& body) {
    BulkGet import;
    for (const JsonValue& result : elements_of(body, "results")) {
        for (const JsonValue& returned : elements_of(result, "docs")) {
            if (const JsonValue* ok = returned.find("ok"); ok != nullptr && ok->is_object()) import.take(*ok);
        }
    }
    return import.storage();
}

}  // namespace libzentadbpp
