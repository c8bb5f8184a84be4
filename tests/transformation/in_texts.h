#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "data/data_hash.h"
#include "documents/sync_json_text.h"
#include "json/parser.h"
#include "json/writer.h"
#include "memory/arena.h"
#include "transformation/unflattener.h"
#include "transformation/update.h"

// The operations of this room from texts to texts, and how tests write what they expect.
namespace libzentadbpp::in_texts {

inline std::string canonical(std::string_view text) {
    Arena arena;
    TextBuffer out;
    write_json(parse_json(text, arena), out);
    return std::string(out.view());
}

inline std::string hash(std::string_view text, HashKind kind = HashKind::sha256) {
    return std::string(DataHasher(kind)(text));
}

// A text with each «...» in it, innermost first, replaced by its hash.
inline std::string with_hashes(std::string text, HashKind kind = HashKind::sha256) {
    constexpr std::string_view open = "«";
    constexpr std::string_view close = "»";
    for (std::size_t end; (end = text.find(close)) != std::string::npos;) {
        const std::size_t begin = text.rfind(open, end);
        const std::string inside = text.substr(begin + open.size(), end - begin - open.size());
        text.replace(begin, end + close.size() - begin, hash(inside, kind));
    }
    return text;
}

inline DocumentStorage updated(const DocumentStorage& storage, std::string_view data, std::string_view config = "{}") {
    Arena arena;
    const TransformationSettings settings(parse_json(config, arena));
    SharedMemory memory;
    return update(storage, parse_json(data, arena), settings, arena, memory);
}

inline std::string flattened(std::string_view data, std::string_view config = "{}") {
    Arena arena;
    TextBuffer out;
    const TransformationSettings settings(parse_json(config, arena));
    flatten_object(parse_json(data, arena), settings, arena, out);
    return std::string(out.view());
}

inline std::string unflattened(std::string_view documents, std::string_view config = "{}",
                               std::string_view root_id = {}) {
    Arena arena;
    TextBuffer out;
    const TransformationSettings settings(parse_json(config, arena));
    unflatten_array(parse_json(documents, arena), root_id, settings, out);
    return std::string(out.view());
}

inline std::string read(const DocumentStorage& storage, std::string_view config = "{}", std::string_view root_id = {},
                        const std::optional<Revision>& revision = std::nullopt) {
    Arena arena;
    TextBuffer out;
    const TransformationSettings settings(parse_json(config, arena));
    unflatten(ReadIndex(storage, settings.instance_id), root_id, revision, settings.discard_id, out);
    return std::string(out.view());
}

inline DocumentStorage read_and_reorder(const DocumentStorage& storage, const TransformationSettings& settings,
                                        TextBuffer& out) {
    const ReadIndex index(storage, settings.instance_id);
    unflatten(index, {}, std::nullopt, settings.discard_id, out);
    return index.shown().stored();
}

inline std::string serialized(const DocumentStorage& storage) {
    TextBuffer out;
    storage.serialize(out);
    return std::string(out.view());
}

// A sync JSON with what its storage lies in.
class Opened {
   public:
    explicit Opened(std::string text)
        : text_(std::move(text)), storage_(SyncJsonText(text_, arena_, nullptr).deserialize()) {}
    Opened(const Opened&) = delete;
    Opened& operator=(const Opened&) = delete;

    [[nodiscard]] const DocumentStorage& storage() const { return storage_; }

   private:
    std::string text_;
    Arena arena_;
    DocumentStorage storage_;
};

// The revision strings of a document in ascending order; none without such a document.
inline std::vector<std::string> revisions(const DocumentStorage& storage, std::string_view id) {
    std::vector<std::string> strings;
    if (const MultiVersionDocument* document = storage.find(id)) {
        for (const TreeRevision& revision : document->revisions()) strings.push_back(revision.revision_string());
    }
    return strings;
}

// What `call` throws as an E, an error record with its line left out; or that it threw nothing.
template <class E, class Call>
std::string failure(const Call& call) {
    try {
        call();
    } catch (const E& error) {
        std::string text = error.what();
        const std::size_t begin = text.find(R"("line": )");
        if (begin != std::string::npos) text.erase(begin, text.find(R"("function")") - begin);
        return text;
    }
    return "no failure";
}

inline std::string record(std::string_view file, std::string_view function, std::string_view error,
                          std::optional<std::string_view> args = std::nullopt) {
    std::string text = R"({ "filename" : ")" + std::string(file) + R"(", "function" : ")" + std::string(function) +
                       R"(", "error" : ")" + std::string(error) + "\"";
    if (args) text += R"(, "args" : ")" + std::string(*args) + "\"";
    return text + " }";
}

}  // namespace libzentadbpp::in_texts
