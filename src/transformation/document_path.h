#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "data/data_hash.h"
#include "json/value.h"
#include "memory/arena.h"
#include "transformation/last_update.h"
#include "transformation/transformation_settings.h"

namespace libzentadbpp {

// Where a value lies in the host's data: a chain of steps from the root, each on the stack of the walk that takes it.
// The text of a path is built, and ids on the way are made, only when something asks for them.
struct DocumentPath {
    enum class Step {
        top,       // the root object itself: the empty path
        root,      // leaving the root for its members
        member,    // text: the key
        object,    // value: the object entered; its id is made on demand
        array,     // text: the domain of an array of objects
        position,  // text: the decimal position in an indexed array
        plain_array,
    };

    const DocumentPath* parent = nullptr;
    Step step = Step::top;
    std::string_view text;
    const JsonValue* object = nullptr;
    mutable std::string_view object_id{};  // once made
    // The hash of the path up to here, kept here and there along a long one by the generator.
    mutable const RunningHash* hash_so_far = nullptr;

    [[nodiscard]] bool empty() const { return step == Step::top; }
};

// Makes the ids of one instance's ordering documents.
class OrderingIds {
   public:
    explicit OrderingIds(std::string_view instance_id);
    [[nodiscard]] std::string_view id(std::string_view domain, DataHasher& hasher, Arena& arena);

   private:
    std::vector<std::string> pieces_;  // of the name that is hashed: the domain goes between them
    std::string name_;
};

// The domain of an array, and which path it has in the path memory.
struct ArrayDomain {
    std::string_view text;
    std::optional<std::size_t> path{};
};

// Makes the ids of documents and arrays. All results are in the arena, or in what the path memory knows.
class IdGenerator {
   public:
    IdGenerator(const TransformationSettings& settings, DataHasher& hasher, Arena& arena, PathMemory* paths = nullptr)
        : settings_(&settings), hasher_(&hasher), arena_(&arena), paths_(paths), ordering_ids_(settings.instance_id) {}

    // The id of an object at a path: its own "_id", or what the first rule that applies yields, or the hash of the
    // path.
    [[nodiscard]] std::string_view object_id(const JsonValue& object, const DocumentPath& path);
    // The domain of an array of objects at a path.
    [[nodiscard]] ArrayDomain array_domain(const DocumentPath& path);
    // The id of the document that has the order of an array.
    [[nodiscard]] std::string_view ordering_id(const ArrayDomain& domain);

    [[nodiscard]] std::string path_text(const DocumentPath& path);

   private:
    void append_step(const DocumentPath& step, std::string& text);
    [[nodiscard]] ArrayDomain path_hash(const DocumentPath& path);

    const TransformationSettings* settings_;
    DataHasher* hasher_;
    Arena* arena_;
    PathMemory* paths_;
    OrderingIds ordering_ids_;
    std::deque<RunningHash> kept_hashes_;
    std::string spare_text_;
};

// Makes the id of an object by a rule; false if the rule yields none.
[[nodiscard]] bool apply_rule(const IdGenerationRule& rule, const JsonValue& object, std::string& id);

}  // namespace libzentadbpp
