#include "documents/document_storage.h"

#include <algorithm>

#include "json/error.h"
#include "json/writer.h"
#include "memory/prefetch.h"
#include "text/pair_scan.h"
#include "text/text_order.h"

namespace libzentadbpp {

LargeVector<std::string_view> referenced_hashes(const DocumentStorage::Documents& documents) {
    LargeVector<std::string_view> hashes;
    hashes.reserve(documents.size());
    for (const auto& entry : documents) {
        for (const TreeRevision& revision : entry.value->revisions()) hashes.push_back(revision.datahash());
    }
    return hashes;
}

const std::string& DocumentStorage::root() const {
    if (root_.empty()) raise<InvalidDocumentException>(source::documentstorage, "root", "root_id_cannot_be_empty");
    return root_;
}

std::vector<const DataStorage::Map::Entry*> DocumentStorage::contents_to_write() const {
    std::vector<const DataStorage::Map::Entry*> contents;
    contents.reserve(data_.contents().size());
    if (contents_not_named_ == Unnamed::none) {
        for (const auto& entry : data_.contents()) contents.push_back(&entry);
        return contents;
    }
    const std::vector<bool> named = data_.named_by(referenced_hashes(documents_));
    auto is_named = named.begin();
    for (const auto& entry : data_.contents()) {
        if (*is_named++) contents.push_back(&entry);
    }
    return contents;
}

void DocumentStorage::refuse_empty_suffixes() const {
    for (const auto& entry : documents_) {
        const auto has_none = [](const TreeRevision& revision) { return revision.suffix().empty(); };
        if (std::ranges::any_of(entry.value->revisions(), has_none)) {
            throw InvalidRevisionException("invalid_revision_state_uuid_empty");
        }
    }
}

void DocumentStorage::serialize(TextBuffer& out) const {
    const auto write_member = [&out](ListSeparator& separator, std::string_view key) {
        separator.append_to(out);
        write_json_string(key, out);
        out.append(": ");
    };

    const std::vector<const DataStorage::Map::Entry*> contents = contents_to_write();
    constexpr std::size_t around = 6;  // quotes and separators of a member
    std::size_t size = root_.size() + 32;
    for (const DataStorage::Map::Entry* entry : contents) size += entry->key.size() + entry->value.text.size() + around;
    for (const auto& entry : documents_) size += entry.key.size() + entry.value->history().size() + around;
    out.reserve(out.size() + size);

    std::string_view opening = "{";
    ListSeparator before_document(R"({"d": {)");
    const std::size_t begin = out.size();
    for (const auto& entry : documents_) {
        write_member(before_document, entry.key);
        out.append(entry.value->history());
    }
    // An empty suffix leaves the mark before it at the end of an entry, as it may be at the end of an id.
    const std::string_view written = out.view().substr(begin);
    const char* const end = written.data() + written.size();
    if (find_pair(written.data(), end, {'_', '"', '"'}) != end) refuse_empty_suffixes();
    if (!documents_.empty()) opening = "}, ";
    // Without any documents there are no contents that they refer to.
    ListSeparator before_content(R"(}, "o": {)");
    const LookAhead ahead(steps_ahead::document, contents.size(), [&](std::size_t at) {
        prefetch(contents[at]->key);
        prefetch(contents[at]->value.text);
    });
    for (std::size_t at = 0; at < contents.size(); ++at) {
        ahead.reach(at);
        write_member(before_content, contents[at]->key);
        out.append(contents[at]->value.text);
    }
    if (root_.empty()) {
        out.append(documents_.empty() ? "{}" : "}}");
        return;
    }
    out.append(opening);
    out.append(R"("r": )");
    write_json_string(root_, out);
    out.push_back('}');
}

namespace {

// Hashes lie in no order, so all of them are looked up at once.
WinningContents join_winning_contents(const DocumentStorage::Documents& documents, const DataStorage& data) {
    WinningContents winning{LargeVector<std::string_view>(documents.size()),
                            LargeVector<std::uint32_t>(documents.size(), DataStorage::not_stored)};
    LargeVector<std::string_view> hashes;  // of the winning revisions, and whose they are
    LargeVector<std::uint32_t> named_by;
    hashes.reserve(documents.size());
    named_by.reserve(documents.size());
    std::uint32_t number = 0;
    for (const auto& [id, document] : documents) {
        if (document->has_winning()) {
            const std::string_view hash = document->winning().datahash();
            if (DataStorage::is_reserved(hash)) {
                const NumberedContent reserved = *data.find_numbered(hash);
                winning.texts[number] = reserved.text;
                winning.numbers[number] = reserved.number;
            } else {
                hashes.push_back(hash);
                named_by.push_back(number);
            }
        }
        ++number;
    }
    std::vector<bool> named(data.contents().size());
    std::size_t found = 0;
    data.visit_named(hashes, [&](std::size_t at, const NumberedContent& content) {
        winning.texts[named_by[at]] = content.text;
        winning.numbers[named_by[at]] = content.number;
        named[content.number] = true;
        ++found;
    });
    winning.any_lack = found != hashes.size();
    winning.are_all = std::ranges::find(named, false) == named.end();
    return winning;
}

// The numbers that contents have once others were added, the reserved ones behind them; nothing if any was taken out.
// Entries that were there are recognized by where their keys lie.
std::optional<LargeVector<std::uint32_t>> numbers_now(const DataStorage::Map& before, const DataStorage::Map& now) {
    constexpr std::uint32_t reserved = 3;
    LargeVector<std::uint32_t> numbers;
    numbers.reserve(before.size() + reserved);
    auto old = before.begin();
    std::uint32_t number = 0;
    for (const auto& entry : now) {
        if (old != before.end() && old->key.data() == entry.key.data()) {
            numbers.push_back(number);
            ++old;
        }
        ++number;
    }
    if (old != before.end()) return std::nullopt;
    for (std::uint32_t at = 0; at < reserved; ++at) numbers.push_back(number++);
    return numbers;
}

}  // namespace

DocumentStorage DocumentStorage::with_winning_contents() const {
    if (winning_contents_ != nullptr) return *this;
    return with_winning_contents(std::make_shared<const WinningContents>(join_winning_contents(documents_, data_)));
}

DocumentStorage DocumentStorage::with_winning_contents_after(const DocumentStorage& before) const {
    const WinningContents& known = *before.winning_contents_;
    // What was lacking may be there now.
    if (winning_contents_ != nullptr || known.any_lack) return with_winning_contents();
    const auto numbers = numbers_now(before.data_.contents(), data_.contents());
    if (!numbers) return with_winning_contents();
    std::size_t most_looked_up = documents_.size() / 8;
    WinningContents winning;
    winning.texts.reserve(documents_.size());
    winning.numbers.reserve(documents_.size());
    std::size_t at = 0;  // of `old`
    auto old = before.documents_.begin();
    const auto old_end = before.documents_.end();
    for (const auto& [id, document] : documents_) {
        if (old != old_end && old->value == document) {
            winning.texts.push_back(known.texts[at]);
            const std::uint32_t number = known.numbers[at++];
            winning.numbers.push_back(number == DataStorage::not_stored ? number : (*numbers)[number]);
            ++old;
            continue;
        }
        if (most_looked_up-- == 0) return with_winning_contents();
        std::optional<NumberedContent> content;
        if (document->has_winning()) {
            content = data_.find_numbered(document->winning().datahash());
            winning.any_lack = winning.any_lack || !content;
        }
        winning.texts.push_back(content ? content->text : std::string_view());
        winning.numbers.push_back(content ? content->number : DataStorage::not_stored);
        if (old != old_end && old->key == id) {
            ++at;
            ++old;
        }
    }
    return with_winning_contents(std::make_shared<const WinningContents>(std::move(winning)));
}

DocumentStorage DocumentStorage::with_winning_contents(std::shared_ptr<const WinningContents> contents) const {
    DocumentStorage joined = *this;
    joined.winning_contents_ = std::move(contents);
    if (joined.winning_contents_->are_all) joined.contents_not_named_ = Unnamed::none;
    return joined;
}

DocumentStorage DocumentStorage::with_root(std::string root) const {
    DocumentStorage rooted = *this;
    rooted.root_ = std::move(root);
    return rooted;
}

DocumentStorage::Documents DocumentChanges::applied_to(const DocumentStorage::Documents& documents) && {
    if (changes_.empty()) return documents;
    if (!ascending_) sort_by_text(changes_, [](const auto& change) { return change.key; });
    return documents.with(std::move(changes_));
}

}  // namespace libzentadbpp
