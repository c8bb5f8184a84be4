#include "inspect/integrity.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <utility>
#include <zentadbpp_verify.hpp>

#include "store/raw_json.h"

namespace zentadb {

namespace {

using nlohmann::json;
using raw_json::decoded;

constexpr std::size_t suffix_length = 7;
constexpr std::size_t sha256_digits = 64;
constexpr std::string_view ordering_prefix = "ord-";

enum class HashKind : std::uint8_t { sha256, fast, unknown };

HashKind kind_of(std::string_view hash) {
    const auto consists_of = [](std::string_view text, std::string_view digits) {
        return !text.empty() && text.find_first_not_of(digits) == std::string_view::npos;
    };
    if (hash.size() == sha256_digits && consists_of(hash, "0123456789abcdef")) return HashKind::sha256;
    if (hash.starts_with('x') && consists_of(hash.substr(1), "0123456789")) return HashKind::fast;
    return HashKind::unknown;
}

bool is_reserved(std::string_view hash) { return hash == "deleted" || hash == "resolved" || hash == "empty"; }

std::string hash_of(std::string_view text, HashKind kind) {
    return kind == HashKind::fast ? zentadbpp::fast_hash(text) : zentadbpp::sha256(text);
}

struct Entry {
    std::string_view key;
    std::string_view value;
};

// The members of one part of a sync JSON.
struct Part {
    std::vector<Entry> entries;  // ascending by key
    std::size_t count = 0;       // as they stand, before equal keys fell together

    void add(std::string_view object) {
        raw_json::for_each_member(object, [&](auto key, auto value) { entries.push_back({key, value}); });
        count = entries.size();
        std::ranges::stable_sort(entries, {}, &Entry::key);
    }
    [[nodiscard]] const Entry* find(std::string_view key) const {
        const auto found = std::ranges::lower_bound(entries, key, {}, &Entry::key);
        return found != entries.end() && found->key == key ? &*found : nullptr;
    }
};

struct Parts {
    Part documents;
    Part contents;
    std::string_view root;
    bool is_compressed = false;
    std::vector<std::string_view> repeated;
    std::vector<std::string_view> unknown;
};

Parts parts_of(std::string_view sync_json) {
    Parts parts;
    std::vector<std::string_view> seen;
    raw_json::for_each_member(sync_json, [&](std::string_view key, std::string_view value) {
        if (std::ranges::find(seen, key) != seen.end()) parts.repeated.push_back(key);
        if (key == "d") {
            parts.documents.add(value);
        } else if (key == "o") {
            parts.contents.add(value);
        } else if (key == "r") {
            parts.root = value;
        } else {
            parts.is_compressed = parts.is_compressed || key == "compressed";
            if (parts.unknown.size() < 8) parts.unknown.push_back(key);  // a few are enough to tell
            return;
        }
        seen.push_back(key);
    });
    return parts;
}

constexpr std::size_t none = static_cast<std::size_t>(-1);

// A revision as it stands in a history array.
struct Revision {
    std::string_view entry;
    std::size_t parent = none;  // position in the array's revisions
    std::size_t generation = 1;
    bool has_child = false;

    [[nodiscard]] std::string_view hash() const { return entry.substr(0, entry.find('_', 1)); }
    [[nodiscard]] std::string_view suffix() const { return entry.substr(entry.find('_', 1) + 1); }
    [[nodiscard]] std::string text() const { return std::to_string(generation) + "-" + std::string(entry); }
    [[nodiscard]] bool is_leaf() const { return !has_child && hash() != "resolved"; }
};

// Arrays are chains, whose last entry is the parent of the next, and in them, lists of branches, which all have one
// parent.
std::vector<Revision> revisions_of(std::string_view history) {
    struct Array {
        bool is_chain;
        std::size_t parent;  // of what comes next
    };
    std::vector<Revision> revisions;
    std::vector<Array> open;
    for (std::size_t at = 0; at < history.size();) {
        const char c = history[at];
        if (c == '"') {
            const std::size_t end = raw_json::string_end(history, at);
            Array& array = open.back();
            Revision revision{history.substr(at + 1, end - at - 2), array.parent};
            if (array.parent != none) {
                revision.generation = revisions[array.parent].generation + 1;
                revisions[array.parent].has_child = true;
            }
            if (array.is_chain) array.parent = revisions.size();
            revisions.push_back(revision);
            at = end;
            continue;
        }
        if (c == '[') {
            const bool is_chain = open.empty() || !open.back().is_chain;
            open.push_back({is_chain, open.empty() ? none : open.back().parent});
        }
        if (c == ']') open.pop_back();
        ++at;
    }
    return revisions;
}

// Where a content is used.
struct Use {
    std::string_view hash;
    std::string_view document;
    std::string revision;
};

class Check {
   public:
    // `given` is the text as it came, `written` what the library makes of it; both in the standard form.
    Check(std::string_view given, std::string_view written)
        : given_text_(given), written_text_(written), given_(parts_of(given)), written_(parts_of(written)) {}

    IntegrityReport report() && {
        check_documents();
        std::ranges::stable_sort(uses_, {}, &Use::hash);
        check_contents();
        check_references();
        check_what_was_read();
        return std::move(report_);
    }

   private:
    void tell(Trouble trouble, std::string_view document, std::string revision, std::string_view detail) {
        report_.findings.push_back({trouble, decoded(document), std::move(revision), decoded(detail)});
    }

    void check_documents() {
        report_.documents = written_.documents.entries.size();
        for (const Entry& document : written_.documents.entries) {
            const std::vector<Revision> revisions = revisions_of(document.value);
            report_.revisions += revisions.size();
            bool has_leaf = false;
            bool is_live = false;
            for (const Revision& revision : revisions) {
                const bool is_leaf = revision.is_leaf();
                has_leaf = has_leaf || is_leaf;
                is_live = is_live || (is_leaf && revision.hash() != "deleted");
                check_revision(document.key, revisions, revision);
            }
            if (!has_leaf) tell(Trouble::no_leaf, document.key, {}, {});
            ids_.push_back(decoded(document.key));
            if (is_live) live_.push_back(document.key);
        }
        std::ranges::sort(ids_);
    }

    void check_revision(std::string_view document, const std::vector<Revision>& revisions, const Revision& revision) {
        // Ordering documents that two copies began differently hang one under the other.
        const bool may_be_first = revision.parent == none || document.starts_with(ordering_prefix);
        const bool names_parent =
            revision.parent != none && revision.suffix() == revisions[revision.parent].hash().substr(0, suffix_length);
        if (!names_parent && !(may_be_first && revision.suffix() == "first")) {
            tell(Trouble::wrong_suffix, document, revision.text(), {});
        }
        const std::string_view hash = revision.hash();
        if (is_reserved(hash)) return;
        if (kind_of(hash) == HashKind::unknown) tell(Trouble::unknown_hash, document, revision.text(), hash);
        if (written_.contents.find(hash) == nullptr) {
            tell(Trouble::missing_content, document, revision.text(), hash);
        } else {
            uses_.push_back({hash, document, revision.text()});
        }
    }

    void check_contents() {
        report_.contents = written_.contents.entries.size();
        for (const Entry& content : written_.contents.entries) {
            const auto use = std::ranges::lower_bound(uses_, content.key, {}, &Use::hash);
            if (use == uses_.end()) continue;
            check_hash(content, *use);
            const json value = json::parse(content.value, nullptr, false);
            if (value.is_discarded()) {
                tell(Trouble::unreadable_content, use->document, use->revision, content.key);
            } else if (use->document.starts_with(ordering_prefix)) {
                check_list(value, *use);
            } else {
                add_references(value, *use);
            }
        }
    }

    void check_hash(const Entry& content, const Use& use) {
        const HashKind kind = kind_of(content.key);
        if (kind == HashKind::unknown) return;
        ++report_.checked_contents;
        if (hash_of(content.value, kind) == content.key) return;
        // A number in another form than this process writes is read all the same, but then written in that one.
        const Entry* given = given_.contents.find(content.key);
        if (given != nullptr && hash_of(given->value, kind) == content.key) return;
        tell(Trouble::wrong_content, use.document, use.revision, content.key);
    }

    void check_list(const json& list, const Use& use) {
        if (!list.is_object() || !list.contains("d") || !list.contains("i") || !list.contains("s")) return;
        if (!list["d"].is_string() || !list["i"].is_string() || !list["s"].is_array()) return;
        const std::string_view id = use.document.substr(ordering_prefix.size());
        const std::string path = list["i"].get<std::string>() + "-ordering-" + list["d"].get<std::string>();
        const HashKind kind = kind_of(id);
        if (kind == HashKind::unknown || id != hash_of(path, kind)) {
            tell(Trouble::wrong_ordering_id, use.document, use.revision, use.hash);
        }
        for (const json& element : list["s"]) {
            if (element.is_string()) references_.push_back({element.get<std::string>(), &use});
        }
    }

    void add_references(const json& content, const Use& use) {
        std::vector<const json*> left = {&content};
        while (!left.empty()) {
            const json& value = *left.back();
            left.pop_back();
            if (value.is_string() && value.get_ref<const std::string&>().starts_with('O')) {
                references_.push_back({value.get_ref<const std::string&>().substr(1), &use});
            }
            if (!value.is_structured() || (value.is_object() && value.contains("#nf"))) continue;
            for (const json& member : value) left.push_back(&member);
        }
    }

    void check_references() {
        std::ranges::stable_sort(references_, {}, &Reference::id);
        const auto same = [](const Reference& a, const Reference& b) { return a.id == b.id; };
        references_.erase(std::unique(references_.begin(), references_.end(), same), references_.end());
        for (const auto& [id, use] : references_) {
            if (std::ranges::binary_search(ids_, id)) continue;
            report_.findings.push_back({Trouble::missing_document, decoded(use->document), use->revision, id});
        }
        for (const std::string_view document : live_) {
            if (document.starts_with(ordering_prefix) || is_root(document)) continue;
            const std::string id = decoded(document);
            if (std::ranges::binary_search(references_, id, {}, &Reference::id)) continue;
            tell(Trouble::unreferenced_document, document, {}, {});
        }
    }

    [[nodiscard]] bool is_root(std::string_view id) const {
        return written_.root.size() == id.size() + 2 && written_.root.substr(1, id.size()) == id;
    }

    // What the library leaves out, or reads only in part, is missing from what it writes, or different there.
    void check_what_was_read() {
        if (given_text_ == written_text_) return;
        const std::size_t before = report_.findings.size();
        for (const std::string_view key : given_.repeated) tell(Trouble::duplicate_key, {}, {}, key);
        for (const std::string_view key : given_.unknown) tell(Trouble::unknown_member, {}, {}, key);
        const zentadbpp::Value rewritten = zentadbpp::uncompress(given_text_);
        const Parts whole = parts_of(rewritten);
        compare(given_.documents, whole.documents, written_.documents, &Finding::document);
        compare(given_.contents, whole.contents, written_.contents, &Finding::detail);
        if (report_.findings.size() == before) tell(Trouble::written_differently, {}, {}, {});
    }

    // A part as it came, the same with each key once, and what of it was read.
    void compare(const Part& given, const Part& whole, const Part& read, std::string Finding::*subject) {
        for (const Entry& entry : whole.entries) {
            const Entry* same = read.find(entry.key);
            if (same != nullptr && same->value == entry.value) continue;
            Finding finding{Trouble::not_read};
            finding.*subject = decoded(entry.key);
            report_.findings.push_back(std::move(finding));
        }
        if (given.count == whole.count) return;
        for (std::size_t i = 1; i < given.entries.size(); ++i) {
            const std::string_view key = given.entries[i].key;
            if (key == given.entries[i - 1].key) tell(Trouble::duplicate_key, {}, {}, key);
        }
    }

    struct Reference {
        std::string id;
        const Use* use;
    };

    std::string_view given_text_;
    std::string_view written_text_;
    Parts given_;
    Parts written_;
    std::vector<Use> uses_;
    std::vector<std::string> ids_;
    std::vector<std::string_view> live_;
    std::vector<Reference> references_;
    IntegrityReport report_;
};

struct Words {
    std::string_view name;
    std::string_view sentence;  // %d is the detail
};

const Words& words(Trouble trouble) {
    static constexpr std::array<Words, 13> all{{
        {"wrong_content", "the text of content %d does not hash to its name"},
        {"wrong_suffix", "the revision does not name its parent"},
        {"wrong_ordering_id", "the id is not that of the list in content %d"},
        {"missing_document", "refers to document %d, which is not there"},
        {"no_leaf", "no revision could win"},
        {"duplicate_key", "key %d stands twice, and only the last is read"},
        {"not_read", "content %d is of no use, as no revision names it"},
        {"unknown_member", "member %d is unknown and will be dropped"},
        {"missing_content", "content %d is not there; it was pruned, or is lost"},
        {"unreferenced_document", "nothing refers to the document"},
        {"unknown_hash", "hash %d is of an unknown kind and cannot be checked"},
        {"unreadable_content", "content %d is not UTF-8; what it refers to was not checked"},
        {"written_differently", "the text is laid out in another way than the library does"},
    }};
    return all[static_cast<std::size_t>(trouble)];
}

}  // namespace

std::string_view name(Trouble trouble) { return words(trouble).name; }

std::string describe(const Finding& finding) {
    std::string line;
    if (!finding.document.empty()) line += "document " + finding.document;
    if (!finding.revision.empty()) line += " revision " + finding.revision;
    if (!line.empty()) line += ": ";
    // Of a document it is the history that is read, or not.
    if (finding.trouble == Trouble::not_read && finding.detail.empty())
        return line + "its history is read only in part";
    const std::string_view sentence = words(finding.trouble).sentence;
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
        if (is_standard && !parts_of(sync_json).is_compressed) return Check(sync_json, written).report();
        const zentadbpp::Value given = zentadbpp::uncompress(sync_json);
        return Check(given, written).report();
    } catch (const zentadbpp::Error& error) {
        return {.refused = error.what()};
    }
}

}  // namespace zentadb
