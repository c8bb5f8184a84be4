#include "transformation/unflattener.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "contents/document_index.h"
#include "contents/ordering_lists.h"
#include "contents/result_limit.h"
#include "json/canonical_object.h"
#include "json/error.h"
#include "json/scanner.h"
#include "json/writer.h"
#include "memory/arena.h"
#include "text/text_order.h"
#include "transformation/marked_objects.h"
#include "transformation/reading_order.h"
#include "transformation/shown_places.h"
#include "transformation/store_documents.h"

namespace libzentadbpp {

namespace {

using vocabulary::array_reference_marker;
using vocabulary::object_reference_marker;

std::string_view slice(const char* begin, const char* end) { return {begin, static_cast<std::size_t>(end - begin)}; }

// Orders a written key against "_id".
int order_to_id(std::string_view key) {
    if (key.empty() || (key[0] != vocabulary::id_key[0] && key[0] != '\\')) {
        return !key.empty() && static_cast<unsigned char>(key[0]) > '_' ? 1 : -1;
    }
    return compare_written_key(key, vocabulary::id_key);
}

// Walks written contents once and writes the data that they describe. Nearly all of a content stays as it is: it is
// copied in runs, from `copied_` up to where something is left out or put in. Every step takes the place where its
// value begins and returns where it ends. Recursion is bounded by the depth that a result may have.
class Rebuild {
   public:
    Rebuild(const ShownData& shown, Repeated repeated, bool discard_id, TextBuffer& out)
        : shown_(shown),
          index_(shown.index()),
          discard_id_(discard_id),
          out_(out),
          limit_(index_.content_bytes(), out),
          places_(shown, repeated),
          order_(shown) {}

    void root(std::uint32_t number, std::string_view content) {
        places_.begin(number, content);
        document(number, content, false, {}, 0);
    }

    [[noreturn]] static void fail(std::string_view error, std::string_view args, int line = __builtin_LINE()) {
        raise<UnflattenerException>(source::unflattener, "operator ()", error, args, line);
    }

   private:
    void document(std::uint32_t number, std::string_view content, bool is_plain, std::span<const Reference> references,
                  std::size_t depth) {
        limit_.check(content.size(), out_);
        const char* const outer_end = std::exchange(end_, content.data() + content.size());
        const char* const outer_copied = std::exchange(copied_, content.data());
        const char* const outer_begin = std::exchange(begin_, content.data());
        const auto outer_references = std::exchange(references_, references);
        MarkedObjects outer_marked = std::exchange(marked_, is_plain ? MarkedObjects() : MarkedObjects(content));
        leave_out(object(content.data(), depth, index_.id(number), true), outer_copied);
        begin_ = outer_begin;
        end_ = outer_end;
        references_ = outer_references;
        marked_ = std::move(outer_marked);
        places_.leave(number);
    }

    // What is known of the reference at a place, where the content is one of those that were looked through.
    const Reference* reference_at(const char* place) {
        const auto at = static_cast<std::size_t>(place - begin_);
        while (!references_.empty() && references_.front().at < at) references_ = references_.subspan(1);
        return references_.empty() || references_.front().at != at ? nullptr : references_.data();
    }

    static void check_depth(std::size_t depth) {
        if (depth > deepest_text) throw ParseError("exceeded maximum nesting depth");
    }

    // Copies up to one place, and goes on from another.
    void leave_out(const char* begin, const char* end) {
        append_run(slice(copied_, begin));
        copied_ = end;
    }

    // Most runs are shorter than a call takes: whole blocks are copied where there is room, and cut.
    void append_run(std::string_view run) {
        constexpr std::size_t block = 32;
        if (run.size() > block || static_cast<std::size_t>(end_ - run.data()) < block) return out_.append(run);
        std::memcpy(out_.grow(block), run.data(), block);
        out_.truncate(out_.size() - block + run.size());
    }

    // An object document (with its id), or an object that lies inside one.
    const char* object(const char* at, std::size_t depth, std::string_view id, bool is_document) {
        check_depth(depth);
        const bool verbatim = marked_.have_no_flatten(at);
        // The flattener gave an "_id" to inline objects of these two kinds only.
        const bool drop_id = is_document || (discard_id_ && (verbatim || marked_.have_do_flatten(at)));
        bool id_is_due = is_document && !discard_id_ && !id.empty();
        bool first = true;

        ++at;
        while (*at != '}') {
            const char* const member = at;  // with the separator before it
            const char* const key = *at == ',' ? at + 2 : at;
            const char* const key_end = written_string_end(key, end_);
            at = key_end + 2;
            const int order = order_to_id(slice(key + 1, key_end - 1));
            if (id_is_due && order >= 0) {
                write_id(member, id, depth + 1, first);
                id_is_due = false;
                first = false;
            }
            if ((order == 0 && drop_id) || (!verbatim && order != 0 && is_left_out(at))) {
                at = written_value_end(at, end_);
                leave_out(member, at);
                continue;
            }
            if (first && key != member) {
                leave_out(member, key);
            } else if (!first && key == member) {
                leave_out(member, member);
                out_.append(", ");
            }
            first = false;
            at = verbatim || order == 0 ? verbatim_end(at, depth + 1) : value(at, depth + 1);
        }
        if (id_is_due) write_id(at, id, depth + 1, first);
        return at + 1;
    }

    void write_id(const char* at, std::string_view id, std::size_t depth, bool first) {
        check_depth(depth);
        leave_out(at, at);
        out_.append(first ? R"("_id": )" : R"(, "_id": )");
        write_json_string(id, out_);
    }

    const char* value(const char* at, std::size_t depth) {
        check_depth(depth);
        switch (*at) {
            case '"':
                return string(at, depth);
            case '{':
                return object(at, depth, {}, false);
            case '[':
                return array(at, depth);
            default:
                return written_value_end(at, end_);
        }
    }

    const char* string(const char* at, std::size_t depth) {
        const char* const end = written_string_end(at, end_);
        const std::string_view inside = slice(at + 1, end - 1);
        if (inside.empty()) return end;
        if (inside[0] == array_reference_marker) {
            leave_out(at, end);
            const Reference* const known = reference_at(at);
            const auto reached = known == nullptr ? std::nullopt : shown_.reached_elements(known->target);
            elements(reached ? *reached : places_.elements(DecodedString(inside.substr(1)).text()), depth);
        } else if (inside[0] == object_reference_marker) {
            leave_out(at, end);
            const auto number = referenced_document(at, inside.substr(1));
            if (!number) fail("missing_document", DecodedString(inside.substr(1)).text());
            winning_document(*number, depth);
        } else if (inside[0] == '\\') {
            // Not written by the flattener: the character that goes is an escaped one.
            leave_out(at, end);
            write_json_string(DecodedString(inside).text().substr(1), out_);
        } else {
            leave_out(at + 1, at + 2);
        }
        return end;
    }

    std::optional<std::uint32_t> referenced_document(const char* at, std::string_view escaped_id) {
        if (const Reference* const known = reference_at(at)) return known->target;
        return index_.find(DecodedString(escaped_id).text());
    }

    const char* array(const char* at, std::size_t depth) {
        bool first = true;
        ++at;
        while (*at != ']') {
            const char* const separator = at;
            if (*at == ',') at += 2;
            if (is_left_out(at)) {
                at = written_value_end(at, end_);
                leave_out(separator, at);
                continue;
            }
            if (first && at != separator) leave_out(separator, at);
            first = false;
            at = value(at, depth + 1);
        }
        return at + 1;
    }

    void elements(std::span<const std::uint32_t> numbers, std::size_t depth) {
        std::string_view separator = "[";
        limit_.check(numbers.size(), out_);
        for (const std::uint32_t number : numbers) {
            if (!places_.shows_element(number)) continue;
            out_.append(separator);
            separator = ", ";
            winning_document(number, depth + 1);
        }
        if (separator == "[") out_.push_back('[');
        out_.push_back(']');
    }

    void winning_document(std::uint32_t number, std::size_t depth) {
        places_.enter(number);
        order_.reach(number);
        const auto content = shown_.content(number);
        // Where there is none, those that are asked for it report the failure.
        const std::string_view text =
            content ? *content : index_.storage().data().read_object(index_.document(number).winning().datahash());
        const bool is_plain = content && shown_.references().is_plain(number);
        document(number, text, is_plain, is_plain ? shown_.references().of(number) : std::span<const Reference>{},
                 depth);
    }

    // A reference to a deleted document, or to one that is shown elsewhere.
    [[nodiscard]] bool is_left_out(const char* at) {
        if (at[0] != '"' || at[1] != object_reference_marker) return false;
        const char* const end = written_string_end(at, end_);
        const auto number = referenced_document(at, slice(at + 2, end - 1));
        if (!number) return false;
        if (!index_.is_live(*number)) return index_.document(*number).winning().is_deleted();
        return !places_.shows_member(*number);
    }

    // An object that is not to be flattened contains what the host gave, unchanged.
    const char* verbatim_end(const char* at, std::size_t depth) {
        const char* const end = written_value_end(at, end_);
        check_depth(depth);
        std::size_t open = depth;
        while (at != end) {
            if (*at == '"') {
                at = written_string_end(at, end);
                continue;
            }
            if (*at == '{' || *at == '[') {
                ++open;
                if (at[1] != '}' && at[1] != ']') check_depth(open);  // what lies inside is one deeper
            } else if (*at == '}' || *at == ']') {
                --open;
            }
            ++at;
        }
        return end;
    }

    const ShownData& shown_;
    const DocumentIndex& index_;
    bool discard_id_;
    TextBuffer& out_;
    ResultLimit limit_;
    ShownPlaces places_;
    ReadingOrder order_;
    MarkedObjects marked_;                   // of the content that is being walked
    std::span<const Reference> references_;  // of that content, those that are still to come
    const char* begin_ = nullptr;
    const char* end_ = nullptr;
    const char* copied_ = nullptr;  // where its next run begins
};

void rebuild_from(const ShownData& shown, std::string_view root_id, const std::optional<Revision>& revision,
                  Repeated repeated, bool discard_id, TextBuffer& out) {
    const DocumentIndex& index = shown.index();
    const DocumentStorage& storage = index.storage();
    const std::string_view id = root_id.empty() ? std::string_view(storage.root()) : root_id;
    const auto number = index.find(id);
    if (!number) Rebuild::fail("missing_root_document", id);
    const MultiVersionDocument& document = index.document(*number);
    const auto position = revision ? document.find(*revision) : document.winning_position();
    if (!position) Rebuild::fail("invalid_root_document_revision", revision->revision_string());
    const bool is_winning = document.has_winning() && *position == document.winning_position();
    const auto content =
        is_winning ? shown.content(*number) : storage.data().find(document.revisions()[*position].datahash());
    if (!content) Rebuild::fail("missing_root_document_data", document.revision_string(*position));
    if (index.is_ordering(*number)) {  // the library's own document, which holds no marked strings
        TextBuffer written_id;
        write_json_string(id, written_id);
        const WrittenMember id_member{vocabulary::id_key, written_id.view()};
        return write_object_with(*content, {&id_member, discard_id ? 0U : 1U}, out);
    }
    if (id == storage.root_or_empty()) out.reserve(out.size() + index.content_bytes());  // nearly all will be needed
    Rebuild(shown, repeated, discard_id, out).root(*number, *content);
}

// The root of a set of documents that does not say it.
std::string find_root(const DocumentIndex& index) {
    if (const auto number = index.find(vocabulary::root_name)) return std::string(index.id(*number));
    std::vector<bool> referenced(index.size());
    mark_referenced_objects(index, referenced);
    mark_listed_elements(index, referenced);
    std::optional<std::uint32_t> root;
    for (std::uint32_t number = 0; number < index.size(); ++number) {
        if (index.is_ordering(number) || referenced[number]) continue;
        if (root) Rebuild::fail("missing_root_document", "");
        root = number;
    }
    if (!root) Rebuild::fail("missing_root_document", "");
    return std::string(index.id(*root));
}

}  // namespace

void unflatten(const ReadIndex& index, std::string_view root_id, const std::optional<Revision>& revision,
               bool discard_id, TextBuffer& out) {
    if (index.storage().documents().empty()) return out.append("{}");
    rebuild_from(index.shown(), root_id, revision, Repeated::left_out, discard_id, out);
}

void unflatten_array(const JsonValue& documents, std::string_view root_id, const TransformationSettings& settings,
                     TextBuffer& out) {
    Arena arena;
    std::vector<FlattenedDocument> flattened;
    for (const JsonValue& document : documents.elements()) {
        const JsonValue* id = document.find(vocabulary::id_key);
        if (id == nullptr || !id->is_string()) throw std::out_of_range("invalid map<K, T> key");
        std::vector<JsonMember> members(document.members().begin(), document.members().end());
        std::erase_if(members, [](const JsonMember& member) { return member.key == vocabulary::id_key; });
        TextBuffer content;
        write_json(JsonValue::object(members), content);
        flattened.push_back({id->as_string(), arena.copy(content.view())});
    }
    if (flattened.empty()) return out.append("{}");
    sort_by_text(flattened, [](const FlattenedDocument& document) { return document.id; });
    DataHasher hasher(settings.hash_kind());
    SharedMemory memory(arena);
    const DocumentStorage storage = store_documents({}, flattened, {}, hasher, memory);
    const std::string root(root_id.empty() ? find_root(DocumentIndex(storage)) : root_id);
    const DocumentStorage rooted(storage.documents(), storage.data(), root);
    const ReadIndex index(rooted, settings.instance_id);
    rebuild_from(index.shown(), root, std::nullopt, Repeated::kept, settings.discard_id, out);
}

}  // namespace libzentadbpp
