#include "json/number_text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <system_error>

#include "json/environment.h"
#include "json/grisu2.h"

namespace libzentadbpp {
namespace {

char* put(const char* text, int size, char* out) {
    std::memcpy(out, text, static_cast<std::size_t>(size));
    return out + size;
}

char* put_zeros(int count, char* out) { return std::fill_n(out, count, '0'); }

// Whether a number that no double can hold is too large rather than too small.
bool is_too_large(std::string_view text) {
    const std::size_t exponent_mark = text.find_first_of("eE");
    const std::string_view mantissa = text.substr(0, exponent_mark);
    std::int64_t exponent = 0;
    if (exponent_mark != std::string_view::npos) {
        std::string_view digits = text.substr(exponent_mark + 1);
        if (digits.front() == '+') digits.remove_prefix(1);
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), exponent);
        if (error == std::errc::result_out_of_range) return digits.front() != '-';
    }
    // The place of the first digit that is not zero, relative to the point: 1 for units, 0 for tenths.
    const std::size_t first_digit = mantissa.find_first_of("123456789");
    const std::size_t point = std::min(mantissa.find('.'), mantissa.size());
    std::int64_t place = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first_digit);
    if (place < 0) ++place;
    return exponent > -place;
}

}  // namespace

char* write_integer(std::int64_t value, char* out) { return std::to_chars(out, out + longest_number, value).ptr; }

char* write_real_17(double value, char* out) {
    return std::to_chars(out, out + longest_number, value, std::chars_format::general, 17).ptr;
}

char* write_real_shortest(double value, char* out) {
    if (value == 0) return put("0.0", 3, out);
    if (value < 0) *out++ = '-';
    char digits[most_shortest_digits + 3];
    const auto [count, exponent] = grisu2_digits(std::abs(value), digits);
    const int point = count + exponent;  // the digits before it

    if (exponent >= 0 && point <= 21) {
        out = put_zeros(exponent, put(digits, count, out));
        return put(".0", 2, out);
    }
    if (point > 0 && point <= 21) {
        out = put(digits, point, out);
        *out++ = '.';
        return put(digits + point, count - point, out);
    }
    if (point > -6 && point <= 0) {
        out = put_zeros(-point, put("0.", 2, out));
        return put(digits, count, out);
    }
    *out++ = digits[0];
    if (count > 1) {
        *out++ = '.';
        out = put(digits + 1, count - 1, out);
    }
    *out++ = 'e';
    return write_integer(point - 1, out);
}

char* write_real(double value, char* out) {
    return fast_float_enabled() ? write_real_shortest(value, out) : write_real_17(value, out);
}

double read_real(std::string_view text) {
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc::result_out_of_range) return value;
    // What is in `value` now differs between libraries.
    const double magnitude = is_too_large(text) ? std::numeric_limits<double>::infinity() : 0.0;
    return text.front() == '-' ? -magnitude : magnitude;
}

}  // namespace libzentadbpp
