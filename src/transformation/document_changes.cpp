#include "transformation/document_changes.h"

#include <algorithm>

#include "common/error.h"

namespace libzentadbpp {

namespace {

// One document while its produced contents are stored one after the other.
class DocumentUpdate {
   public:
    DocumentUpdate(const DocumentStorage& storage, DataHasher& hasher, ContentChanges& contents)
        : storage_(&storage), hasher_(&hasher), contents_(&contents) {}

    void begin(const DocumentRef* stored) {
        stored_ = stored;
        changed_ = nullptr;
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
        if (const auto text = winning_content(winning);
            text == produced.content && is_hash_of_kind(winning.datahash(), hasher_->kind())) {
            return;
        }
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
    [[nodiscard]] std::optional<std::string_view> winning_content(const TreeRevision& winning) const {
        return changed_ != nullptr ? last_content_ : storage_->data().find(winning.datahash());
    }
    void change(DocumentRef document, std::string_view content) {
        changed_ = std::move(document);
        last_content_ = content;
    }

    const DocumentStorage* storage_;
    DataHasher* hasher_;
    ContentChanges* contents_;
    const DocumentRef* stored_ = nullptr;
    DocumentRef changed_;
    std::string_view last_content_;
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
    DocumentUpdate update(storage, hasher, contents);
    const auto finish = [&] {
        if (update.changed() != nullptr) changes.set(update.changed());
    };

    auto produced = documents.begin();
    const auto store_group = [&](const DocumentRef* stored) {
        update.begin(stored);
        for (const std::string_view id = produced->id; produced != documents.end() && produced->id == id; ++produced) {
            update.store(*produced);
        }
        finish();
    };

    for (const auto& entry : storage.documents()) {
        while (produced != documents.end() && produced->id < entry.key) store_group(nullptr);
        if (produced != documents.end() && produced->id == entry.key) {
            store_group(&entry.value);
        } else if (unproduced == Unproduced::remove && !has_ordering_id(entry.key)) {
            update.begin(&entry.value);
            update.remove();
            finish();
        }
    }
    while (produced != documents.end()) store_group(nullptr);

    return DocumentStorage(std::move(changes).applied_to(storage.documents()),
                           std::move(contents).applied_to(storage.data()), storage.root_or_empty());
}

}  // namespace libzentadbpp
