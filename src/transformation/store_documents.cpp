#include "transformation/store_documents.h"

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

class DocumentWriter {
   public:
    // What is made in an arena ends with the call, and needs no winning contents.
    DocumentWriter(const DocumentStorage& storage, DataHasher& hasher, SharedMemory& memory)
        : hasher_(&hasher),
          memory_(&memory),
          most_looked_up_(memory.is_arena() ? 0 : storage.documents().size() / 8),
          knows_winning_(most_looked_up_ > 0) {
        if (!knows_winning_) return;
        winning_.texts.reserve(storage.documents().size() + most_looked_up_);
        winning_.numbers.reserve(storage.documents().size() + most_looked_up_);
    }

    // Stores what was produced for one document.
    void store(const MultiVersionDocument* stored, const NumberedContent& winning_content,
               std::span<const FlattenedDocument> produced) {
        // An ordering document with no open branch, or without any revision, is no obstacle: nobody else looks after
        // it.
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
            keep(winning_content);
        }
    }

    void remove(const MultiVersionDocument& stored) {
        set(stored.with_chain(stored.winning_position(), {&deleted_hash, 1}, *memory_));
    }

    // Leaves the next document as it is, with its winning content.
    void keep(const NumberedContent& winning_content) {
        if (!knows_winning_) return;
        winning_.texts.push_back(winning_content.text);
        winning_.numbers.push_back(winning_content.number);
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
        const DocumentStorage changed(std::move(documents_).applied_to(storage.documents()),
                                      std::move(contents_).applied_to(storage.data()), storage.root_or_empty(),
                                      storage.contents_not_named(), storage.closed_documents());
        if (!stays_known) return changed;
        winning_.any_lack = before.any_lack;
        for (const auto& [number, document] : changed_) {
            if (!document->has_winning()) continue;
            const auto content = changed.data().find_numbered(document->winning().datahash());
            if (content) {
                winning_.texts[number] = content->text;
                winning_.numbers[number] = content->number;
            }
            winning_.any_lack = winning_.any_lack || !content;
        }
        return changed.with_winning_contents(std::make_shared<const WinningContents>(std::move(winning_)));
    }

   private:
    void set(DocumentRef document) {
        knows_winning_ = changed_.size() < most_looked_up_;
        if (knows_winning_) {
            changed_.emplace_back(winning_.texts.size(), document.get());
            winning_.texts.emplace_back();
            winning_.numbers.push_back(DataStorage::not_stored);
        }
        documents_.set(std::move(document));
    }

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
    std::size_t most_looked_up_;
    bool knows_winning_;
    WinningContents winning_;  // after the changes; those of changed documents are looked up at the end
    std::vector<std::pair<std::size_t, const MultiVersionDocument*>> changed_;
    std::unordered_map<const char*, std::string_view> long_contents_;
};

// Whether a document is live data.
bool is_removable(const MultiVersionDocument& document, std::string_view content, const DataStorage& data) {
    if (DataStorage::is_of_deleted(content)) return false;
    if (content.data() != nullptr && is_ordering_document(document.id(), content)) return false;
    return !is_ordering_document(document, data) && !document.winning().is_deleted();
}

}  // namespace

DocumentStorage store_documents(const DocumentStorage& given, std::span<const FlattenedDocument> documents,
                                const MayRemove& may_remove, DataHasher& hasher, SharedMemory& memory) {
    const DocumentStorage storage = given.with_winning_contents();
    const WinningContents& winning = *storage.winning_contents();
    DocumentWriter writer(storage, hasher, memory);
    const LookAhead produced_ahead(steps_ahead::document, documents.size(), [&](std::size_t at) {
        prefetch(documents[at].id);
        prefetch(documents[at].content);
    });
    const NumberedContent none{DataStorage::not_stored, {}};
    auto next = documents.begin();
    // Those that come next and have one id.
    const auto take = [&] {
        const auto first = next;
        while (next != documents.end() && next->id == first->id) {
            produced_ahead.reach(static_cast<std::size_t>(next - documents.begin()));
            ++next;
        }
        return std::span(first, next);
    };
    const LookAhead winning_ahead(steps_ahead::document, winning.texts.size(),
                                  [&](std::size_t at) { prefetch(winning.texts[at]); });
    std::uint32_t number = 0;
    for (const auto& [id, document] : storage.documents()) {
        winning_ahead.reach(number);
        const NumberedContent content{winning.numbers[number], winning.texts[number]};
        int order = 1;
        while (next != documents.end() && (order = next->id.compare(id)) < 0) {
            writer.store(nullptr, none, take());
            order = 1;
        }
        if (order == 0) {
            writer.store(document.get(), content, take());
        } else if (may_remove && is_removable(*document, content.text, storage.data()) && may_remove(number)) {
            writer.remove(*document);
        } else {
            writer.keep(content);
        }
        ++number;
    }
    while (next != documents.end()) writer.store(nullptr, none, take());
    return std::move(writer).applied_to(storage);
}

}  // namespace libzentadbpp
