#include "transformation/store_documents.h"

#include <algorithm>
#include <cstddef>
#include <unordered_map>
#include <utility>
#include <vector>

#include "contents/document_index.h"
#include "contents/ordering_content.h"
#include "documents/document_merge.h"
#include "memory/prefetch.h"
#include "transformation/list_branches.h"

namespace libzentadbpp {

namespace {

// A document while contents are stored in it one after the other. Its revisions are added at the end, all at once.
struct OpenDocument {
    const MultiVersionDocument* stored = nullptr;
    std::string_view winning_content;     // null data where it is not stored
    std::vector<std::string_view> added;  // data hashes of the revisions to come

    [[nodiscard]] std::string_view winning_hash() const {
        if (!added.empty()) return added.back();
        return stored != nullptr ? stored->winning().datahash() : std::string_view{};
    }
    [[nodiscard]] DocumentRef changed(std::string_view id, SharedMemory& memory) const {
        if (stored != nullptr) return stored->with_chain(stored->winning_position(), added, memory);
        const DocumentRef document = MultiVersionDocument::first(id, added.front(), memory);
        return added.size() == 1 ? document : document->with_chain(0, std::span(added).subspan(1), memory);
    }
};

// Whether a document is live data.
bool is_live_data(const MultiVersionDocument& document, std::string_view winning, OrderingDocuments& ordering) {
    if (DataStorage::is_of_deleted(winning)) return false;
    return !ordering.contains(document, winning) && !document.winning().is_deleted();
}

// Whether storing the winning content of a document, if it is there, changes nothing.
bool is_settled(const MultiVersionDocument& document, HashKind kind) {
    if (!document.has_winning() || !is_hash_of_kind(document.winning().datahash(), kind)) return false;
    return !has_ordering_id(document.id()) || !has_other_leaves(document);
}

class DocumentWriter {
   public:
    // What is made in an arena ends with the call, and needs no winning contents.
    DocumentWriter(const DocumentStorage& storage, DataHasher& hasher, SharedMemory& memory, StoredNotes* notes)
        : data_(&storage.data()),
          ordering_(storage.data()),
          hasher_(&hasher),
          memory_(&memory),
          notes_(notes),
          most_looked_up_(memory.is_arena() ? 0 : storage.documents().size() / 8),
          knows_winning_(most_looked_up_ > 0) {
        if (!knows_winning_) return;
        winning_.texts.reserve(storage.documents().size() + most_looked_up_);
        winning_.numbers.reserve(storage.documents().size() + most_looked_up_);
    }

    // So many documents will be stored, all of them new.
    void expect_new(std::size_t count) {
        documents_.reserve(count);
        contents_.reserve(count);
    }

    // Stores what was produced for one document.
    void store(const MultiVersionDocument* stored, const NumberedContent& winning_content,
               std::span<const FlattenedDocument> produced) {
        // Nobody else looks after an ordering document, so one that has no open branch is opened again, and one without
        // any revision gets a first one.
        const bool is_stored = stored != nullptr;
        DocumentRef opened;
        if (is_stored && !stored->has_winning() && has_ordering_id(stored->id())) {
            opened = reopened(*stored);
            stored = opened.get();
        }
        document_.stored = stored;
        document_.winning_content = winning_content.text;
        document_.added.clear();
        for (const FlattenedDocument& content : produced) {
            if (content.content.data() != nullptr) add(content.content);
        }
        DocumentRef changed = opened;
        if (!document_.added.empty()) {
            changed = document_.changed(stored != nullptr ? stored->id() : produced.front().id, *memory_);
        }
        if (stored != nullptr && has_ordering_id(stored->id()))
            changed = with_closed_leaves(*stored, std::move(changed));
        if (changed != nullptr) {
            set(std::move(changed));
        } else if (is_stored) {
            keep(winning_content, note_of(*stored, winning_content.text));
        }
    }

    void remove(const MultiVersionDocument& stored) {
        set(stored.with_chain(stored.winning_position(), {&deleted_hash, 1}, *memory_));
    }

    // What is noted of a document.
    struct Note {
        bool settled = false;
        bool stays = false;
    };

    // Leaves the next document as it is, with its winning content.
    void keep(const NumberedContent& winning_content, Note note) {
        if (!knows_winning_) return;
        winning_.texts.push_back(winning_content.text);
        winning_.numbers.push_back(winning_content.number);
        add(note);
    }

    [[nodiscard]] bool is_removable(const MultiVersionDocument& document, std::string_view winning_content) {
        return is_live_data(document, winning_content, ordering_);
    }
    [[nodiscard]] bool makes_notes() const { return notes_ != nullptr && knows_winning_; }
    // Of the next document, after the changes.
    [[nodiscard]] std::uint32_t number() const { return static_cast<std::uint32_t>(winning_.texts.size()); }
    [[nodiscard]] Note note_of(const MultiVersionDocument& document, std::string_view winning_content) {
        if (!makes_notes()) return {};
        return {winning_content.data() != nullptr && is_settled(document, hasher_->kind()),
                !is_removable(document, winning_content)};
    }

    // Every content that is added is named by a revision, a new one or the winning one. What the storage knows of its
    // winning contents goes on, unless much changes, or contents that documents have may give way to others.
    [[nodiscard]] DocumentStorage applied_to(const DocumentStorage& storage) && {
        const WinningContents& before = *storage.winning_contents();
        const bool fills_gaps = before.any_lack && contents_.size() != 0;
        const bool stays_known = knows_winning_ && !fills_gaps && contents_.leave_out_stored(storage.data());
        if (stays_known && contents_.size() != 0) {
            const LargeVector<std::uint32_t> numbers = contents_.numbers_after(storage.data());
            for (std::uint32_t& number : winning_.numbers) {
                if (number != DataStorage::not_stored) number = numbers[number];
            }
        }
        DocumentStorage changed(std::move(documents_).applied_to(storage.documents()),
                                std::move(contents_).applied_to(storage.data()), storage.root_or_empty(),
                                storage.contents_not_named(), storage.closed_documents());
        if (!stays_known) return changed;
        winning_.any_lack = before.any_lack;
        OrderingDocuments ordering(changed.data());
        for (const auto& [number, document] : changed_) {
            if (!document->has_winning()) continue;
            const auto content = changed.data().find_numbered(document->winning().datahash());
            if (content) {
                winning_.texts[number] = content->text;
                winning_.numbers[number] = content->number;
            }
            winning_.any_lack = winning_.any_lack || !content;
            if (notes_ == nullptr) continue;
            notes_->settled[number] = content && is_settled(*document, hasher_->kind());
            notes_->stays[number] = !is_live_data(*document, winning_.texts[number], ordering);
        }
        return changed.with_winning_contents(std::make_shared<const WinningContents>(std::move(winning_)));
    }

   private:
    void set(DocumentRef document) {
        if (notes_ != nullptr) notes_->any_changed = true;
        knows_winning_ = changed_.size() < most_looked_up_;
        if (knows_winning_) {
            changed_.emplace_back(winning_.texts.size(), document.get());
            winning_.texts.emplace_back();
            winning_.numbers.push_back(DataStorage::not_stored);
            add(Note());  // until the end
        }
        documents_.set(std::move(document));
    }

    void add(Note note) {
        if (notes_ == nullptr) return;
        notes_->settled.push_back(note.settled);
        notes_->stays.push_back(note.stays);
    }

    // A document after its change, if any, with all leaves closed but the winning one.
    [[nodiscard]] DocumentRef with_closed_leaves(const MultiVersionDocument& stored, DocumentRef changed) {
        const MultiVersionDocument& document = changed != nullptr ? *changed : stored;
        if (!has_other_leaves(document) || document.winning().is_deleted()) return changed;
        const std::string_view content = document_.winning_content;
        if (content.data() != nullptr && !ordering_.is_list(content)) return changed;
        return document.with_resolved(other_leaves(document), *memory_);
    }

    void add(std::string_view content) {
        const std::string_view winning = document_.winning_hash();
        if (winning == deleted_hash) return;
        if (document_.winning_content == content && is_hash_of_kind(winning, hasher_->kind())) return;
        const std::string_view hash = hash_of(content);
        if (hash != winning) document_.added.push_back(hash);
        document_.winning_content = content;
    }

    // The hash of a content that is stored from now on. Lists of one long domain that are emptied are one text, which
    // is hashed once.
    std::string_view hash_of(std::string_view content) {
        constexpr std::size_t cheap_to_repeat = 1024;
        if (content.size() <= cheap_to_repeat) return contents_.add((*hasher_)(content), content, *memory_);
        std::string_view& hash = long_contents_[content.data()];
        if (hash.data() == nullptr) hash = contents_.add((*hasher_)(content), content, *memory_);
        return hash;
    }

    const DataStorage* data_;     // before the changes
    OrderingDocuments ordering_;  // of that
    DataHasher* hasher_;
    SharedMemory* memory_;
    StoredNotes* notes_;
    OpenDocument document_;
    DocumentChanges documents_;
    ContentChanges contents_;
    std::size_t most_looked_up_;
    bool knows_winning_;
    WinningContents winning_;  // after the changes; those of changed documents are looked up at the end
    std::vector<std::pair<std::size_t, const MultiVersionDocument*>> changed_;
    std::unordered_map<const char*, std::string_view> long_contents_;
};

// Goes through the stored documents and those to be stored side by side.
class SideBySide {
    struct PrefetchDocument {
        std::span<const FlattenedDocument> documents;
        void operator()(std::size_t at) const {
            prefetch(documents[at].id);
            prefetch(documents[at].content);
        }
    };

   public:
    SideBySide(const DocumentStorage& storage, std::span<const FlattenedDocument> documents,
               const MayRemove& may_remove, const KnownDocuments* known, StoredNotes* notes, DocumentWriter& writer)
        : storage_(&storage),
          winning_(storage.winning_contents().get()),
          documents_(documents),
          documents_ahead_(steps_ahead::document, documents.size(), {documents}),
          may_remove_(&may_remove),
          known_(known),
          notes_(notes),
          writer_(&writer) {}

    void run() {
        const LookAhead winning_ahead(steps_ahead::document, winning_->texts.size(),
                                      [&](std::size_t at) { prefetch(winning_->texts[at]); });
        find_next();
        for (const auto& [id, document] : storage_->documents()) {
            if (!is_left_alone()) winning_ahead.reach(number_);
            pass(id, *document);
            ++number_;
        }
        while (next_ != documents_.size()) store_next(nullptr, {DataStorage::not_stored, {}});
    }

   private:
    void pass(std::string_view id, const MultiVersionDocument& document) {
        const NumberedContent content{winning_->numbers[number_], winning_->texts[number_]};
        int order = 0;
        while ((order = order_of_next(id)) < 0) store_next(nullptr, {DataStorage::not_stored, {}});
        if (order == 0) {
            store_next(&document, content);
        } else if (is_left_alone()) {
            writer_->keep(content, {known_->last.settled[number_], known_->last.stays[number_]});
        } else if (*may_remove_ && writer_->is_removable(document, content.text) && (*may_remove_)(number_)) {
            writer_->remove(document);
        } else {
            writer_->keep(content, writer_->note_of(document, content.text));
        }
    }

    [[nodiscard]] bool is_left_alone() const { return known_ != nullptr && known_->left_alone[number_]; }

    // Where the next document to be stored belongs: before the stored one (less than 0), to it (0), or after it.
    [[nodiscard]] int order_of_next(std::string_view id) const {
        if (next_ == documents_.size() || number_ < next_number_) return 1;
        return documents_[next_].id.compare(id);
    }
    void find_next() {
        if (known_ == nullptr || next_ == documents_.size()) return;
        const auto& ids = known_->last.ids;
        const auto place = std::ranges::lower_bound(ids, documents_[next_].id);
        next_number_ = static_cast<std::uint32_t>(place - ids.begin());
    }

    // Stores those that come next and have one id.
    void store_next(const MultiVersionDocument* stored, const NumberedContent& content) {
        const std::size_t first = next_;
        while (next_ != documents_.size() && documents_[next_].id == documents_[first].id) {
            documents_ahead_.reach(next_++);
        }
        const auto produced = documents_.subspan(first, next_ - first);
        if (writer_->makes_notes()) {
            notes_->numbers.insert(notes_->numbers.end(), produced.size(), writer_->number());
            if (stored == nullptr) notes_->inserted.push_back(number_);
        }
        writer_->store(stored, content, produced);
        find_next();
    }

    const DocumentStorage* storage_;
    const WinningContents* winning_;
    std::span<const FlattenedDocument> documents_;
    LookAhead<PrefetchDocument> documents_ahead_;
    const MayRemove* may_remove_;
    const KnownDocuments* known_;
    StoredNotes* notes_;
    DocumentWriter* writer_;
    std::uint32_t number_ = 0;       // of the stored document
    std::size_t next_ = 0;           // among those to be stored
    std::uint32_t next_number_ = 0;  // its place among the stored ones, or one before it
};

}  // namespace

DocumentStorage store_documents(const DocumentStorage& given, std::span<const FlattenedDocument> documents,
                                const MayRemove& may_remove, DataHasher& hasher, SharedMemory& memory,
                                const KnownDocuments* known, StoredNotes* notes) {
    const DocumentStorage storage = given.with_winning_contents();
    DocumentWriter writer(storage, hasher, memory, notes);
    if (storage.documents().empty()) writer.expect_new(documents.size());
    SideBySide(storage, documents, may_remove, known, notes, writer).run();
    return std::move(writer).applied_to(storage);
}

}  // namespace libzentadbpp
