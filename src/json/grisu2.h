#pragma once

namespace libzentadbpp {

inline constexpr int most_shortest_digits = 17;

struct ShortestDigits {
    int count;
    int exponent;  // the value is the digits, read as a whole number, times ten to this
};

// Writes the digits that Grisu2 finds for a positive finite value: they read back as the value and are nearly always
// the fewest that do. Texts are hashed, so the choice is part of the format, even if it is not the shortest: no other
// algorithm may replace it.
ShortestDigits grisu2_digits(double value, char* digits);

}  // namespace libzentadbpp
