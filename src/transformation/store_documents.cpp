#include "transformation/store_documents.h"

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

class DocumentWriter {
   public:
    DocumentWriter(DataHasher& hasher, SharedMemory& memory) : hasher_(&hasher), memory_(&memory) {}

    // Stores what was produced for one document.
    void store(const MultiVersionDocument* stored, std::string_view winning_content,
               std::span<const FlattenedDocument> produced) {
        // An ordering document with no open branch, or without any revision, is no obstacle: nobody else looks after
        // it.
        DocumentRef opened;
        if (stored != nullptr && !stored->has_winning() && has_ordering_id(stored->id())) {
            opened = reopened(*stored);
            stored = opened.get();
        }
        document_.stored = stored;
        document_.winning_content = winning_content;
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
        if (changed != nullptr) documents_.set(std::move(changed));
    }

    void remove(const MultiVersionDocument& stored) {
        documents_.set(stored.with_chain(stored.winning_position(), {&deleted_hash, 1}, *memory_));
    }

    // Every content that is added is named by a revision, a new one or the winning one.
    [[nodiscard]] DocumentStorage applied_to(const DocumentStorage& storage, Unnamed contents_not_named) && {
        return DocumentStorage(std::move(documents_).applied_to(storage.documents()),
                               std::move(contents_).applied_to(storage.data()), storage.root_or_empty(),
                               contents_not_named, storage.closed_documents());
    }

   private:
    // A document after its change, if any, with all leaves closed but the winning one.
    [[nodiscard]] DocumentRef with_closed_leaves(const MultiVersionDocument& stored, DocumentRef changed) {
        const MultiVersionDocument& document = changed != nullptr ? *changed : stored;
        if (!has_other_leaves(document) || document.winning().is_deleted()) return changed;
        const std::string_view content = document_.winning_content;
        if (content.data() != nullptr && !is_ordering_document(document.id(), content)) return changed;
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

    DataHasher* hasher_;
    SharedMemory* memory_;
    OpenDocument document_;
    DocumentChanges documents_;
    ContentChanges contents_;
    std::unordered_map<const char*, std::string_view> long_contents_;
};

}  // namespace

DocumentStorage store_documents(const DocumentStorage& storage, std::span<const FlattenedDocument> documents,
                                const MayRemove& may_remove, DataHasher& hasher, SharedMemory& memory) {
    DocumentWriter writer(hasher, memory);
    constexpr std::ptrdiff_t ahead = 8;
    auto next = documents.begin();
    // Those that come next and have one id.
    const auto take = [&] {
        if (documents.end() - next > ahead) {
            prefetch(next[ahead].id);
            prefetch(next[ahead].content);
        }
        const auto first = next;
        while (next != documents.end() && next->id == first->id) ++next;
        return std::span(first, next);
    };
    const auto [contents, are_all] = winning_contents(storage);
    auto content = contents.begin();
    std::uint32_t number = 0;
    for (const auto& [id, document] : storage.documents()) {
        if (contents.end() - content > ahead) prefetch(content[ahead]);
        int order = 1;
        while (next != documents.end() && (order = next->id.compare(id)) < 0) {
            writer.store(nullptr, {}, take());
            order = 1;
        }
        if (order == 0) {
            writer.store(document.get(), *content, take());
        } else if (may_remove && !is_ordering_document(*document, storage.data()) &&
                   document->winning().datahash() != deleted_hash && may_remove(number)) {
            writer.remove(*document);
        }
        ++content;
        ++number;
    }
    while (next != documents.end()) writer.store(nullptr, {}, take());
    return std::move(writer).applied_to(storage, are_all ? Unnamed::none : storage.contents_not_named());
}

}  // namespace libzentadbpp
