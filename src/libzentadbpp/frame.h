#pragma once

#include <deque>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "documents/document_storage.h"
#include "documents/sync_json_text.h"
#include "json/error.h"
#include "json/value.h"
#include "libzentadbpp/floating_point.h"
#include "libzentadbpp/handle.h"
#include "libzentadbpp/zentadbpp.h"
#include "memory/arena.h"
#include "memory/text_buffer.h"

namespace libzentadbpp {

// The frame around every export: reading arguments, opening sync JSONs, rendering and copying out results, and turning
// failures into the record's error text. An export names its arguments in the order of checks, and its operation.
// Nothing else catches, and nothing else allocates what the host frees.

// An error text that is ready for the record.
struct CallFailure {
    std::string text;
};

// What a call's texts and trees lie in.
struct CallMemory {
    Arena arena;
    std::deque<TextBuffer> texts;
};

// The effect of a compressed object that cannot be inflated: it counts as the empty object, it is reported with its
// reason, or with the bare key "failed_to_uncompress_obj". If memory ran out, it never counts as empty.
enum class Inflation { passed_over, reported, reported_briefly };

// An object as a tree, its members nested as deep as those of a sync JSON may be.
struct WholeObject {
    JsonValue value;
    bool is_compressed = false;

    [[nodiscard]] TextBuffer written() const;
};

class Call {
   public:
    // With `shared`, texts are copied into that memory, which the storages opened from them keep; without, the texts
    // and all that is made of them end with the call.
    explicit Call(std::string_view export_name, std::shared_ptr<CallMemory> shared = nullptr)
        : name_(export_name), memory_(shared == nullptr ? &own_memory_ : shared.get()), owner_(std::move(shared)) {}

    // --- Arguments, read in the order of checks. Each fails with its error text.

    // A plain text, such as an id.
    [[nodiscard]] static std::string_view text(const char* argument);
    // A JSON text of any kind.
    [[nodiscard]] JsonValue json(const char* argument);
    // A JSON text that must be an object: otherwise an error record with `key`, or the bare key.
    [[nodiscard]] JsonValue object(const char* argument, std::string_view key, int line = __builtin_LINE());
    [[nodiscard]] JsonValue configuration(const char* argument, int line = __builtin_LINE()) {
        return object(argument, "config_is_not_an_object", line);
    }
    // A sync JSON, for `open`: a text, in which a value that is not an object counts as the empty one, or the contents
    // of a handle; an error record with `key` if the handle is null.
    [[nodiscard]] SyncJsonText sync_json(const char* argument, std::string_view key = {});
    [[nodiscard]] const DocumentStorage& sync_json(sync_json_ptr argument,
                                                   std::string_view key = "invalid_sync_json_ptr",
                                                   int line = __builtin_LINE()) const {
        return handle(argument, key, line).storage();
    }
    // A sync JSON that must be an object; `null_key` is the record for a null pointer, if there is one of its own.
    [[nodiscard]] SyncJsonText sync_json_object(const char* argument, std::string_view key,
                                                std::string_view null_key = {}, int line = __builtin_LINE());
    // The same as a value to be looked at as a whole.
    [[nodiscard]] WholeObject whole_object(const char* argument);
    [[nodiscard]] WholeObject whole_object(const JsonValue& value) const;
    // A handle; an error record with `key` if it is null.
    [[nodiscard]] zentadbpp_document_storage& handle(sync_json_ptr argument,
                                                     std::string_view key = "invalid_sync_json_ptr",
                                                     int line = __builtin_LINE()) const;

    // --- Opening

    [[nodiscard]] DocumentStorage open(SyncJsonText&& text, Inflation inflation);
    [[nodiscard]] static const DocumentStorage& open(const DocumentStorage& of_handle, Inflation) { return of_handle; }
    // The object itself if it is not compressed; the empty one if a failure is ignored.
    [[nodiscard]] WholeObject inflated(const WholeObject& object, Inflation inflation);
    // A document of a storage; "document_not_found" if there is none.
    [[nodiscard]] const DocumentRef& document(const DocumentStorage& storage, std::string_view id,
                                              int line = __builtin_LINE()) const;

    [[noreturn]] void fail(std::string_view key, int line = __builtin_LINE()) const;
    // For the record's error beside a result that lacks something.
    void report(std::exception_ptr failure) { reported_ = std::move(failure); }
    [[nodiscard]] const std::exception_ptr& reported() const { return reported_; }
    [[nodiscard]] Arena& arena() { return memory_->arena; }

    // --- Results

    // A text that is not JSON, in which a NUL byte cannot be written: TextContainsNul.
    [[nodiscard]] static CText plain(std::string_view text);
    [[nodiscard]] static CText plain(TextBuffer text);
    // A set of ids or revision strings, separated by commas.
    [[nodiscard]] static CText plain(const std::vector<std::string>& set);
    // A JSON result, from its standard text.
    [[nodiscard]] static CText rendered(TextBuffer standard, bool compress = false);
    [[nodiscard]] static CText rendered(const DocumentStorage& storage, bool compress = false);
    // A list of ids or revision strings as a JSON array, whose elements may contain NUL bytes.
    [[nodiscard]] static CText rendered(const std::vector<std::string>& list);

   private:
    std::string_view keep(const char* argument);
    template <class Read>
    auto read_inflated(std::string_view base64, double claimed_size, Inflation inflation, const Read& read)
        -> decltype(read(std::string_view{}));

    std::string_view name_;
    CallMemory own_memory_;
    CallMemory* memory_;
    std::shared_ptr<const void> owner_;
    std::exception_ptr reported_;
};

// Whether a configuration asks for a compressed result.
[[nodiscard]] bool asks_for_compression(const JsonValue& configuration);

// The error text of the current exception; null if there is no memory even for that.
[[nodiscard]] char* describe_failure(std::string_view export_name) noexcept;
// The error text that a call reported, or null; std::bad_alloc if there is no memory for it.
[[nodiscard]] CText describe_reported(const Call& call, std::string_view export_name);

// Runs the body of an export that returns a text. The export that calls this gives its name to messages.
template <class Record = sync_json_result, class Body>
Record answer(const Body& body, std::string_view export_name = __builtin_FUNCTION()) noexcept {
    Record record{};
    const DefaultFloatingPoint floating_point;
    try {
        Call call(export_name);
        CText value = body(call);
        record.error = describe_reported(call, export_name).release();
        record.value = value.release();
    } catch (...) {
        record.error = describe_failure(export_name);
    }
    return record;
}

// The same for one that returns a handle. Texts live as long as the handle if it consists of slices of them.
enum class Texts : bool { of_the_call, of_the_handle };

template <Texts texts = Texts::of_the_call, class Body>
sync_json_ptr_result answer_handle(const Body& body, std::string_view export_name = __builtin_FUNCTION()) noexcept {
    sync_json_ptr_result record{};
    const DefaultFloatingPoint floating_point;
    try {
        Call call(export_name, texts == Texts::of_the_handle ? std::make_shared<CallMemory>() : nullptr);
        auto handle = std::make_unique<zentadbpp_document_storage>(body(call));
        record.error = describe_reported(call, export_name).release();
        record.ptr = handle.release();
    } catch (...) {
        record.error = describe_failure(export_name);
    }
    return record;
}

}  // namespace libzentadbpp
