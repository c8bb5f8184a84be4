// zentadbpp.hpp: zentadbpp.h for C++17 and later. Header-only and thin: every function makes one call of the function
// of zentadbpp.h beside it, which documents its arguments, result and errors. Two functions that make several calls are
// included at the end: `check` (zentadbpp_check.hpp) and `three_way` (zentadbpp_three_way.hpp).
//
//   Values     A result is a Value, which owns its text; a List, whose items are ids or revisions; or a bool. Results
//              are not copied.
//   Handles    Handle is move-only and frees its handle. Its functions are those of zentadbpp.h with "_ptr". Those that
//              make a new document set return another Handle and do not change this one. An empty Handle, such as one
//              that was moved from, fails like a null handle.
//   Texts      Arguments are Text. It is made without a copy from a std::string, a const char* or a Value, and with a
//              copy from a std::string_view, because the library needs a NUL at the end. A null const char* stays null.
//              A text that contains a NUL byte fails with the Error "text_contains_nul", because the library would read
//              only the part before it.
//   Failures   An Error; std::bad_alloc if memory runs out.
//   Threads    As in zentadbpp.h. Only Handle::read, which may write to the handle, is not const.
//
//     const char* data = R"({"list": [{"_id": "1", "buy": "milk"}]})";
//     if (!zentadbpp::check(data).empty()) std::cout << "a read would not return all of it unchanged\n";
//     zentadbpp::Value phone = zentadbpp::update(data, "{}");
//     zentadbpp::Value laptop = zentadbpp::replicate(phone, "{}");
//     std::cout << zentadbpp::read(laptop) << '\n';

#ifndef ZENTADBPP_HPP
#define ZENTADBPP_HPP

#include <zentadbpp.h>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zentadbpp {

// A failed call; what() is the error text of the library.
class Error : public std::runtime_error {
   public:
    explicit Error(const std::string& text, std::shared_ptr<const std::string> imported = nullptr)
        : std::runtime_error(text), imported_(std::move(imported)), key_{0, text.size()} {
        // Nothing in an error record is escaped: "args" extends to the end of the line, whatever it contains.
        std::size_t at = 0;
        Part filename, line, function, key, args;
        if (!skip(at, "{ \"filename\" : \"") || !read(at, filename, "\", \"line\": ") ||
            !read(at, line, ", \"function\" : \"") || !read(at, function, "\", \"error\" : \"") ||
            !(read(at, key, "\", \"args\" : \"") || read(at, key, "\" }"))) {
            return;
        }
        if (at != text.size()) {
            if (text.size() < at + 3 || text.compare(text.size() - 3, 3, "\" }") != 0) return;
            args = {at, text.size() - at - 3};
            has_args_ = true;
        }
        std::from_chars(what() + line.begin, what() + line.begin + line.size, line_);
        filename_ = filename;
        function_ = function;
        key_ = key;
        args_ = args;
    }

    // Whether the text is an error record. If not, the key is the whole text and all other parts are empty.
    bool is_record() const noexcept { return function_.size != 0; }
    std::string_view key() const noexcept { return text(key_); }
    std::string_view function() const noexcept { return text(function_); }
    std::string_view filename() const noexcept { return text(filename_); }
    long line() const noexcept { return line_; }

    // Details, such as an id; `has_args` distinguishes empty details from none.
    bool has_args() const noexcept { return has_args_; }
    std::string_view args() const noexcept { return text(args_); }

    // If an import rejected only a part: the sync JSON of the rest. Otherwise the empty text.
    std::string_view imported() const noexcept { return imported_ == nullptr ? std::string_view{} : *imported_; }

   private:
    // Places in what(), so that copies need no memory.
    struct Part {
        std::size_t begin = 0;
        std::size_t size = 0;
    };

    std::string_view text(Part part) const noexcept { return {what() + part.begin, part.size}; }

    std::shared_ptr<const std::string> imported_;

    bool skip(std::size_t& at, std::string_view expected) const noexcept {
        if (std::string_view(what()).compare(at, expected.size(), expected) != 0) return false;
        at += expected.size();
        return true;
    }

    // The text up to `end`, which is skipped.
    bool read(std::size_t& at, Part& part, std::string_view end) const noexcept {
        const std::size_t found = std::string_view(what()).find(end, at);
        if (found == std::string_view::npos) return false;
        part = {at, found - at};
        at = found + end.size();
        return true;
    }

    Part filename_, function_, key_, args_;
    long line_ = 0;
    bool has_args_ = false;
};

// A text that the library returned. Empty after a move.
class Value {
   public:
    // Takes a text that `release` frees; null is the empty text.
    Value(char* text, void (*release)(char*)) noexcept
        : size_(text != nullptr ? std::strlen(text) : 0), text_(text, release) {}
    Value(Value&& other) noexcept : size_(std::exchange(other.size_, 0)), text_(std::move(other.text_)) {}
    Value& operator=(Value&& other) noexcept {
        size_ = std::exchange(other.size_, 0);
        text_ = std::move(other.text_);
        return *this;
    }

    const char* c_str() const noexcept { return text_ ? text_.get() : ""; }
    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    std::string_view view() const noexcept { return {c_str(), size_}; }
    std::string str() const { return std::string(view()); }
    operator std::string_view() const noexcept { return view(); }

    friend bool operator==(const Value& a, std::string_view b) noexcept { return a.view() == b; }
    friend bool operator==(const Value& a, const Value& b) noexcept { return a.view() == b.view(); }
    friend std::ostream& operator<<(std::ostream& out, const Value& value) { return out << value.view(); }

   private:
    std::size_t size_;
    std::unique_ptr<char, void (*)(char*)> text_;
};

// A list of ids or revision strings, which stay valid as long as the list, wherever it is moved.
class List {
   public:
    explicit List(Value text) : text_(std::move(text)) {
        std::string_view rest = text_.view();
        while (!rest.empty()) {
            const std::size_t end = rest.find(',');
            items_.push_back(rest.substr(0, end));
            rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        }
    }

    // As the library returned it, separated by commas.
    const Value& text() const noexcept { return text_; }

    std::size_t size() const noexcept { return items_.size(); }
    bool empty() const noexcept { return items_.empty(); }
    std::string_view operator[](std::size_t index) const noexcept { return items_[index]; }
    auto begin() const noexcept { return items_.begin(); }
    auto end() const noexcept { return items_.end(); }

   private:
    Value text_;
    std::vector<std::string_view> items_;
};

// A text argument, for the duration of one call.
class Text {
   public:
    Text(const char* text) noexcept : text_(text) {}
    Text(const std::string& text) : text_(whole(text)) {}
    Text(std::string_view text) : copy_(text), text_(whole(copy_)) {}
    Text(const Value& value) noexcept : text_(value.c_str()) {}
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;

    const char* c_str() const noexcept { return text_; }

   private:
    static const char* whole(const std::string& text) {
        if (text.find('\0') != std::string::npos) throw Error("text_contains_nul");
        return text.c_str();
    }

    std::string copy_;
    const char* text_;
};

// Frees a record of zentadbpp.h with everything in it.
inline void release(sync_json_result& record) noexcept { free_sync_json_result(&record); }
inline void release(sync_json_query_result& record) noexcept { free_sync_json_query_result(&record); }
inline void release(flatten_result& record) noexcept { free_flatten_result(&record); }
inline void release(sync_json_ptr_result& record) noexcept {
    free_sync_json_ptr_result_all(&record);
    record = {};
}

// Owns a record, for direct calls of zentadbpp.h.
template <typename R>
class Record {
   public:
    explicit Record(R record) noexcept : record_(record) {}
    Record(Record&& other) noexcept : record_(std::exchange(other.record_, R{})) {}
    Record& operator=(Record&& other) noexcept {
        std::swap(record_, other.record_);
        return *this;
    }
    ~Record() { release(record_); }

    R& operator*() noexcept { return record_; }
    R* operator->() noexcept { return &record_; }

   private:
    R record_;
};

namespace detail {

[[noreturn]] inline void fail(const char* error, const char* imported = nullptr) {
    if (error == nullptr || std::strcmp(error, "std::bad_alloc") == 0) throw std::bad_alloc();
    throw Error(error, imported == nullptr ? nullptr : std::make_shared<const std::string>(imported));
}

template <typename R>
Value value(R record) {
    Record<R> owner(record);
    if (owner->value == nullptr || owner->error != nullptr) fail(owner->error, owner->value);
    return Value(std::exchange(owner->value, nullptr), [](char* text) {
        R rest{};
        rest.value = text;
        release(rest);
    });
}

inline List list(sync_json_result record) { return List(value(record)); }

// In either form of JSON.
inline bool truth(sync_json_result record) {
    const Value given = value(record);
    return given == "true" || given == "@T";
}

}  // namespace detail

// A parsed sync JSON.
class [[nodiscard]] Handle {
   public:
    Handle() noexcept = default;                                         // empty
    explicit Handle(sync_json_ptr handle) noexcept : handle_(handle) {}  // takes the handle
    explicit Handle(const Text& sync_json) : Handle(new_sync_json_ptr(sync_json.c_str())) {}
    explicit Handle(sync_json_ptr_result record) {  // takes the contents of the record
        Record<sync_json_ptr_result> owner(record);
        handle_.reset(std::exchange(owner->ptr, nullptr));
        if (handle_ != nullptr && owner->error == nullptr) return;
        const std::unique_ptr<char, void (*)(void*)> imported(dump_sync_json_ptr(handle_.get()), std::free);
        detail::fail(owner->error, imported.get());
    }
    static Handle from_bulk_get(const Text& bulk_get, const Text& config = "{}") {
        return Handle(sync_json_ptr_from_bulk_get(bulk_get.c_str(), config.c_str()));
    }

    explicit operator bool() const noexcept { return handle_ != nullptr; }
    sync_json_ptr get() const noexcept { return handle_.get(); }
    sync_json_ptr release() noexcept { return handle_.release(); }  // the caller frees it

    Value dump() const {
        char* text = dump_sync_json_ptr(get());
        if (text == nullptr) throw Error("dump_sync_json_ptr gave no text");
        return Value(text, [](char* given) { std::free(given); });
    }

    Value read(const Text& config = "{}") { return detail::value(read_sync_json_ptr(get(), config.c_str())); }
    Value data(const Text& id, const Text& rev, const Text& config = "{}") const {
        return detail::value(sync_json_ptr_data(get(), id.c_str(), rev.c_str(), config.c_str()));
    }

    Handle update(const Text& input, const Text& config = "{}") const {
        return Handle(update_sync_json_ptr(input.c_str(), get(), config.c_str()));
    }
    Handle resolve(const Text& id, const Text& rev) const {
        return Handle(sync_json_ptr_resolve(get(), id.c_str(), rev.c_str()));
    }
    Handle all_winning() const { return Handle(sync_json_ptr_all_winning(get())); }
    Handle prune(std::uint32_t depth, bool skip_winning = false) const {
        return Handle(sync_json_ptr_prune(get(), depth, skip_winning));
    }
    Handle prune_ids(const Text& ids, std::uint32_t depth, bool skip_winning = false) const {
        return Handle(sync_json_ptr_prune_ids(get(), ids.c_str(), depth, skip_winning));
    }

    Value winning(const Text& id) const { return detail::value(sync_json_ptr_winning(get(), id.c_str())); }
    List leafs(const Text& id) const { return detail::list(sync_json_ptr_leafs(get(), id.c_str())); }
    List conflicting(const Text& id) const { return detail::list(sync_json_ptr_conflicting(get(), id.c_str())); }
    Value ancestor(const Text& id, const Text& rev) const {
        return detail::value(sync_json_ptr_ancestor(get(), id.c_str(), rev.c_str()));
    }
    List siblings(const Text& id, const Text& rev) const {
        return detail::list(sync_json_ptr_siblings(get(), id.c_str(), rev.c_str()));
    }
    Value history(const Text& id, const Text& rev) const {
        return detail::value(sync_json_ptr_history(get(), id.c_str(), rev.c_str()));
    }
    bool available(const Text& rev_or_id) const {
        return detail::truth(sync_json_ptr_available(get(), rev_or_id.c_str()));
    }

    Value root() const { return detail::value(sync_json_ptr_root(get())); }
    Value all_docs() const { return detail::value(sync_json_ptr_all_docs(get())); }
    List instances() const { return detail::list(sync_json_ptr_instances(get())); }
    List unresolved() const { return detail::list(sync_json_ptr_unresolved(get())); }
    List created(const Handle& old) const { return detail::list(sync_json_ptr_created(get(), old.get())); }
    List updated(const Handle& old) const { return detail::list(sync_json_ptr_updated(get(), old.get())); }
    List deleted(const Handle& old) const { return detail::list(sync_json_ptr_deleted(get(), old.get())); }

    Value to_bulk_docs() const { return detail::value(sync_json_ptr_to_bulk_docs(get())); }

   private:
    struct Free {
        void operator()(sync_json_ptr handle) const noexcept { free_sync_json_ptr(handle); }
    };
    std::unique_ptr<zentadbpp_document_storage, Free> handle_;
};

inline const char* version() noexcept { return sync_json_lib_version(); }

// The keys of a configuration, a JSON object, that the library does not know and silently ignores. For hosts that check
// their configuration once.
inline std::vector<std::string> unknown_settings(std::string_view config) {
    constexpr std::string_view known =
        " instance_id id_generation_rules indexed_array_paths flatten_objects discard_id preserve_old_ordering "
        "compressed "
        "force_fast_hash_only include_full_data_hash ";
    std::vector<std::string> unknown;
    std::size_t depth = 0;
    bool is_key = true;
    for (std::size_t at = 0; at < config.size(); ++at) {
        const char c = config[at];
        if (c == '"') {
            const std::size_t begin = at + 1;
            for (++at; at < config.size() && config[at] != '"'; ++at) at += config[at] == '\\' ? 1 : 0;
            if (depth != 1 || !is_key || at >= config.size()) continue;
            const std::string key(config.substr(begin, at - begin));
            if (key.empty() || key.find(' ') != std::string::npos || known.find(" " + key + " ") == known.npos) {
                unknown.push_back(key);
            }
        } else if (c == '{' || c == '[') {
            ++depth;
        } else if (c == '}' || c == ']') {
            --depth;
        } else if (depth == 1 && (c == ':' || c == ',')) {
            is_key = c == ',';
        }
    }
    return unknown;
}

// Host data in and out.
inline Value update(const Text& input, const Text& sync_json, const Text& config = "{}") {
    return detail::value(update_sync_json(input.c_str(), sync_json.c_str(), config.c_str()));
}
inline Value read(const Text& sync_json, const Text& config = "{}") {
    return detail::value(read_sync_json(sync_json.c_str(), config.c_str()));
}
inline Value data(const Text& sync_json, const Text& id, const Text& rev, const Text& config = "{}") {
    return detail::value(sync_json_data(sync_json.c_str(), id.c_str(), rev.c_str(), config.c_str()));
}
inline Value flatten(const Text& input, const Text& config = "{}") {
    return detail::value(json_object_flatten(input.c_str(), config.c_str()));
}
inline Value unflatten(const Text& input, const Text& config = "{}", const Text& root_id = nullptr) {
    return detail::value(json_array_unflatten(input.c_str(), config.c_str(), root_id.c_str()));
}

// Merging: the source into the target; returns the new target.
inline Value replicate(const Text& source, const Text& target, const Text& config = "{}") {
    return detail::value(replicate_sync_json(source.c_str(), target.c_str(), config.c_str()));
}
inline Handle replicate(const Handle& source, const Handle& target, const Text& config = "{}") {
    return Handle(replicate_sync_json_ptr(source.get(), target.get(), config.c_str()));
}
inline Value resolve(const Text& sync_json, const Text& id, const Text& rev) {
    return detail::value(sync_json_resolve(sync_json.c_str(), id.c_str(), rev.c_str()));
}

// Queries about one document.
inline Value winning(const Text& sync_json, const Text& id) {
    return detail::value(sync_json_winning(sync_json.c_str(), id.c_str()));
}
inline List leafs(const Text& sync_json, const Text& id) {
    return detail::list(sync_json_leafs(sync_json.c_str(), id.c_str()));
}
inline List conflicting(const Text& sync_json, const Text& id) {
    return detail::list(sync_json_conflicting(sync_json.c_str(), id.c_str()));
}
inline Value ancestor(const Text& sync_json, const Text& id, const Text& rev) {
    return detail::value(sync_json_ancestor(sync_json.c_str(), id.c_str(), rev.c_str()));
}
inline List siblings(const Text& sync_json, const Text& id, const Text& rev) {
    return detail::list(sync_json_siblings(sync_json.c_str(), id.c_str(), rev.c_str()));
}
inline Value history(const Text& sync_json, const Text& id, const Text& rev) {
    return detail::value(sync_json_history(sync_json.c_str(), id.c_str(), rev.c_str()));
}
inline bool available(const Text& sync_json, const Text& rev_or_id) {
    return detail::truth(sync_json_available(sync_json.c_str(), rev_or_id.c_str()));
}

// Queries about a document set.
inline Value root(const Text& sync_json) { return detail::value(sync_json_root(sync_json.c_str())); }
inline Value all_docs(const Text& sync_json) { return detail::value(sync_json_all_docs(sync_json.c_str())); }
inline Value all_winning(const Text& sync_json) { return detail::value(sync_json_all_winning(sync_json.c_str())); }
inline List instances(const Text& sync_json) { return detail::list(sync_json_instances(sync_json.c_str())); }
inline List unresolved(const Text& sync_json) { return detail::list(sync_json_unresolved(sync_json.c_str())); }
inline List created(const Text& sync_json, const Text& old_sync_json) {
    return detail::list(sync_json_created(sync_json.c_str(), old_sync_json.c_str()));
}
inline List updated(const Text& sync_json, const Text& old_sync_json) {
    return detail::list(sync_json_updated(sync_json.c_str(), old_sync_json.c_str()));
}
inline List deleted(const Text& sync_json, const Text& old_sync_json) {
    return detail::list(sync_json_deleted(sync_json.c_str(), old_sync_json.c_str()));
}

// Pruning.
inline Value prune(const Text& sync_json, std::uint32_t depth, bool skip_winning = false) {
    return detail::value(sync_json_prune(sync_json.c_str(), depth, skip_winning));
}
inline Value prune_ids(const Text& sync_json, const Text& ids, std::uint32_t depth, bool skip_winning = false) {
    return detail::value(sync_json_prune_ids(sync_json.c_str(), ids.c_str(), depth, skip_winning));
}

// Exchange, differences, compression.
inline Value to_bulk_docs(const Text& sync_json) { return detail::value(sync_json_to_bulk_docs(sync_json.c_str())); }
inline Value from_bulk_get(const Text& bulk_get, const Text& config = "{}") {
    return detail::value(sync_json_from_bulk_get(bulk_get.c_str(), config.c_str()));
}
inline Value diff(const Text& before, const Text& after, const Text& config = "{}") {
    return detail::value(sync_json_diff(before.c_str(), after.c_str(), config.c_str()));
}
inline Value patch(const Text& before, const Text& patch) {
    return detail::value(sync_json_patch(before.c_str(), patch.c_str()));
}
inline Value compress(const Text& object) { return detail::value(sync_json_compress(object.c_str())); }
inline Value uncompress(const Text& object) { return detail::value(sync_json_uncompress(object.c_str())); }

}  // namespace zentadbpp

// `check` and `three_way`, which use the functions above.
#include <zentadbpp_check.hpp>
#include <zentadbpp_three_way.hpp>

#endif
