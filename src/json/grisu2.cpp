#include "json/grisu2.h"

#include <array>
#include <bit>
#include <cstdint>

namespace libzentadbpp {
namespace {

// f times two to the e.
struct DiyFp {
    std::uint64_t f;
    int e;
};

DiyFp operator*(DiyFp a, DiyFp b) {
    constexpr std::uint64_t low = 0xffffffff;
    const std::uint64_t high_low = (a.f >> 32) * (b.f & low);
    const std::uint64_t low_high = (a.f & low) * (b.f >> 32);
    std::uint64_t middle = ((a.f & low) * (b.f & low) >> 32) + (high_low & low) + (low_high & low);
    middle += std::uint64_t{1} << 31;  // rounds
    return {(a.f >> 32) * (b.f >> 32) + (high_low >> 32) + (low_high >> 32) + (middle >> 32), a.e + b.e + 64};
}

DiyFp normalized(DiyFp value) {
    const int shift = std::countl_zero(value.f);
    return {value.f << shift, value.e - shift};
}

constexpr int first_cached_exponent = -348;

// The upper 64 bits, rounded to nearest, of ten to the -348, -340, ..., 340.
constexpr std::array<std::uint64_t, 87> cached_powers = {
    0xfa8fd5a0081c0288, 0xbaaee17fa23ebf76, 0x8b16fb203055ac76, 0xcf42894a5dce35ea, 0x9a6bb0aa55653b2d,
    0xe61acf033d1a45df, 0xab70fe17c79ac6ca, 0xff77b1fcbebcdc4f, 0xbe5691ef416bd60c, 0x8dd01fad907ffc3c,
    0xd3515c2831559a83, 0x9d71ac8fada6c9b5, 0xea9c227723ee8bcb, 0xaecc49914078536d, 0x823c12795db6ce57,
    0xc21094364dfb5637, 0x9096ea6f3848984f, 0xd77485cb25823ac7, 0xa086cfcd97bf97f4, 0xef340a98172aace5,
    0xb23867fb2a35b28e, 0x84c8d4dfd2c63f3b, 0xc5dd44271ad3cdba, 0x936b9fcebb25c996, 0xdbac6c247d62a584,
    0xa3ab66580d5fdaf6, 0xf3e2f893dec3f126, 0xb5b5ada8aaff80b8, 0x87625f056c7c4a8b, 0xc9bcff6034c13053,
    0x964e858c91ba2655, 0xdff9772470297ebd, 0xa6dfbd9fb8e5b88f, 0xf8a95fcf88747d94, 0xb94470938fa89bcf,
    0x8a08f0f8bf0f156b, 0xcdb02555653131b6, 0x993fe2c6d07b7fac, 0xe45c10c42a2b3b06, 0xaa242499697392d3,
    0xfd87b5f28300ca0e, 0xbce5086492111aeb, 0x8cbccc096f5088cc, 0xd1b71758e219652c, 0x9c40000000000000,
    0xe8d4a51000000000, 0xad78ebc5ac620000, 0x813f3978f8940984, 0xc097ce7bc90715b3, 0x8f7e32ce7bea5c70,
    0xd5d238a4abe98068, 0x9f4f2726179a2245, 0xed63a231d4c4fb27, 0xb0de65388cc8ada8, 0x83c7088e1aab65db,
    0xc45d1df942711d9a, 0x924d692ca61be758, 0xda01ee641a708dea, 0xa26da3999aef774a, 0xf209787bb47d6b85,
    0xb454e4a179dd1877, 0x865b86925b9bc5c2, 0xc83553c5c8965d3d, 0x952ab45cfa97a0b3, 0xde469fbd99a05fe3,
    0xa59bc234db398c25, 0xf6c69a72a3989f5c, 0xb7dcbf5354e9bece, 0x88fcf317f22241e2, 0xcc20ce9bd35c78a5,
    0x98165af37b2153df, 0xe2a0b5dc971f303a, 0xa8d9d1535ce3b396, 0xfb9b7cd9a4a7443c, 0xbb764c4ca7a44410,
    0x8bab8eefb6409c1a, 0xd01fef10a657842c, 0x9b10a4e5e9913129, 0xe7109bfba19c0c9d, 0xac2820d9623bf429,
    0x80444b5e7aa7cf85, 0xbf21e44003acdd2d, 0x8e679c2f5e44ff8f, 0xd433179d9c8cb841, 0x9e19db92b4e31ba9,
    0xeb96bf6ebadf77d9, 0xaf87023b9bf0ee6b,
};

struct CachedPower {
    DiyFp value;
    int exponent;
};

// The power that brings a value of binary exponent `e` to one from -60 to -32.
CachedPower cached_power(int e) {
    const double estimate = (-61 - e) * 0.30102999566398114 + 347;
    int k = static_cast<int>(estimate);
    if (estimate > k) ++k;
    const int index = (k >> 3) + 1;
    const int exponent = first_cached_exponent + index * 8;
    // The fraction is log2(10), near enough for every exponent of the table.
    const int binary_exponent = ((exponent * 1741647) >> 19) - 63;
    return {{cached_powers[static_cast<std::size_t>(index)], binary_exponent}, exponent};
}

// Brings the last digit nearer to the value as long as the digits stay inside the interval.
void round_last_digit(char& last, std::uint64_t delta, std::uint64_t rest, std::uint64_t unit, std::uint64_t distance) {
    while (rest < distance && delta - rest >= unit &&
           (rest + unit < distance || distance - rest > rest + unit - distance)) {
        --last;
        rest += unit;
    }
}

constexpr std::array<std::uint32_t, 10> powers_of_ten = {1,      10,      100,      1000,      10000,
                                                         100000, 1000000, 10000000, 100000000, 1000000000};

// The digits of the number in [upper - delta, upper] that has the fewest and is nearest to `value`; its exponent is
// counted from that of the three.
ShortestDigits generate_digits(DiyFp value, DiyFp upper, std::uint64_t delta, char* digits) {
    const int fraction_bits = -upper.e;
    const std::uint64_t one = std::uint64_t{1} << fraction_bits;
    std::uint64_t distance = upper.f - value.f;
    auto whole = static_cast<std::uint32_t>(upper.f >> fraction_bits);
    std::uint64_t fraction = upper.f & (one - 1);
    int count = 0;

    int kappa = 10;
    while (kappa > 1 && whole < powers_of_ten[static_cast<std::size_t>(kappa - 1)]) --kappa;
    while (kappa > 0) {
        --kappa;
        const std::uint32_t unit = powers_of_ten[static_cast<std::size_t>(kappa)];
        const std::uint32_t digit = whole / unit;
        whole %= unit;
        if (digit != 0 || count != 0) digits[count++] = static_cast<char>('0' + digit);
        const std::uint64_t rest = (static_cast<std::uint64_t>(whole) << fraction_bits) + fraction;
        if (rest <= delta) {
            round_last_digit(digits[count - 1], delta, rest, static_cast<std::uint64_t>(unit) << fraction_bits,
                             distance);
            return {count, kappa};
        }
    }
    for (;;) {
        fraction *= 10;
        delta *= 10;
        distance *= 10;
        const auto digit = static_cast<char>(fraction >> fraction_bits);
        if (digit != 0 || count != 0) digits[count++] = static_cast<char>('0' + digit);
        fraction &= one - 1;
        --kappa;
        if (fraction < delta) {
            round_last_digit(digits[count - 1], delta, fraction, one, distance);
            return {count, kappa};
        }
    }
}

}  // namespace

ShortestDigits grisu2_digits(double value, char* digits) {
    constexpr int significand_bits = 52;
    constexpr std::uint64_t hidden_bit = std::uint64_t{1} << significand_bits;
    const auto bits = std::bit_cast<std::uint64_t>(value);
    const int biased_exponent = static_cast<int>(bits >> significand_bits) & 0x7ff;
    const std::uint64_t significand = bits & (hidden_bit - 1);
    const DiyFp exact =
        biased_exponent != 0 ? DiyFp{significand | hidden_bit, biased_exponent - 1075} : DiyFp{significand, -1074};

    // Half way to the neighbours. Below a power of two they lie closer together.
    const DiyFp upper = normalized({exact.f * 2 + 1, exact.e - 1});
    DiyFp lower = exact.f == hidden_bit ? DiyFp{exact.f * 4 - 1, exact.e - 2} : DiyFp{exact.f * 2 - 1, exact.e - 1};
    lower = {lower.f << (lower.e - upper.e), upper.e};

    const CachedPower power = cached_power(upper.e);
    const DiyFp scaled = normalized(exact) * power.value;
    DiyFp scaled_upper = upper * power.value;
    DiyFp scaled_lower = lower * power.value;
    // The products may be off by one unit: the narrower interval is safe.
    --scaled_upper.f;
    ++scaled_lower.f;
    ShortestDigits result = generate_digits(scaled, scaled_upper, scaled_upper.f - scaled_lower.f, digits);
    result.exponent -= power.exponent;
    return result;
}

}  // namespace libzentadbpp
