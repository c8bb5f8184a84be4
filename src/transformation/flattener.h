#pragma once

#include <deque>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "data/data_hash.h"
#include "json/value.h"
#include "memory/arena.h"
#include "memory/large_vector.h"
#include "memory/text_buffer.h"
#include "text/text_table.h"
#include "transformation/document_path.h"
#include "transformation/last_update.h"
#include "transformation/store_documents.h"
#include "transformation/transformation_settings.h"

namespace libzentadbpp {

// Turns one host object into flat documents.
//
//   {"title": "x", "tasks": [{"_id": "t1", "done": false}]}
//
//   root        {"tasks": "A<domain>", "title": "!x"}         strings carry "!", references "A" or "O"
//   t1          {"done": false}                               every element of an array of objects
//   ord-<hash>  {"d": "<domain>", "i": "default", "s": ["t1"]}   the order of that array, one per instance
//
// Nested objects stay inside their document, unless settings or a "#df" member split them off.
class Flattener {
   public:
    Flattener(const TransformationSettings& settings, DataHasher& hasher, Arena& arena, PathMemory* paths = nullptr,
              ExpectedDocuments* expected = nullptr);

    // Returns the id of the root. It and the documents are in the arena, or among those expected. FlattenerException.
    std::string_view flatten(const JsonValue& data);

    // One document that was produced.
    struct Produced {
        FlattenedDocument document;
        std::uint32_t array;      // the number of the array that it is an element or the order of
        std::uint32_t unchanged;  // the number of the stored document that is just this, if that was expected
    };
    static constexpr std::uint32_t not_expected = 0xffffffff;
    [[nodiscard]] const LargeVector<Produced>& produced() const { return produced_; }

    enum class Which : bool { all, not_unchanged };
    struct Sorted {
        std::vector<FlattenedDocument> documents;  // ascending; those of one id in the order of storing
        std::vector<std::uint32_t> produced;       // where each is among those produced
        bool any_repeated = false;                 // of their ids
    };
    [[nodiscard]] Sorted sorted(Which which) const;

   private:
    // What becomes of an object's "_id": a document's is its id and no part of its content; an object that stays inline
    // keeps its own, or is given one.
    enum class IdMember { leave_out, keep, set };

    struct Array {
        std::string_view domain;
        bool is_empty = true;
    };
    static constexpr std::uint32_t no_array = 0xffffffff;

    void flatten_document(const JsonValue& object, const DocumentPath& path, std::string_view id, std::uint32_t array);
    void produce(std::string_view id, std::string_view content, std::uint32_t array);
    void write_value(const JsonValue& value, const DocumentPath& path, TextBuffer& out);
    void write_inline_object(const JsonValue& object, const DocumentPath& path, TextBuffer& out);
    void write_members(const JsonValue& object, const DocumentPath& path, std::string_view id, IdMember id_member,
                       TextBuffer& out);
    void write_verbatim(const JsonValue& object, std::string_view id, IdMember id_member, TextBuffer& out);
    void write_object_reference(const JsonValue& object, const DocumentPath& path, TextBuffer& out);
    void write_array_reference(const JsonValue& array, const DocumentPath& path, TextBuffer& out);
    void refuse_clashes(const JsonValue& data);
    [[noreturn]] static void refuse_duplicate(std::string_view member_path);  // empty for an element
    [[nodiscard]] bool splits(const JsonValue& object) const;
    void produce_order(const ArrayDomain& domain, std::span<const std::string_view> element_ids, std::uint32_t array);
    [[nodiscard]] TextBuffer& free_buffer();

    const TransformationSettings* settings_;
    Arena* arena_;
    IdGenerator ids_;
    ExpectedDocuments* expected_;
    std::string_view root_id_;
    std::optional<std::string_view> clashing_id_;  // where an element and an object have one id
    TextTable object_ids_;                         // of those that are split off from the objects that they lie in
    TextTable domains_;
    std::vector<Array> arrays_;
    LargeVector<Produced> produced_;
    std::vector<std::string_view> element_ids_;  // of the arrays that are being walked
    std::vector<std::string_view> entered_elements_;
    std::deque<TextBuffer> buffers_;  // one for each document being written
    std::size_t open_documents_ = 0;
};

}  // namespace libzentadbpp
