#include "transformation/document_changes.h"

#include <algorithm>

#include "documents/document_index.h"

namespace libzentadbpp {

namespace {

// One document while its produced contents are stored one after the other.
class DocumentUpdate {
   public:
    DocumentUpdate(DataHasher& hasher, ContentChanges& contents) : hasher_(&hasher), contents_(&contents) {}

    // `content` is that of the stored document's winning revision; null data where there is none.
    void begin(const DocumentRef* stored, std::string_view content) {
        stored_ = stored;
        changed_ = nullptr;
        winning_content_ = content;
    }

    void store(const FlattenedDocument& produced) {
        const MultiVersionDocument* document = current();
        if (document == nullptr) {
            const std::string_view hash = (*hasher_)(produced.content);
            contents_->add(hash, produced.content);
            change(MultiVersionDocument::first(produced.id, hash), produced.content);
            return;
        }
        const TreeRevision& winning = document->winning();
        if (winning.is_deleted()) return;
        if (winning_content_ == produced.content && is_hash_of_kind(winning.datahash(), hasher_->kind())) return;
        const std::string_view hash = (*hasher_)(produced.content);
        contents_->add(hash, produced.content);
        if (hash != winning.datahash()) {
            change(document->with_child(document->winning_position(), hash), produced.content);
        }
    }

    void remove() {
        const MultiVersionDocument* document = current();
        if (!document->winning().is_deleted()) {
            change(document->with_child(document->winning_position(), deleted_hash), {});
        }
    }

    [[nodiscard]] const DocumentRef& changed() const { return changed_; }

   private:
    [[nodiscard]] const MultiVersionDocument* current() const {
        return changed_ != nullptr ? changed_.get() : stored_ != nullptr ? stored_->get() : nullptr;
    }
    void change(DocumentRef document, std::string_view content) {
        changed_ = std::move(document);
        winning_content_ = content;
    }

    DataHasher* hasher_;
    ContentChanges* contents_;
    const DocumentRef* stored_ = nullptr;
    DocumentRef changed_;
    std::string_view winning_content_;
};

}  // namespace

DocumentStorage store_documents(const DocumentStorage& storage, std::vector<FlattenedDocument> documents,
                                Unproduced unproduced, DataHasher& hasher) {
    const auto by_id = [](const FlattenedDocument& a, const FlattenedDocument& b) { return a.id < b.id; };
    if (!std::is_sorted(documents.begin(), documents.end(), by_id)) {
        std::stable_sort(documents.begin(), documents.end(), by_id);
    }

    DocumentChanges changes;
    ContentChanges contents;
    DocumentUpdate update(hasher, contents);
    const std::vector<std::string_view> stored_contents = winning_contents(storage);
    std::size_t number = 0;
    const auto finish = [&] {
        if (update.changed() != nullptr) changes.set(update.changed());
    };

    auto produced = documents.begin();
    const auto store_group = [&](const DocumentRef* stored, std::string_view content) {
        update.begin(stored, content);
        for (const std::string_view id = produced->id; produced != documents.end() && produced->id == id; ++produced) {
            update.store(*produced);
        }
        finish();
    };

    for (const auto& entry : storage.documents()) {
        const std::string_view content = stored_contents[number++];
        while (produced != documents.end() && produced->id < entry.key) store_group(nullptr, {});
        if (produced != documents.end() && produced->id == entry.key) {
            store_group(&entry.value, content);
        } else if (unproduced == Unproduced::remove && !has_ordering_id(entry.key)) {
            update.begin(&entry.value, content);
            update.remove();
            finish();
        }
    }
    while (produced != documents.end()) store_group(nullptr, {});

    return DocumentStorage(std::move(changes).applied_to(storage.documents()),
                           std::move(contents).applied_to(storage.data()), storage.root_or_empty());
}

}  // namespace libzentadbpp
