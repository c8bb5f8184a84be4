#include "libzentadbpp/frame.h"

#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <stdexcept>

#include "json/compact_form.h"
#include "json/environment.h"
#include "json/parser.h"
#include "json/writer.h"
#include "libzentadbpp/object_compression.h"

namespace libzentadbpp {

namespace {

char* copy_out(std::string_view text) noexcept {
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy == nullptr) return nullptr;
    if (!text.empty()) std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

bool is_object(const SyncJsonText& text) { return text.is_object(); }
bool is_object(const JsonValue& value) { return value.is_object(); }

TextBuffer switched(TextBuffer standard) {
    if (!compact_form_enabled()) return standard;
    TextBuffer compact;
    standard_to_compact(standard.view(), compact);
    return compact;
}

}  // namespace

std::string_view Call::text(const char* argument) {
    if (argument == nullptr) throw CallFailure{"null input"};
    return argument;
}

std::string_view Call::keep(const char* argument) {
    const std::string_view given = text(argument);
    if (owner_ == nullptr) return given;
    TextBuffer& copy = memory_->texts.emplace_back();
    copy.append(given);
    return copy.view();
}

JsonValue Call::json(const char* argument) { return parse_json(keep(argument), memory_->arena); }

JsonValue Call::object(const char* argument, std::string_view key, int line) {
    const JsonValue value = json(argument);
    if (!value.is_object()) fail(key, line);
    return value;
}

SyncJsonText Call::sync_json(const char* argument, std::string_view /*key*/) {
    return SyncJsonText(to_standard_text(keep(argument), memory_->arena), memory_->arena, owner_);
}

SyncJsonText Call::sync_json_object(const char* argument, std::string_view key, std::string_view null_key, int line) {
    if (argument == nullptr && !null_key.empty()) fail(null_key, line);
    SyncJsonText text = sync_json(argument);
    if (!text.is_object()) fail(key, line);
    return text;
}

zentadbpp_document_storage& Call::handle(sync_json_ptr argument, std::string_view key, int line) const {
    if (argument == nullptr) fail(key, line);
    return *argument;
}

TextBuffer WholeObject::written() const {
    TextBuffer text;
    write_json(value, text);
    return text;
}

WholeObject Call::whole_object(const char* argument) {
    return whole_object(parse_sync_json_value(keep(argument), memory_->arena));
}

WholeObject Call::whole_object(const JsonValue& value) const {
    if (!value.is_object()) return {JsonValue::object({})};
    const JsonValue* compressed = value.find("compressed");
    const JsonValue* size = value.find("uncompressed_size");
    return {value, compressed != nullptr && compressed->as_boolean() && size != nullptr && size->is_number()};
}

// A text that was compressed is read as one that was given; its failures are reported as those of the compressed
// object.
template <class Read>
auto Call::read_inflated(std::string_view base64, double claimed_size, Inflation inflation, const Read& read)
    -> decltype(read(std::string_view{})) {
    Inflated inflated = uncompress_text(base64, claimed_size);
    // The compressed text is done with, so that a handle does not hold on to it.
    if (owner_ != nullptr) memory_->texts.clear();
    std::string error = std::move(inflated.error);
    if (error.empty()) {
        const std::string_view text = memory_->texts.emplace_back(std::move(inflated.text)).view();
        try {
            auto value = read(text);
            if (is_object(value)) return value;
            error =
                error_record(source::interface, __LINE__, "uncompress_object", "uncompressed_data_is_not_an_object");
        } catch (const ParseError& failure) {
            error = failure.what();
        } catch (const std::out_of_range& failure) {
            error = failure.what();
        }
    }
    if (inflation == Inflation::passed_over) {
        if (inflated.out_of_memory) throw std::bad_alloc();
        return read("{}");
    }
    throw CallFailure{inflation == Inflation::reported ? std::move(error) : "failed_to_uncompress_obj"};
}

DocumentStorage Call::open(SyncJsonText&& text, Inflation inflation) {
    if (!text.is_compressed()) return std::move(text).deserialize();
    return read_inflated(text.compressed_data(), text.uncompressed_size(), inflation,
                         [&](std::string_view inflated) {
                             return SyncJsonText(to_standard_text(inflated, memory_->arena), memory_->arena, owner_);
                         })
        .deserialize();
}

WholeObject Call::inflated(const WholeObject& object, Inflation inflation) {
    if (!object.is_compressed) return object;
    const JsonValue* data = object.value.find("data");
    const std::string_view base64 = data == nullptr ? std::string_view{} : data->as_string();
    const JsonValue value =
        read_inflated(base64, object.value.find("uncompressed_size")->as_real(), inflation,
                      [&](std::string_view text) { return parse_sync_json_value(text, memory_->arena); });
    return {value, true};
}

const DocumentRef& Call::document(const DocumentStorage& storage, std::string_view id, int line) const {
    const DocumentRef* document = storage.documents().find(id);
    if (document == nullptr) {
        throw CallFailure{error_record(source::interface, line, name_, "document_not_found", id)};
    }
    return *document;
}

void Call::fail(std::string_view key, int line) const {
    throw CallFailure{error_record(source::interface, line, name_, key)};
}

CText Call::plain(std::string_view text) {
    TextBuffer copy;
    copy.append(text);
    return plain(std::move(copy));
}

CText Call::plain(TextBuffer text) {
    if (text.view().find('\0') != std::string_view::npos) throw TextContainsNul();
    return text.release();
}

CText Call::plain(const std::vector<std::string>& set) {
    TextBuffer text;
    ListSeparator separator({}, ",");
    for (const std::string& element : set) {
        separator.append_to(text);
        text.append(element);
    }
    return plain(std::move(text));
}

CText Call::rendered(TextBuffer standard, bool compress) {
    TextBuffer text = switched(std::move(standard));
    if (!compress) return text.release();
    TextBuffer object;
    std::string error = compress_text(text.view(), object);
    if (!error.empty()) throw CallFailure{std::move(error)};
    return rendered(std::move(object));
}

CText Call::rendered(const DocumentStorage& storage, bool compress) {
    TextBuffer text;
    storage.serialize(text);
    return rendered(std::move(text), compress);
}

CText Call::rendered(const std::vector<std::string>& list) {
    TextBuffer text;
    ListSeparator separator;
    text.push_back('[');
    for (const std::string& element : list) {
        separator.append_to(text);
        write_json_string(element, text);
    }
    text.push_back(']');
    return rendered(std::move(text));
}

bool asks_for_compression(const JsonValue& configuration) {
    const JsonValue* compressed = configuration.find("compressed");
    return compressed != nullptr && compressed->as_boolean();
}

char* describe_failure(std::string_view export_name) noexcept {
    try {
        try {
            throw;
        } catch (const CallFailure& failure) {
            return copy_out(failure.text);
        } catch (const SecondFirstRevision& failure) {
            return copy_out(error_record(source::interface, __LINE__, export_name, "cannot_replace_first_revision",
                                         failure.document_id));
        } catch (const TextContainsNul&) {
            return copy_out(error_record(source::interface, __LINE__, export_name, "text_contains_nul"));
        } catch (const std::exception& failure) {
            return copy_out(failure.what());
        } catch (...) {
            return copy_out(error_record(source::interface, __LINE__, export_name, "unknown_failure"));
        }
    } catch (...) {
        return nullptr;
    }
}

CText describe_reported(const Call& call, std::string_view export_name) {
    if (call.reported() == nullptr) return CText(nullptr);
    try {
        std::rethrow_exception(call.reported());
    } catch (...) {
        CText text(describe_failure(export_name));
        if (text == nullptr) throw std::bad_alloc();
        return text;
    }
}

}  // namespace libzentadbpp
