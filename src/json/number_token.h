#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <system_error>

namespace libzentadbpp {

// A number as written in a JSON text.
struct NumberToken {
    enum class Fault : std::uint8_t { none, no_digit, leading_zero, no_fraction_digit, no_exponent_digit };

    // A whole number of more characters is read as a real one.
    static constexpr std::size_t longest_integer = 9;

    std::string_view text;  // with a fault, it ends there
    Fault fault = Fault::none;
    bool whole = true;  // has no point and no exponent

    [[nodiscard]] bool is_integer() const { return whole && text.size() <= longest_integer; }
    // Whether the writer writes an integer so. Of the real numbers it writes only minus zero as "-0".
    [[nodiscard]] bool is_written_integer() const {
        if (!whole || text == "-0") return false;
        std::int32_t value = 0;
        return text.size() <= longest_integer ||
               std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc();
    }
};

// The number that begins at `begin`.
[[nodiscard]] inline NumberToken scan_number(const char* begin, const char* end) {
    const char* p = begin;
    const auto digit_here = [&] { return p != end && static_cast<unsigned char>(*p - '0') < 10; };
    const auto skip_digits = [&] {
        while (digit_here()) ++p;
    };
    const auto token = [&](NumberToken::Fault fault, bool whole) {
        return NumberToken{{begin, static_cast<std::size_t>(p - begin)}, fault, whole};
    };

    if (p != end && *p == '-') ++p;
    if (!digit_here()) return token(NumberToken::Fault::no_digit, true);
    if (*p == '0') {
        ++p;
        if (digit_here()) return token(NumberToken::Fault::leading_zero, true);
    } else {
        skip_digits();
    }
    bool whole = true;
    if (p != end && *p == '.') {
        whole = false;
        ++p;
        if (!digit_here()) return token(NumberToken::Fault::no_fraction_digit, false);
        skip_digits();
    }
    if (p != end && (*p == 'e' || *p == 'E')) {
        whole = false;
        ++p;
        if (p != end && (*p == '+' || *p == '-')) ++p;
        if (!digit_here()) return token(NumberToken::Fault::no_exponent_digit, false);
        skip_digits();
    }
    return token(NumberToken::Fault::none, whole);
}

}  // namespace libzentadbpp
