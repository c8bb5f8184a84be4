#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "json/string.h"

namespace libzentadbpp {

struct JsonMember;

// One value of a parsed JSON text: an immutable view whose strings, elements and members lie in the arena (or in
// the text) that it was read from, and that must not outlive them. Copying is cheap and shares.
class JsonValue {
   public:
    enum class Kind : std::uint8_t { null, boolean, integer, real, string, array, object };

    constexpr JsonValue() : JsonValue(Kind::null) {}
    static constexpr JsonValue boolean(bool value) { return integer(Kind::boolean, value ? 1 : 0); }
    static constexpr JsonValue integer(std::int32_t value) { return integer(Kind::integer, value); }
    static JsonValue real(double value) {
        JsonValue result(Kind::real);
        result.real_ = value;
        return result;
    }
    static JsonValue string(std::string_view text) { return string(text, Form::any); }
    // A string whose text is the same between the quotes when it is written.
    static JsonValue plain_string(std::string_view text) { return string(text, Form::plain); }
    // The same for one with escapes, in the form in which they are written.
    static JsonValue escaped_string(const EscapedString* text) {
        JsonValue result(Kind::string, 0, Form::escaped);
        result.escaped_ = text;
        return result;
    }
    static JsonValue array(std::span<const JsonValue> elements) {
        JsonValue result(Kind::array, elements.size());
        result.elements_ = elements.data();
        return result;
    }
    // Members must be in ascending byte order of their keys, each key once.
    static JsonValue object(std::span<const JsonMember> members) {
        JsonValue result(Kind::object, members.size());
        result.members_ = members.data();
        return result;
    }

    [[nodiscard]] Kind kind() const { return static_cast<Kind>(head_ & 0xff); }
    [[nodiscard]] bool is_null() const { return kind() == Kind::null; }
    [[nodiscard]] bool is_boolean() const { return kind() == Kind::boolean; }
    [[nodiscard]] bool is_number() const { return kind() == Kind::integer || kind() == Kind::real; }
    [[nodiscard]] bool is_string() const { return kind() == Kind::string; }
    [[nodiscard]] bool is_array() const { return kind() == Kind::array; }
    [[nodiscard]] bool is_object() const { return kind() == Kind::object; }

    // The content, or the empty one if the value is of another kind.
    [[nodiscard]] bool as_boolean() const { return is_boolean() && integer_ != 0; }
    [[nodiscard]] double as_real() const {
        return kind() == Kind::real ? real_ : kind() == Kind::integer ? static_cast<double>(integer_) : 0.0;
    }
    [[nodiscard]] std::string_view as_string() const {
        if (!is_string()) return {};
        return form() == Form::escaped ? escaped_->text() : std::string_view{text_, size()};
    }
    // A string as written between its quotes, if that is known; else a view without data.
    [[nodiscard]] std::string_view written_string() const {
        if (!is_string() || form() == Form::any) return {};
        return form() == Form::escaped ? escaped_->raw() : std::string_view{text_, size()};
    }
    [[nodiscard]] std::span<const JsonValue> elements() const {
        return is_array() ? std::span<const JsonValue>{elements_, size()} : std::span<const JsonValue>{};
    }
    [[nodiscard]] std::span<const JsonMember> members() const;
    [[nodiscard]] std::int32_t as_int32() const {  // only for Kind::integer
        return static_cast<std::int32_t>(integer_);
    }

    // The member of that name, or null if there is none or this is not an object. O(log members).
    [[nodiscard]] const JsonValue* find(std::string_view key) const;

   private:
    enum class Form : std::uint8_t { any, plain, escaped };

    // Kind, form and size are one number, so that a value is made and copied in two steps.
    constexpr explicit JsonValue(Kind kind, std::uint64_t size = 0, Form form = Form::any)
        : head_(size << 16 | std::uint64_t{static_cast<std::uint8_t>(form)} << 8 | static_cast<std::uint8_t>(kind)),
          integer_(0) {}

    static constexpr JsonValue integer(Kind kind, std::int64_t integer) {
        JsonValue result(kind);
        result.integer_ = integer;
        return result;
    }
    static JsonValue string(std::string_view text, Form form) {
        JsonValue result(Kind::string, text.size(), form);
        result.text_ = text.data();
        return result;
    }

    [[nodiscard]] Form form() const { return static_cast<Form>(head_ >> 8 & 0xff); }  // of a string
    [[nodiscard]] std::size_t size() const { return static_cast<std::size_t>(head_ >> 16); }

    std::uint64_t head_;
    union {
        std::int64_t integer_;
        double real_;
        const char* text_;
        const EscapedString* escaped_;
        const JsonValue* elements_;
        const JsonMember* members_;
    };
};
static_assert(sizeof(JsonValue) == 16);

struct JsonMember {
    std::string_view key;
    JsonValue value;
};

inline std::span<const JsonMember> JsonValue::members() const {
    return is_object() ? std::span<const JsonMember>{members_, size()} : std::span<const JsonMember>{};
}

}  // namespace libzentadbpp
