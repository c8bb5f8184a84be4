#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "documents/document_storage.h"
#include "memory/arena.h"
#include "memory/large_vector.h"
#include "text/first_bytes.h"

namespace libzentadbpp {

// A sync JSON text with checked syntax and located parts. The kinds of its members are checked only when the storage is
// built, in the order that the format defines. A text that is not an object counts as the empty one.
//
// Slices of the text and of the arena are kept, so both must outlive this and the storage built from it.
class SyncJsonText {
   public:
    // Standard text only. Throws ParseError. Member "d" may nest without limit, and each content in "o" to
    // deepest_content levels of its own; everything else to deepest_text.
    // `owner` is what keeps the text and the arena alive for documents and contents (null: they outlive every use).
    SyncJsonText(std::string_view text, Arena& arena, const std::shared_ptr<const void>& owner);

    [[nodiscard]] bool is_object() const { return is_object_; }

    // A compressed object is recognised by a true "compressed" and a numeric "uncompressed_size".
    [[nodiscard]] bool is_compressed() const { return compressed_ && uncompressed_size_.has_value(); }
    [[nodiscard]] std::string_view compressed_data() const { return compressed_data_; }
    [[nodiscard]] double uncompressed_size() const { return uncompressed_size_.value_or(0); }

    // Builds the storage. InvalidDocumentException and the failures of the revision parser; the first in the order
    // contents, documents, root, and within a part in key order.
    [[nodiscard]] DocumentStorage deserialize() &&;

   private:
    enum class Part { absent, right_kind, wrong_kind };

    struct DocumentPart {
        std::string_view key;
        std::string_view history;  // empty: the value is not an array
        DocumentRef document;      // if the history could be used as written
    };
    struct ContentPart {
        std::string_view key;
        std::string_view text;  // empty: the value is not an object
    };

    // The members of one part, as they were read, and whether that is in strictly ascending order.
    template <class Member>
    struct Members {
        LargeVector<Member> parts;
        bool ascending = true;

        void add(Member member) {
            ascending = ascending && (parts.empty() || is_before(parts.back().key, member.key));
            parts.push_back(std::move(member));
        }
    };

    void read_documents(class JsonScanner& scanner);
    void read_contents(class JsonScanner& scanner);
    void read_root(class JsonScanner& scanner);
    void read_compression(class JsonScanner& scanner, std::string_view key);
    DocumentRef plain_document(std::string_view id, std::string_view text, std::size_t& length);

    void note_closed(const MultiVersionDocument& document) {
        if (!document.has_winning()) closed_documents_ = Closed::possible;
    }

    [[nodiscard]] DataStorage build_contents();
    [[nodiscard]] DocumentStorage::Documents build_documents();

    Arena* arena_;
    std::shared_ptr<const void> owner_;
    bool is_object_ = false;
    Part documents_part_ = Part::absent;
    Part contents_part_ = Part::absent;
    Part root_part_ = Part::absent;
    Members<DocumentPart> documents_;
    Members<ContentPart> contents_;
    std::vector<TreeRevision> chain_;  // reused from document to document
    std::string_view root_;
    Closed closed_documents_ = Closed::none;
    bool compressed_ = false;
    std::string_view compressed_data_;
    std::optional<double> uncompressed_size_;
};

}  // namespace libzentadbpp
