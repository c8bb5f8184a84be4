#include "transformation/document_changes.h"

#include <algorithm>

#include "common/arena.h"
#include "common/text_table.h"
#include "documents/document_index.h"

namespace libzentadbpp {

namespace {

// A document while contents are stored in it one after the other. The revisions are added at the end, all at once.
struct OpenDocument {
    const MultiVersionDocument* stored = nullptr;
    bool produced = false;
    std::string_view winning_content;     // null data where it is not stored
    std::vector<std::string_view> added;  // data hashes of the revisions to come

    [[nodiscard]] std::string_view winning_hash() const {
        if (!added.empty()) return added.back();
        return stored != nullptr ? stored->winning().datahash() : std::string_view{};
    }
    [[nodiscard]] DocumentRef changed(std::string_view id) const {
        if (stored != nullptr) return stored->with_chain(stored->winning_position(), added);
        const DocumentRef document = MultiVersionDocument::first(id, added.front());
        return added.size() == 1 ? document : document->with_chain(0, std::span(added).subspan(1));
    }
};

class DocumentWriter {
   public:
    DocumentWriter(DataHasher& hasher, Arena& arena) : hasher_(&hasher), arena_(&arena) {}

    void store(OpenDocument& document, const FlattenedDocument& produced) {
        document.produced = true;
        const std::string_view winning = document.winning_hash();
        if (winning == deleted_hash) return;
        if (document.winning_content == produced.content && is_hash_of_kind(winning, hasher_->kind())) return;
        const std::string_view hash = arena_->copy((*hasher_)(produced.content));
        contents.add(hash, produced.content);
        if (hash != winning) document.added.push_back(hash);
        document.winning_content = produced.content;
    }

    static void remove(OpenDocument& document) {
        if (document.winning_hash() != deleted_hash) document.added.push_back(deleted_hash);
    }

    ContentChanges contents;

   private:
    DataHasher* hasher_;
    Arena* arena_;
};

}  // namespace

DocumentStorage store_documents(const DocumentStorage& storage, std::span<const FlattenedDocument> documents,
                                Unproduced unproduced, DataHasher& hasher) {
    std::vector<OpenDocument> open(storage.documents().size());
    TextTable numbers(open.size());
    const std::vector<std::string_view> contents = winning_contents(storage);
    std::size_t next = 0;
    for (const auto& entry : storage.documents()) {
        numbers.add(entry.key);
        open[next].stored = entry.value.get();
        open[next].winning_content = contents[next];
        ++next;
    }

    Arena arena;
    DocumentWriter writer(hasher, arena);
    DocumentChanges changes;
    std::vector<const FlattenedDocument*> added;
    for (const FlattenedDocument& produced : documents) {
        if (const auto number = numbers.find(produced.id)) {
            writer.store(open[*number], produced);
        } else {
            added.push_back(&produced);
        }
    }
    for (OpenDocument& document : open) {
        if (unproduced == Unproduced::remove && !document.produced && !has_ordering_id(document.stored->id())) {
            DocumentWriter::remove(document);
        }
        if (!document.added.empty()) changes.set(document.changed(document.stored->id()));
    }

    std::stable_sort(added.begin(), added.end(), [](const auto* a, const auto* b) { return a->id < b->id; });
    for (auto produced = added.begin(); produced != added.end();) {
        OpenDocument document;
        const std::string_view id = (*produced)->id;
        for (; produced != added.end() && (*produced)->id == id; ++produced) writer.store(document, **produced);
        changes.set(document.changed(id));
    }

    return DocumentStorage(std::move(changes).applied_to(storage.documents()),
                           std::move(writer.contents).applied_to(storage.data()), storage.root_or_empty());
}

}  // namespace libzentadbpp
