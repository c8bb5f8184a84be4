// What the C++ library of Debian's emscripten lacks of C++20 and this library uses. Included before every source.
// Algorithms take whole ranges only; what they leave out of the standard is not used here.
#pragma once

#ifdef __cplusplus

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <ranges>
#include <string>
#include <utility>

namespace std {

template <class To, class From>
[[nodiscard]] constexpr To bit_cast(const From& from) noexcept {
    return __builtin_bit_cast(To, from);
}

template <class T>
[[nodiscard]] unique_ptr<T> make_unique_for_overwrite(size_t size) {
    return unique_ptr<T>(new remove_extent_t<T>[size]);
}

template <class T>
[[nodiscard]] shared_ptr<T> make_shared_for_overwrite(size_t size) {
    return shared_ptr<T>(new remove_extent_t<T>[size]);
}

// The C library here knows only the C locale.
inline to_chars_result to_chars(char* first, char* last, double value, chars_format format, int precision) {
    char text[400];  // the longest number without an exponent has 309 digits
    const int size = snprintf(text, sizeof text, format == chars_format::fixed ? "%.*f" : "%.*g", precision, value);
    if (last - first < size) return {last, errc::value_too_large};
    memcpy(first, text, static_cast<size_t>(size));
    return {first + size, errc{}};
}

inline from_chars_result from_chars(const char* first, const char* last, double& value) {
    char short_copy[64];
    string long_copy;
    const auto size = static_cast<size_t>(last - first);
    const char* text = short_copy;
    if (size < sizeof short_copy) {
        memcpy(short_copy, first, size);
        short_copy[size] = '\0';
    } else {
        long_copy.assign(first, size);
        text = long_copy.c_str();
    }
    char* end = nullptr;
    const double found = strtod(text, &end);
    if (end == text) return {first, errc::invalid_argument};
    const char* const stop = first + (end - text);
    const bool is_zero = found == 0 && string_view(text, static_cast<size_t>(end - text)).find_first_of("123456789") <
                                           string_view(text).find_first_of("eE");
    if (isinf(found) || is_zero) return {stop, errc::result_out_of_range};
    value = found;
    return {stop, errc{}};
}

namespace ranges {

template <class In, class Out>
struct in_out {
    In in;
    Out out;
};

namespace missing {

// Compares what two projections make of two values.
template <class Compare, class Left, class Right>
auto projected(Compare& compare, Left& left, Right& right) {
    return [&](auto&& a, auto&& b) -> bool {
        return std::invoke(compare, std::invoke(left, std::forward<decltype(a)>(a)),
                           std::invoke(right, std::forward<decltype(b)>(b)));
    };
}

template <class Test, class Projection>
auto tested(Test& test, Projection& projection) {
    return [&](auto&& value) -> bool {
        return std::invoke(test, std::invoke(projection, std::forward<decltype(value)>(value)));
    };
}

// Both halves are sorted, the first one is put aside, and the two are merged. Stable, and so of use for both sorts;
// those of the C++ library come to a tenth of the module.
template <class Iterator, class Compare>
void merge_sort(Iterator first, Iterator last, iter_value_t<Iterator>* aside, Compare& compare) {
    constexpr int few = 12;
    if (last - first <= few) {
        for (Iterator next = first; next != last; ++next) {
            iter_value_t<Iterator> value = std::move(*next);
            Iterator at = next;
            for (; at != first && compare(value, *(at - 1)); --at) *at = std::move(*(at - 1));
            *at = std::move(value);
        }
        return;
    }
    const Iterator middle = first + (last - first) / 2;
    merge_sort(first, middle, aside, compare);
    merge_sort(middle, last, aside, compare);
    if (!compare(*middle, *(middle - 1))) return;
    iter_value_t<Iterator>* const aside_end = std::move(first, middle, aside);
    Iterator right = middle;
    for (Iterator out = first; aside != aside_end; ++out) {
        const bool is_right = right != last && compare(*right, *aside);
        *out = is_right ? std::move(*right++) : std::move(*aside++);
    }
}

template <class Iterator, class Compare>
void sort(Iterator first, Iterator last, Compare compare) {
    const auto half = make_unique_for_overwrite<iter_value_t<Iterator>[]>(static_cast<size_t>(last - first) / 2);
    merge_sort(first, last, half.get(), compare);
}

}  // namespace missing

template <class Range, class Out>
auto copy(Range&& range, Out out) {
    return in_out<decltype(std::end(range)), Out>{std::end(range), std::copy(std::begin(range), std::end(range), out)};
}

template <class Range, class Out, class Make>
auto transform(Range&& range, Out out, Make make) {
    return in_out<decltype(std::end(range)), Out>{std::end(range),
                                                  std::transform(std::begin(range), std::end(range), out, make)};
}

template <class Range>
auto reverse(Range&& range) {
    std::reverse(std::begin(range), std::end(range));
    return std::end(range);
}

template <class Range, class Compare = std::less<>, class Projection = identity>
auto sort(Range&& range, Compare compare = {}, Projection projection = {}) {
    missing::sort(std::begin(range), std::end(range), missing::projected(compare, projection, projection));
    return std::end(range);
}

template <class Range, class Compare = std::less<>, class Projection = identity>
auto stable_sort(Range&& range, Compare compare = {}, Projection projection = {}) {
    missing::sort(std::begin(range), std::end(range), missing::projected(compare, projection, projection));
    return std::end(range);
}

template <class Iterator, class Compare = std::less<>, class Projection = identity>
requires(input_or_output_iterator<Iterator>) auto stable_sort(Iterator first, Iterator last, Compare compare = {},
                                                              Projection projection = {}) {
    missing::sort(first, last, missing::projected(compare, projection, projection));
    return last;
}

template <class Range, class Compare = std::less<>, class Projection = identity>
bool is_sorted(Range&& range, Compare compare = {}, Projection projection = {}) {
    return std::is_sorted(std::begin(range), std::end(range), missing::projected(compare, projection, projection));
}

template <class Range, class T, class Compare = std::less<>, class Projection = identity>
auto lower_bound(Range&& range, const T& value, Compare compare = {}, Projection projection = {}) {
    identity same;
    return std::lower_bound(std::begin(range), std::end(range), value, missing::projected(compare, projection, same));
}

template <class Range, class T, class Compare = std::less<>, class Projection = identity>
auto upper_bound(Range&& range, const T& value, Compare compare = {}, Projection projection = {}) {
    identity same;
    return std::upper_bound(std::begin(range), std::end(range), value, missing::projected(compare, same, projection));
}

template <class Range, class T, class Compare = std::less<>, class Projection = identity>
auto equal_range(Range&& range, const T& value, Compare compare = {}, Projection projection = {}) {
    return subrange(ranges::lower_bound(range, value, compare, projection),
                    ranges::upper_bound(range, value, compare, projection));
}

template <class Range, class T, class Compare = std::less<>, class Projection = identity>
bool binary_search(Range&& range, const T& value, Compare compare = {}, Projection projection = {}) {
    const auto at = ranges::lower_bound(range, value, compare, projection);
    return at != std::end(range) && !std::invoke(compare, value, std::invoke(projection, *at));
}

template <class Range, class Compare = std::less<>, class Projection = identity>
auto max_element(Range&& range, Compare compare = {}, Projection projection = {}) {
    return std::max_element(std::begin(range), std::end(range), missing::projected(compare, projection, projection));
}

template <class Range, class Compare = std::less<>, class Projection = identity>
auto min_element(Range&& range, Compare compare = {}, Projection projection = {}) {
    return std::min_element(std::begin(range), std::end(range), missing::projected(compare, projection, projection));
}

template <class Range, class Test, class Projection = identity>
auto find_if(Range&& range, Test test, Projection projection = {}) {
    return std::find_if(std::begin(range), std::end(range), missing::tested(test, projection));
}

template <class Range, class Test, class Projection = identity>
auto find_if_not(Range&& range, Test test, Projection projection = {}) {
    return std::find_if_not(std::begin(range), std::end(range), missing::tested(test, projection));
}

template <class Range, class T, class Projection = identity>
auto find(Range&& range, const T& value, Projection projection = {}) {
    return ranges::find_if(
        range, [&](const auto& each) { return each == value; }, projection);
}

template <class Range, class Test = std::equal_to<>, class Projection = identity>
auto adjacent_find(Range&& range, Test test = {}, Projection projection = {}) {
    return std::adjacent_find(std::begin(range), std::end(range), missing::projected(test, projection, projection));
}

template <class Range, class Test, class Projection = identity>
bool all_of(Range&& range, Test test, Projection projection = {}) {
    return std::all_of(std::begin(range), std::end(range), missing::tested(test, projection));
}

template <class Range, class Test, class Projection = identity>
bool any_of(Range&& range, Test test, Projection projection = {}) {
    return std::any_of(std::begin(range), std::end(range), missing::tested(test, projection));
}

template <class Range, class Test, class Projection = identity>
bool none_of(Range&& range, Test test, Projection projection = {}) {
    return std::none_of(std::begin(range), std::end(range), missing::tested(test, projection));
}

template <class Range, class Test, class Projection = identity>
auto count_if(Range&& range, Test test, Projection projection = {}) {
    return std::count_if(std::begin(range), std::end(range), missing::tested(test, projection));
}

template <class Range, class T, class Projection = identity>
auto count(Range&& range, const T& value, Projection projection = {}) {
    return ranges::count_if(
        range, [&](const auto& each) { return each == value; }, projection);
}

template <class Range, class Function>
void for_each(Range&& range, Function function) {
    std::for_each(std::begin(range), std::end(range), function);
}

template <class Left, class Right>
bool equal(Left&& left, Right&& right) {
    return std::equal(std::begin(left), std::end(left), std::begin(right), std::end(right));
}

}  // namespace ranges
}  // namespace std

#endif
