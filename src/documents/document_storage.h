#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "data/data_storage.h"
#include "documents/multiversion_document.h"
#include "memory/text_buffer.h"
#include "text/ordered_map.h"

namespace libzentadbpp {

// The ids of documents that record the order of an array begin with this; the library manages them itself.
inline constexpr std::string_view ordering_id_prefix = "ord-";
[[nodiscard]] inline bool has_ordering_id(std::string_view id) { return id.starts_with(ordering_id_prefix); }

// Whether a storage may hold contents that none of its revisions names.
enum class Unnamed : bool { none, possible };
// Whether it may hold documents of which every branch is closed.
enum class Closed : bool { none, possible };

// The contents of all winning revisions of a storage.
struct WinningContents {
    // By document in ascending order of id; null data where one is not stored, or where a document has no winning
    // revision.
    LargeVector<std::string_view> texts;
    // Their numbers, or DataStorage::not_stored.
    LargeVector<std::uint32_t> numbers;
    bool are_all = false;   // the storage holds no others
    bool any_lack = false;  // one that a winning revision names is not stored
};

// The in-memory form of one sync JSON: documents by id, their contents by data hash, and the id of the root document.
// An immutable value that is cheap to copy; any number of threads may read one, or copies of it, at once.
class DocumentStorage {
   public:
    using Documents = OrderedMap<DocumentRef>;

    DocumentStorage() = default;
    DocumentStorage(Documents documents, DataStorage data, std::string root,
                    Unnamed contents_not_named = Unnamed::possible, Closed closed_documents = Closed::possible)
        : documents_(std::move(documents)),
          data_(std::move(data)),
          root_(std::move(root)),
          contents_not_named_(contents_not_named),
          closed_documents_(closed_documents) {}

    [[nodiscard]] const Documents& documents() const { return documents_; }
    [[nodiscard]] const DataStorage& data() const { return data_; }
    // Known while contents and the revisions that name them are added together; a text may hold anything.
    [[nodiscard]] Unnamed contents_not_named() const { return contents_not_named_; }
    // Nothing that the library does closes the last branch of a document, but a text may hold such.
    [[nodiscard]] Closed closed_documents() const { return closed_documents_; }
    // The document, or null.
    [[nodiscard]] const MultiVersionDocument* find(std::string_view id) const {
        const DocumentRef* document = documents_.find(id);
        return document == nullptr ? nullptr : document->get();
    }

    // Whether both are copies of one value, apart from what they know of their contents.
    [[nodiscard]] bool is_copy_of(const DocumentStorage& other) const {
        return documents_.is_copy_of(other.documents_) && data_.contents().is_copy_of(other.data_.contents()) &&
               root_ == other.root_;
    }

    // Null where they are unknown: that is so until something asks for them, and after some changes.
    [[nodiscard]] const std::shared_ptr<const WinningContents>& winning_contents() const { return winning_contents_; }
    // The same storage, knowing its winning contents. O(1) where it does, else O(documents + contents).
    [[nodiscard]] DocumentStorage with_winning_contents() const;
    // The same, if it was made from a storage that knows them by adding and changing documents and by adding contents.
    // O(documents + changes log contents), and never more than above.
    [[nodiscard]] DocumentStorage with_winning_contents_after(const DocumentStorage& before) const;
    // Of a storage with just these contents.
    [[nodiscard]] DocumentStorage with_winning_contents(std::shared_ptr<const WinningContents> contents) const;
    [[nodiscard]] DocumentStorage with_root(std::string root) const;

    // The root id. None set: InvalidDocumentException "root_id_cannot_be_empty".
    [[nodiscard]] const std::string& root() const;
    [[nodiscard]] const std::string& root_or_empty() const { return root_; }

    // Appends the sync JSON. Contents that no revision refers to are left out. A revision with an empty suffix:
    // InvalidRevisionException "invalid_revision_state_uuid_empty". O(size of the result).
    void serialize(TextBuffer& out) const;

   private:
    [[nodiscard]] std::vector<const DataStorage::Map::Entry*> contents_to_write() const;
    void refuse_empty_suffixes() const;

    Documents documents_;
    DataStorage data_;
    std::string root_;
    Unnamed contents_not_named_ = Unnamed::none;
    Closed closed_documents_ = Closed::none;
    std::shared_ptr<const WinningContents> winning_contents_;
};

// Documents to put into a storage, in any order, each id once.
class DocumentChanges {
   public:
    void reserve(std::size_t count) { changes_.reserve(count); }
    void set(DocumentRef document) {
        const std::string_view id = document->id();
        ascending_ = ascending_ && (changes_.empty() || changes_.back().key < id);
        changes_.push_back({id, std::move(document)});
    }
    [[nodiscard]] DocumentStorage::Documents applied_to(const DocumentStorage::Documents& documents) &&;

   private:
    DocumentStorage::Documents::Entries changes_;
    bool ascending_ = true;  // so far; as it is found while the last id is near, nothing has to look for it later
};

// The data hashes of all revisions, in no order. They are views into the documents.
[[nodiscard]] LargeVector<std::string_view> referenced_hashes(const DocumentStorage::Documents& documents);

}  // namespace libzentadbpp
