#include "inspect/integrity.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>
#include <zentadbpp_verify.hpp>

#include "inspect/names.h"
#include "inspect/references.h"
#include "inspect/sync_json.h"
#include "store/raw_json.h"

namespace zentadb {

namespace {

using nlohmann::json;
constexpr std::size_t suffix_length = 7;

// Where a content is used.
struct Use {
    std::string_view hash;
    std::string_view document;
    std::string revision;
};

class Check {
   public:
    // `given` is the text as it came, `written` what the library makes of it; both in the standard form.
    Check(std::string_view given, std::string_view written) : given_(given), written_(written) {}

    IntegrityReport report() && {
        check_documents();
        std::ranges::stable_sort(uses_, {}, &Use::hash);
        check_contents();
        check_references();
        check_what_was_read();
        return std::move(report_);
    }

   private:
    void report(Trouble trouble, std::string_view document, std::string revision, std::string_view detail) {
        report_.findings.push_back({trouble, std::string(document), std::move(revision), std::string(detail)});
    }

    void check_documents() {
        report_.documents = written_.documents().size();
        for (const Entry& document : written_.documents()) {
            const RevisionTree tree(document.value);
            report_.revisions += tree.revisions().size();
            bool has_leaf = false;
            bool is_live = false;
            for (const Revision& revision : tree.revisions()) {
                const bool is_leaf = revision.is_leaf();
                has_leaf = has_leaf || is_leaf;
                is_live = is_live || (is_leaf && revision.hash() != "deleted");
                check_revision(document.key, tree, revision);
            }
            if (!has_leaf) report(Trouble::no_leaf, document.key, {}, {});
            if (is_live) live_.push_back(document.key);
        }
    }

    void check_revision(std::string_view document, const RevisionTree& tree, const Revision& revision) {
        // Ordering documents that two copies began differently hang one under the other.
        const bool may_be_first = revision.parent == Revision::none || is_ordering(document);
        const bool names_parent = revision.parent != Revision::none &&
                                  revision.suffix() == tree[revision.parent].hash().substr(0, suffix_length);
        if (!names_parent && !(may_be_first && revision.suffix() == "first")) {
            report(Trouble::wrong_suffix, document, revision.name, {});
        }
        const std::string_view hash = revision.hash();
        if (is_reserved(hash)) return;
        if (!is_library_hash(hash)) report(Trouble::unknown_hash, document, revision.name, hash);
        if (const Entry* content = written_.content(hash)) {
            uses_.push_back({content->key, document, revision.name});
        } else {
            report(Trouble::missing_content, document, revision.name, hash);
        }
    }

    void check_contents() {
        report_.contents = written_.contents().size();
        for (const Entry& content : written_.contents()) {
            const auto use = std::ranges::lower_bound(uses_, content.key, {}, &Use::hash);
            if (use == uses_.end()) continue;
            check_hash(content, *use);
            const json value = json::parse(content.value, nullptr, false);
            if (value.is_discarded()) {
                report(Trouble::unreadable_content, use->document, use->revision, content.key);
            } else if (is_ordering(use->document)) {
                check_list(value, *use);
            } else {
                add_references(references_in(value).documents, *use);
            }
        }
    }

    void check_hash(const Entry& content, const Use& use) {
        const zentadbpp::HashKind kind = zentadbpp::hash_kind(content.key);
        if (kind == zentadbpp::HashKind::unknown) return;
        ++report_.checked_contents;
        if (zentadbpp::hash_of(content.value, kind) == content.key) return;
        // A number in another form than this process writes is read all the same, but then written in that one.
        const Entry* given = given_.content(content.key);
        if (given != nullptr && zentadbpp::hash_of(given->value, kind) == content.key) return;
        report(Trouble::wrong_content, use.document, use.revision, content.key);
    }

    void check_list(const json& content, const Use& use) {
        std::optional<ListContent> list = list_in(content);
        if (!list) return;
        const std::string_view id = use.document.substr(ordering_prefix.size());
        const zentadbpp::HashKind kind = zentadbpp::hash_kind(id);
        const std::string path = list->instance + "-ordering-" + list->domain;
        if (kind == zentadbpp::HashKind::unknown || id != zentadbpp::hash_of(path, kind)) {
            report(Trouble::wrong_ordering_id, use.document, use.revision, use.hash);
        }
        add_references(std::move(list->elements), use);
    }

    void add_references(std::vector<std::string> ids, const Use& use) {
        for (std::string& id : ids) references_.push_back({std::move(id), &use});
    }

    void check_references() {
        std::ranges::stable_sort(references_, {}, &Reference::id);
        const auto same = [](const Reference& a, const Reference& b) { return a.id == b.id; };
        references_.erase(std::unique(references_.begin(), references_.end(), same), references_.end());
        for (const auto& [id, use] : references_) {
            if (written_.document(id) == nullptr) report(Trouble::missing_document, use->document, use->revision, id);
        }
        for (const std::string_view document : live_) {
            if (is_ordering(document) || document == written_.root_id()) continue;
            if (std::ranges::binary_search(references_, document, {}, &Reference::id)) continue;
            report(Trouble::unreferenced_document, document, {}, {});
        }
    }

    // What the library leaves out, or reads only in part, is missing from what it writes, or different there.
    void check_what_was_read() {
        if (given_.text() == written_.text()) return;
        const std::size_t before = report_.findings.size();
        check_members();
        const zentadbpp::Value rewritten = zentadbpp::uncompress(given_.text());
        const SyncJson whole(rewritten.view());
        compare(given_.documents(), whole.documents(), written_.documents(), &Finding::document);
        compare(given_.contents(), whole.contents(), written_.contents(), &Finding::detail);
        if (report_.findings.size() == before) report(Trouble::written_differently, {}, {}, {});
    }

    void check_members() {
        std::size_t unknown = 0;
        std::set<std::string_view> seen;
        for (const std::string_view member : given_.members()) {
            const bool is_known = member == "d" || member == "o" || member == "r";
            if (is_known && !seen.insert(member).second) report(Trouble::duplicate_key, {}, {}, member);
            constexpr std::size_t enough = 8;
            if (!is_known && unknown++ < enough) report(Trouble::unknown_member, {}, {}, member);
        }
    }

    // The entries of a part as it was given, the same with each key once, and what of it was read.
    void compare(const std::vector<Entry>& given, const std::vector<Entry>& whole, const std::vector<Entry>& read,
                 std::string Finding::*subject) {
        for (const Entry& entry : whole) {
            const auto same = std::ranges::lower_bound(read, entry.key, {}, &Entry::key);
            if (same != read.end() && same->key == entry.key && same->value == entry.value) continue;
            Finding finding{Trouble::not_read};
            finding.*subject = entry.key;
            report_.findings.push_back(std::move(finding));
        }
        for (std::size_t at = 1; at < given.size(); ++at) {
            if (given[at].key == given[at - 1].key) report(Trouble::duplicate_key, {}, {}, given[at].key);
        }
    }

    struct Reference {
        std::string id;
        const Use* use;
    };

    SyncJson given_;
    SyncJson written_;
    std::vector<Use> uses_;
    std::vector<std::string_view> live_;
    std::vector<Reference> references_;
    IntegrityReport report_;
};

// What a trouble is, in the order of the enumeration; %d is the detail.
constexpr std::array<std::string_view, 13> sentences = {
    "the text of content %d does not hash to its name",
    "the revision does not name its parent",
    "the id does not match the list in content %d",
    "refers to document %d, which is missing",
    "no revision can win",
    "key %d occurs twice; only the last is read",
    "no revision names content %d",
    "member %d is unknown and will be dropped",
    "content %d is missing: pruned or lost",
    "nothing refers to the document",
    "hash %d is of an unknown kind and cannot be checked",
    "content %d is not UTF-8; what it refers to was not checked",
    "the library would write the text differently",
};

}  // namespace

std::string describe(const Finding& finding) {
    std::string line;
    if (!finding.document.empty()) line += "document " + finding.document;
    if (!finding.revision.empty()) line += " revision " + finding.revision;
    if (!line.empty()) line += ": ";
    // Of a document it is the history that is read, or not.
    if (finding.trouble == Trouble::not_read && finding.detail.empty())
        return line + "its history is read only in part";
    const std::string_view sentence = sentences[static_cast<std::size_t>(finding.trouble)];
    const std::size_t mark = sentence.find("%d");
    if (mark == std::string_view::npos) return line.append(sentence);
    line.append(sentence.substr(0, mark)).append(finding.detail);
    return line.append(sentence.substr(mark + 2));
}

bool IntegrityReport::is_damaged() const {
    return !refused.empty() || std::ranges::any_of(findings, is_damage, &Finding::trouble);
}

IntegrityReport check_integrity(const std::string& sync_json) {
    try {
        const zentadbpp::Value written = zentadbpp::Handle(sync_json).dump();
        if (written.view().starts_with('@')) return {.refused = "USE_BEL_FORMAT is set; unset it to check a text"};
        const std::size_t begin = raw_json::skip_space(sync_json, 0);
        const bool is_standard = begin < sync_json.size() && sync_json[begin] == '{';
        bool is_compressed = false;
        if (is_standard) {
            raw_json::for_each_member(sync_json, [&](std::string_view member, std::string_view) {
                is_compressed = is_compressed || member == "compressed";
            });
        }
        if (is_standard && !is_compressed) return Check(sync_json, written.view()).report();
        const zentadbpp::Value given = zentadbpp::uncompress(sync_json);
        return Check(given.view(), written.view()).report();
    } catch (const zentadbpp::Error& error) {
        return {.refused = error.what()};
    }
}

}  // namespace zentadb
