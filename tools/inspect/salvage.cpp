#include "inspect/salvage.h"

#include <algorithm>
#include <optional>
#include <set>
#include <string_view>
#include <unordered_set>
#include <zentadbpp_verify.hpp>

#include "inspect/integrity.h"
#include "inspect/sync_json.h"
#include "store/json_text.h"

namespace zentadb {

namespace {

using Entries = std::vector<Entry>;

std::string text_of(const Entries& documents, const Entries& contents, std::string_view root) {
    SyncJsonText text;
    for (const auto& [id, history] : documents) text.add_document(id, history);
    for (const auto& [hash, content] : contents) text.add_content(hash, content);
    return text.with_root(root);
}

bool is_readable(const std::string& sync_json) {
    try {
        return static_cast<bool>(zentadbpp::Handle(sync_json));
    } catch (const zentadbpp::Error&) {
        return false;
    }
}

// Names of contents, of which a damaged one is found again by how it begins or ends.
class Names {
   public:
    void add(const std::string& name) {
        parts_.insert(beginning(name));
        parts_.insert(end(name));
    }
    [[nodiscard]] bool has_like(const std::string& name) const {
        return parts_.contains(beginning(name)) || parts_.contains(end(name));
    }

   private:
    static std::size_t size_of_part(const std::string& name) { return name.size() < 32 ? 5 : 16; }
    static std::string beginning(const std::string& name) { return "^" + name.substr(0, size_of_part(name)); }
    static std::string end(const std::string& name) {
        return name.substr(name.size() - std::min(name.size(), size_of_part(name))) + "$";
    }

    std::unordered_set<std::string> parts_;
};

class Rescue {
   public:
    explicit Rescue(const std::string& text) {
        const std::optional<std::size_t> size = json_break(text);
        salvage_.stopped_at = size.value_or(0);
        const SyncJson whole(std::string_view(text).substr(0, size.value_or(text.size())));
        documents_ = whole.documents();
        contents_ = whole.contents();
        root_ = whole.root_id();
    }

    Salvage result() && {
        leave_out_unreadable();
        // The root comes last in a text, and is the first to go if it breaks off.
        const auto has = [this](std::string_view id) { return std::ranges::count(documents_, id, &Entry::key) != 0; };
        if (!has(root_)) root_ = "root";
        if (has(root_)) leave_out_damaged();
        salvage_.histories = documents_.size();
        salvage_.contents = contents_.size();
        if (has(root_)) salvage_.sync_json = text_of(documents_, contents_, root_);
        return std::move(salvage_);
    }

   private:
    template <class IsDamaged>
    void leave_out(Entries& entries, const std::string& what, const IsDamaged& is_damaged) {
        std::erase_if(entries, [&](const Entry& entry) {
            if (!is_damaged(entry)) return false;
            salvage_.damaged.push_back(what + entry.key);
            return true;
        });
    }

    // What the library would not read the whole text for.
    void leave_out_unreadable() {
        leave_out(documents_, "the history of document ", [](const Entry& entry) {
            return !entry.value.starts_with('[') || !is_readable(text_of({{"x", entry.value}}, {}, "x"));
        });
        leave_out(contents_, "content ", [](const Entry& entry) {
            return !entry.value.starts_with('{') ||
                   !is_readable(text_of({{"x", R"(["A_first"])"}}, {{"A", entry.value}}, "x"));
        });
    }

    // The names of whole contents that no history has. A history that has nearly such a name is damaged, and would make
    // the document another one than it is in other copies.
    [[nodiscard]] Names unnamed(const std::vector<Finding>& findings) const {
        std::unordered_set<std::string_view> not_read;
        for (const Finding& finding : findings) {
            if (finding.trouble == Trouble::not_read) not_read.insert(finding.detail);
        }
        Names names;
        for (const Entry& entry : contents_) {
            if (!not_read.contains(entry.key)) continue;
            const zentadbpp::HashKind kind = zentadbpp::hash_kind(entry.key);
            const bool is_known = kind != zentadbpp::HashKind::unknown;
            if (is_known && zentadbpp::hash_of(entry.value, kind) == entry.key) names.add(entry.key);
        }
        return names;
    }

    // What does not hash to its name, or names no parent, or has another's list.
    void leave_out_damaged() {
        const std::vector<Finding> findings = check_integrity(text_of(documents_, contents_, root_)).findings;
        const Names unnamed = this->unnamed(findings);
        std::set<std::string, std::less<>> documents;
        std::set<std::string, std::less<>> contents;
        for (const Finding& finding : findings) {
            if (finding.trouble == Trouble::wrong_suffix || finding.trouble == Trouble::wrong_ordering_id ||
                (finding.trouble == Trouble::missing_content && unnamed.has_like(finding.detail))) {
                documents.insert(finding.document);
            }
            if (finding.trouble == Trouble::wrong_content) contents.insert(finding.detail);
        }
        leave_out(documents_, "the history of document ",
                  [&](const Entry& entry) { return documents.contains(entry.key); });
        leave_out(contents_, "content ", [&](const Entry& entry) { return contents.contains(entry.key); });
    }

    Salvage salvage_;
    Entries documents_;
    Entries contents_;
    std::string root_;
};

}  // namespace

Salvage salvage(const std::string& text) { return Rescue(text).result(); }

}  // namespace zentadb
