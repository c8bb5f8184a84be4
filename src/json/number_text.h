#pragma once

#include <cstdint>
#include <string_view>

namespace libzentadbpp {

inline constexpr std::size_t longest_number = 32;

// Write a number at `out`, which has room for longest_number bytes, and return the end. Independent of the C locale.
char* write_integer(std::int64_t value, char* out);
// 17 significant digits, as "%.17g" gives in the C locale. `value` is finite.
char* write_real_17(double value, char* out);
// The shortest digits that read back as the value (Grisu2), always with a point or an exponent. `value` is finite.
char* write_real_shortest(double value, char* out);
// Whichever of the two the environment asks for ("USE_FAST_FLOAT").
char* write_real(double value, char* out);

// Reads a text that has the form of a JSON number; infinity if it is too large for a double.
double read_real(std::string_view text);

}  // namespace libzentadbpp
