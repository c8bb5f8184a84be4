#include "documents/sync_json_text.h"

#include <algorithm>
#include <cstring>

#include "json/canonical_text.h"
#include "json/error.h"
#include "json/scanner.h"
#include "json/writer.h"
#include "text/byte_scan.h"
#include "text/first_bytes.h"
#include "text/sort_unique.h"

namespace libzentadbpp {

namespace {

[[noreturn]] void refuse(std::string_view error, std::optional<std::string_view> args = std::nullopt,
                         int line = __builtin_LINE()) {
    raise<InvalidDocumentException>(source::documentstorage, "deserialize", error, args, line);
}

// Calls `member(key)` for every member of the object whose opening brace was consumed.
template <class Member>
void read_members(JsonScanner& scanner, const Member& member) {
    for (char token = scanner.next_token(); token != '}'; token = scanner.after_member()) {
        member(scanner.read_key(token));
    }
}

// What begins at the next token, without consuming it.
char peek_token(JsonScanner& scanner) {
    const char token = scanner.next_token();
    scanner.put_back();
    return token;
}

// In key order; the last of equal keys.
template <class Part>
void sort_members(LargeVector<Part>& parts) {
    const auto ascending = [](const Part& a, const Part& b) { return is_before(a.key, b.key); };
    const std::size_t kept = sort_keeping_last(parts, ascending);
    parts.erase(parts.begin() + static_cast<std::ptrdiff_t>(kept), parts.end());
}

}  // namespace

SyncJsonText::SyncJsonText(std::string_view text, Arena& arena, const std::shared_ptr<const void>& owner)
    : arena_(&arena), owner_(owner) {
    JsonScanner scanner(text, arena);
    if (peek_token(scanner) != '{') {
        scanner.skip_value(0, deepest_text);
    } else {
        is_object_ = true;
        scanner.next_token();
        read_members(scanner, [&](std::string_view key) {
            if (key == "d") {
                read_documents(scanner);
            } else if (key == "o") {
                read_contents(scanner);
            } else if (key == "r") {
                read_root(scanner);
            } else if (key == "compressed" || key == "data" || key == "uncompressed_size") {
                read_compression(scanner, key);
            } else {
                scanner.skip_value(1, deepest_text);
            }
        });
    }
    scanner.expect_end();
}

// The shape that nearly every document has: a chain of plain strings, written as the writer writes it. Sets `length` to
// that of its text. Null if the history is anything else, however little: in a lone entry even a "-" would split.
DocumentRef SyncJsonText::plain_document(std::string_view id, std::string_view text, std::size_t& length) {
    const char* at = text.data();
    const char* const end = at + text.size();
    if (id.empty() || end - at < 2 || at[0] != '[') return nullptr;
    ++at;
    chain_.clear();
    for (;;) {
        if (at == end || *at != '"') return nullptr;
        const char* const begin = ++at;
        const char* const mark = find_stop<StopAt::name>(begin, end);
        if (mark == end || *mark != '_' || mark == begin) return nullptr;
        at = find_stop<StopAt::name>(mark + 1, end);
        if (at == end || *at != '"') return nullptr;
        const auto generation = static_cast<std::uint32_t>(chain_.size() + 1);
        const std::string_view entry(begin, static_cast<std::size_t>(at - begin));
        const auto hash_length = static_cast<std::size_t>(mark - begin);
        chain_.push_back({entry, hash_length, generation, generation == 1 ? no_entry : generation - 2});
        ++at;
        if (end - at >= 1 && *at == ']') break;
        if (end - at < 2 || at[0] != ',' || at[1] != ' ') return nullptr;
        at += 2;
    }
    ++at;
    length = static_cast<std::size_t>(at - text.data());
    return MultiVersionDocument::make_in(*arena_, owner_, id, chain_, text.substr(0, length));
}

void SyncJsonText::read_documents(JsonScanner& scanner) {
    documents_ = {};
    if (peek_token(scanner) != '{') {
        scanner.skip_value(1, no_depth_limit);
        documents_part_ = Part::wrong_kind;
        return;
    }
    documents_part_ = Part::right_kind;
    scanner.next_token();
    read_members(scanner, [&](std::string_view id) {
        const bool is_array = peek_token(scanner) == '[';
        std::size_t length = 0;
        if (auto document = plain_document(id, scanner.rest(), length)) {
            note_closed(*document);
            documents_.add({id, scanner.rest().substr(0, length), std::move(document)});
            scanner.move_to(scanner.rest().data() + length);
            return;
        }
        const std::string_view value = scanner.skip_value(2, no_depth_limit);
        documents_.add({id, is_array ? value : std::string_view{}, nullptr});
    });
}

void SyncJsonText::read_contents(JsonScanner& scanner) {
    contents_ = {};
    if (peek_token(scanner) != '{') {
        scanner.skip_value(1, deepest_text);
        contents_part_ = Part::wrong_kind;
        return;
    }
    contents_part_ = Part::right_kind;
    scanner.next_token();
    read_members(scanner, [&](std::string_view hash) {
        const bool is_object = peek_token(scanner) == '{';
        const std::string_view rest = scanner.rest();
        if (const char* end = canonical_value_end(rest.data(), rest.data() + rest.size(), deepest_content)) {
            const auto length = static_cast<std::size_t>(end - rest.data());
            contents_.add({hash, is_object ? rest.substr(0, length) : std::string_view{}});
            scanner.move_to(scanner.rest().data() + length);
            return;
        }
        scanner.read_numbers_as(Numbers::written);
        const JsonValue value = scanner.read_value(0, deepest_content);
        scanner.read_numbers_as(Numbers::given);
        TextBuffer text;
        if (is_object) write_json(value, text);
        contents_.add({hash, arena_->copy(text.view())});
    });
}

void SyncJsonText::read_root(JsonScanner& scanner) {
    const JsonValue value = scanner.read_value(1, deepest_text);
    root_part_ = value.is_string() ? Part::right_kind : Part::wrong_kind;
    root_ = value.as_string();
}

void SyncJsonText::read_compression(JsonScanner& scanner, std::string_view key) {
    const JsonValue value = scanner.read_value(1, deepest_text);
    if (key == "compressed") {
        compressed_ = value.as_boolean();
    } else if (key == "data") {
        compressed_data_ = value.as_string();
    } else {
        uncompressed_size_ = value.is_number() ? std::optional(value.as_real()) : std::nullopt;
    }
}

DataStorage SyncJsonText::build_contents() {
    if (!contents_.ascending) sort_members(contents_.parts);
    DataStorage::Map::Entries entries;
    entries.reserve(contents_.parts.size());
    for (const ContentPart& part : contents_.parts) {
        if (part.text.empty()) {
            raise<InvalidDocumentException>(source::datastorage, "deserialize", "invalid_data_object", part.key);
        }
        if (!DataStorage::is_reserved(part.key)) entries.push_back({part.key, {part.text, owner_}});
    }
    return DataStorage(DataStorage::Map::from_sorted(std::move(entries)));
}

DocumentStorage::Documents SyncJsonText::build_documents() {
    if (!documents_.ascending) sort_members(documents_.parts);
    DocumentStorage::Documents::Entries entries;
    entries.reserve(documents_.parts.size());
    for (DocumentPart& part : documents_.parts) {
        if (part.document == nullptr) {
            if (part.history.empty()) refuse("expecting_revision_history_array");
            const auto revisions = part.key.empty() ? std::vector<TreeRevision>{} : read_history(part.history, *arena_);
            part.document = MultiVersionDocument::make_in(*arena_, owner_, part.key, revisions, {});
            note_closed(*part.document);
        }
        entries.push_back({part.key, std::move(part.document)});
    }
    return DocumentStorage::Documents::from_sorted(std::move(entries));
}

DocumentStorage SyncJsonText::deserialize() && {
    if (contents_part_ == Part::wrong_kind) refuse("invalid_syncdata_data_node");
    DataStorage data = build_contents();
    if (documents_part_ == Part::wrong_kind) refuse("invalid_syncdata_data_node");
    DocumentStorage::Documents documents = build_documents();

    if (root_part_ == Part::absent) {
        if (!documents.empty()) refuse("missing_root_identifier_in_non_empty_syncjson");
        return DocumentStorage({}, std::move(data), {});
    }
    if (documents.empty()) refuse("missing_documents");
    if (root_part_ == Part::wrong_kind) refuse("root_document_id_not_a_string");
    if (documents.find(root_) == nullptr) refuse("root_is_missing_in_documents");
    return DocumentStorage(std::move(documents), std::move(data), std::string(root_), Unnamed::possible,
                           closed_documents_);
}

}  // namespace libzentadbpp
