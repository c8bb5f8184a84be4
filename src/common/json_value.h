#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace libzentadbpp {

struct JsonMember;

// One value of a parsed JSON text: an immutable view whose strings, elements and members lie in the arena (or in
// the text) that it was read from, and that must not outlive them. Copying is cheap and shares.
class JsonValue {
   public:
    enum class Kind : std::uint8_t { null, boolean, integer, real, string, array, object };

    constexpr JsonValue() : JsonValue(Kind::null, 0) {}
    static constexpr JsonValue boolean(bool value) { return JsonValue(Kind::boolean, value ? 1 : 0); }
    static constexpr JsonValue integer(std::int32_t value) { return JsonValue(Kind::integer, value); }
    static JsonValue real(double value) {
        JsonValue result(Kind::real, 0);
        result.real_ = value;
        return result;
    }
    static JsonValue string(std::string_view text) {
        JsonValue result(Kind::string, 0);
        result.size_ = text.size() & largest_size;
        result.text_ = text.data();
        return result;
    }
    static JsonValue array(std::span<const JsonValue> elements) {
        JsonValue result(Kind::array, 0);
        result.size_ = elements.size() & largest_size;
        result.elements_ = elements.data();
        return result;
    }
    // Members must be in ascending byte order of their keys, each key once.
    static JsonValue object(std::span<const JsonMember> members) {
        JsonValue result(Kind::object, 0);
        result.size_ = members.size() & largest_size;
        result.members_ = members.data();
        return result;
    }

    [[nodiscard]] Kind kind() const { return static_cast<Kind>(kind_); }
    [[nodiscard]] bool is_null() const { return kind() == Kind::null; }
    [[nodiscard]] bool is_boolean() const { return kind() == Kind::boolean; }
    [[nodiscard]] bool is_number() const { return kind() == Kind::integer || kind() == Kind::real; }
    [[nodiscard]] bool is_string() const { return kind() == Kind::string; }
    [[nodiscard]] bool is_array() const { return kind() == Kind::array; }
    [[nodiscard]] bool is_object() const { return kind() == Kind::object; }

    // The content, or the empty one where the value is of another kind.
    [[nodiscard]] bool as_boolean() const { return is_boolean() && integer_ != 0; }
    [[nodiscard]] double as_real() const {
        return kind() == Kind::real ? real_ : kind() == Kind::integer ? static_cast<double>(integer_) : 0.0;
    }
    [[nodiscard]] std::string_view as_string() const {
        return is_string() ? std::string_view{text_, size_} : std::string_view{};
    }
    [[nodiscard]] std::span<const JsonValue> elements() const {
        return is_array() ? std::span<const JsonValue>{elements_, size_} : std::span<const JsonValue>{};
    }
    [[nodiscard]] std::span<const JsonMember> members() const;
    [[nodiscard]] std::int32_t as_int32() const {  // only for Kind::integer
        return static_cast<std::int32_t>(integer_);
    }

    // The member of that name, or null where there is none or this is no object. O(log members).
    [[nodiscard]] const JsonValue* find(std::string_view key) const;

   private:
    constexpr JsonValue(Kind kind, std::int64_t integer)
        : kind_(static_cast<std::uint8_t>(kind)), size_(0), integer_(integer) {}

    static constexpr std::uint64_t largest_size = (std::uint64_t{1} << 56) - 1;

    std::uint64_t kind_ : 8;
    std::uint64_t size_ : 56;
    union {
        std::int64_t integer_;
        double real_;
        const char* text_;
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
    return is_object() ? std::span<const JsonMember>{members_, size_} : std::span<const JsonMember>{};
}

}  // namespace libzentadbpp
