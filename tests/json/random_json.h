#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "json/parser.h"
#include "json/value.h"
#include "memory/arena.h"

namespace libzentadbpp::testing_json {

// Values and damaged texts that lean to what readers and writers get wrong. Everything follows from the seed.
class RandomJson {
   public:
    RandomJson(std::uint64_t seed, Arena& arena) : random_(seed), arena_(&arena) {}

    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(random_() % limit); }

    double real() {
        constexpr std::array special = {0.0, -0.0, 1.0, 0.1, 1e21, 1e-7, 1e100, 123456789012345680000.0, 5e-324, 0.3};
        switch (below(4)) {
            case 0:
                return special[below(special.size())];
            case 1:
                return static_cast<double>(random_()) / 65536.0;
            case 2:
                return static_cast<double>(random_() % 2000000) / 1000.0 - 1000.0;
            default:
                return std::bit_cast<double>(random_() & 0xffdfffffffffffff);  // never infinite or no number
        }
    }

    std::string_view string() {
        constexpr std::array<std::string_view, 12> pieces = {
            "a",        "key",          "\"", "\\",   "\xe2\x80\xa8", "\xe2\x80\xa9",
            "\xe2\x80", "\xe2\x80\x99", "/",  "\x7f", "\xc3\xa9",     "plain text of some length, "};
        std::string text;
        for (std::size_t i = below(6); i > 0; --i) {
            if (below(4) == 0) {
                text.push_back(static_cast<char>(below(256)));
            } else {
                text += pieces[below(pieces.size())];
            }
        }
        return arena_->copy(std::string_view(text));
    }

    JsonValue value(int levels = 4) {
        switch (below(levels > 0 ? 8 : 5)) {
            case 0:
                return {};
            case 1:
                return JsonValue::boolean(below(2) == 0);
            case 2:  // integers are those that read as integers: of at most nine characters
                return JsonValue::integer(static_cast<std::int32_t>(below(below(2) == 0 ? 100 : 1000000000)));
            case 3:
                return JsonValue::real(real());
            case 4:
                return JsonValue::string(string());
            case 5:
            case 6: {
                std::vector<JsonMember> members;
                for (std::size_t i = below(6); i > 0; --i) members.push_back({string(), value(levels - 1)});
                return JsonValue::object(arena_->copy(std::span<const JsonMember>(settle_members(members))));
            }
            default: {
                std::vector<JsonValue> elements;
                for (std::size_t i = below(6); i > 0; --i) elements.push_back(value(levels - 1));
                return JsonValue::array(arena_->copy(std::span<const JsonValue>(elements)));
            }
        }
    }

    // A text with one to three small changes.
    std::string damaged(std::string text) {
        constexpr std::array<std::string_view, 24> pieces = {
            " ",  ",",       "\"",      "\\",           "[",   "]",  "{",  "}",  ":",    "0",   "-",     "1e5",
            ".5", "\\u00e9", "\\u0041", "\xe2\x80\xa8", "\\/", ", ", "\n", "00", "null", "x@l", "1e999", "\\u2028"};
        for (std::size_t i = 1 + below(3); i > 0; --i) {
            const std::size_t at = below(text.size() + 1);
            switch (below(4)) {
                case 0:
                    text.insert(at, pieces[below(pieces.size())]);
                    break;
                case 1:
                    text.erase(at, 1 + below(3));
                    break;
                case 2:
                    if (at < text.size()) text[at] = static_cast<char>(below(256));
                    break;
                default:
                    text.replace(at, std::min<std::size_t>(1, text.size() - at), pieces[below(pieces.size())]);
            }
        }
        return text;
    }

   private:
    std::mt19937_64 random_;
    Arena* arena_;
};

// A copy in memory of just its size, so that a look behind its end is seen by the address sanitizer.
inline std::vector<char> exact_copy(std::string_view text) { return {text.begin(), text.end()}; }
inline std::string_view view(const std::vector<char>& text) { return {text.data(), text.size()}; }

// Minus zero is the one text that is not read as what was written: as a real number it is written "-0", which reads
// as the integer 0.
inline bool may_hold_minus_zero(std::string_view text) {
    for (std::size_t at = text.find("-0"); at != std::string_view::npos; at = text.find("-0", at + 1)) {
        if (at + 2 == text.size() || std::string_view(".eE0123456789").find(text[at + 2]) == std::string_view::npos) {
            return true;
        }
    }
    return false;
}

}  // namespace libzentadbpp::testing_json
