#include "inspect/salvage.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string_view>
#include <unordered_set>
#include <zentadbpp_verify.hpp>

#include "inspect/integrity.h"
#include "store/json_text.h"
#include "store/raw_json.h"

namespace zentadb {

namespace {

using nlohmann::json;

// An entry as it stands; the key without its quotes.
struct Piece {
    std::string_view key;
    std::string_view value;
};

struct Pieces {
    std::vector<Piece> histories;
    std::vector<Piece> contents;
    std::string root;
};

// Calls `member(key, value, is_whole)` for each member of an object that may break off; only the last one may not be
// whole.
template <class Member>
void for_each_member_before_the_break(std::string_view object, const Member& member) {
    using raw_json::skip_space;
    for (std::size_t at = skip_space(object, 0) + 1;;) {
        at = skip_space(object, at);
        if (at >= object.size() || object[at] != '"') return;
        const std::size_t key_end = raw_json::string_end(object, at);
        if (key_end >= object.size()) return;
        const std::size_t begin = skip_space(object, skip_space(object, key_end) + 1);
        if (begin >= object.size()) return;
        const std::size_t end = raw_json::value_end(object, begin);
        const bool is_whole = end < object.size();
        member(object.substr(at + 1, key_end - at - 2), object.substr(begin, is_whole ? end - begin : end), is_whole);
        if (!is_whole) return;
        at = skip_space(object, end) + 1;
    }
}

// The entries that stand whole before the text goes wrong.
Pieces pieces_of(std::string_view text) {
    Pieces pieces;
    for_each_member_before_the_break(text, [&](std::string_view part, std::string_view value, bool is_part_whole) {
        if (part == "r" && is_part_whole && value.starts_with('"')) pieces.root = value.substr(1, value.size() - 2);
        if (part != "d" && part != "o") return;
        auto& entries = part == "d" ? pieces.histories : pieces.contents;
        for_each_member_before_the_break(value, [&](std::string_view key, std::string_view entry, bool is_whole) {
            if (is_part_whole || is_whole) entries.push_back({key, entry});
        });
    });
    return pieces;
}

std::string text_of(const Pieces& pieces) {
    std::string text = R"({"d": {)";
    const auto add = [&text](const std::vector<Piece>& entries) {
        for (const auto& [key, value] : entries) {
            if (!text.ends_with('{')) text.append(", ");
            text.append(1, '"').append(key).append("\": ").append(value);
        }
    };
    add(pieces.histories);
    text.append(R"(}, "o": {)");
    add(pieces.contents);
    return text.append(R"(}, "r": ")").append(pieces.root).append("\"}");
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
        pieces_ = pieces_of(std::string_view(text).substr(0, size.value_or(text.size())));
    }

    Salvage result() && {
        leave_out_unreadable();
        // The root comes last in a text, and is the first to go where it breaks off.
        const auto has = [this](std::string_view id) {
            return std::ranges::count(pieces_.histories, id, &Piece::key) != 0;
        };
        if (!has(pieces_.root)) pieces_.root = "root";
        if (has(pieces_.root)) leave_out_damaged();
        salvage_.histories = pieces_.histories.size();
        salvage_.contents = pieces_.contents.size();
        if (has(pieces_.root)) salvage_.sync_json = text_of(pieces_);
        return std::move(salvage_);
    }

   private:
    template <class IsDamaged>
    void leave_out(std::vector<Piece>& entries, const std::string& what, const IsDamaged& is_damaged) {
        std::erase_if(entries, [&](const Piece& piece) {
            if (!is_damaged(piece)) return false;
            salvage_.damaged.push_back(what + raw_json::decoded(piece.key));
            return true;
        });
    }

    // What the library would not read the whole text for.
    void leave_out_unreadable() {
        leave_out(pieces_.histories, "the history of document ", [](const Piece& piece) {
            return !piece.value.starts_with('[') || !is_readable(text_of({{{"x", piece.value}}, {}, "x"}));
        });
        leave_out(pieces_.contents, "content ", [](const Piece& piece) {
            return !piece.value.starts_with('{') ||
                   !is_readable(text_of({{{"x", R"(["A_first"])"}}, {{"A", piece.value}}, "x"}));
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
        for (const Piece& piece : pieces_.contents) {
            if (!not_read.contains(piece.key)) continue;
            const std::string text(piece.value);
            if (zentadbpp::sha256(text) == piece.key || zentadbpp::fast_hash(text) == piece.key)
                names.add(std::string(piece.key));
        }
        return names;
    }

    // What does not hash to its name, or names no parent, or has another's list.
    void leave_out_damaged() {
        const std::vector<Finding> findings = check_integrity(text_of(pieces_)).findings;
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
        leave_out(pieces_.histories, "the history of document ",
                  [&](const Piece& piece) { return documents.contains(raw_json::decoded(piece.key)); });
        leave_out(pieces_.contents, "content ",
                  [&](const Piece& piece) { return contents.contains(raw_json::decoded(piece.key)); });
    }

    Salvage salvage_;
    Pieces pieces_;
};

}  // namespace

Salvage salvage(const std::string& text) { return Rescue(text).result(); }

}  // namespace zentadb
