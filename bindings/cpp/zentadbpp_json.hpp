// zentadbpp_json.hpp: JSON as a tree, for the functions of zentadbpp.hpp that look into texts. It reads texts that the
// library has read or written, in either form, and writes as the library does. Numbers keep their digits.

#ifndef ZENTADBPP_JSON_HPP
#define ZENTADBPP_JSON_HPP

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zentadbpp {

struct Json {
    // An unknown value equals nothing. A reference is a text that only the writer understands; it equals the same text.
    enum class Kind { null, boolean, number, string, array, object, reference, unknown };

    Kind kind = Kind::null;
    std::string text;               // a boolean or a number as written; a string decoded
    std::vector<std::string> keys;  // of an object, ascending, each once
    std::vector<Json> items;        // the elements of an array; the values of an object, one for each key

    static Json of(std::string string) { return {Kind::string, std::move(string), {}, {}}; }
    static Json boolean(bool value) { return {Kind::boolean, value ? "true" : "false", {}, {}}; }
    static Json array(std::vector<Json> elements = {}) { return {Kind::array, {}, {}, std::move(elements)}; }
    static Json object() { return {Kind::object, {}, {}, {}}; }

    bool is_object() const { return kind == Kind::object; }
    bool is_array() const { return kind == Kind::array; }
    bool is_string() const { return kind == Kind::string; }

    // The value of a member; null if there is none.
    const Json* find(std::string_view key) const {
        const auto place = std::lower_bound(keys.begin(), keys.end(), key);
        return place == keys.end() || *place != key ? nullptr : &items[static_cast<std::size_t>(place - keys.begin())];
    }

    void set(std::string_view key, Json value) {
        const auto place = std::lower_bound(keys.begin(), keys.end(), key);
        const auto item = items.begin() + (place - keys.begin());
        if (place != keys.end() && *place == key) {
            *item = std::move(value);
        } else {
            items.insert(item, std::move(value));
            keys.insert(place, std::string(key));
        }
    }

    // The id of an object; empty if it has none.
    std::string_view id() const {
        const Json* own = is_object() ? find("_id") : nullptr;
        return own != nullptr && own->is_string() ? std::string_view(own->text) : std::string_view();
    }

    std::string dump() const {
        std::string out;
        write(out);
        return out;
    }

    static Json parse(std::string_view text);

   private:
    static void write_string(std::string& out, std::string_view string) {
        static constexpr std::string_view short_escapes = "\b\f\n\r\t";
        out += '"';
        for (std::size_t at = 0; at < string.size(); ++at) {
            const char c = string[at];
            const std::size_t escape = short_escapes.find(c);
            if (c == '"' || c == '\\') {
                (out += '\\') += c;
            } else if (escape != std::string_view::npos) {
                (out += '\\') += "bfnrt"[escape];
            } else if (static_cast<unsigned char>(c) < 0x20) {
                const auto byte = static_cast<unsigned char>(c);
                ((out += "\\u00") += "01"[byte >> 4]) += "0123456789abcdef"[byte & 15];
            } else if (const std::string_view three = string.substr(at, 3);
                       three == "\xe2\x80\xa8" || three == "\xe2\x80\xa9") {
                out += three[2] == '\xa8' ? "\\u2028" : "\\u2029";
                at += 2;
            } else {
                out += c;
            }
        }
        out += '"';
    }

    void write(std::string& out) const {
        switch (kind) {
            case Kind::null:
            case Kind::unknown:
                out += "null";
                break;
            case Kind::boolean:
            case Kind::number:
                out += text;
                break;
            case Kind::string:
            case Kind::reference:
                write_string(out, text);
                break;
            case Kind::array:
            case Kind::object:
                out += is_array() ? '[' : '{';
                for (std::size_t at = 0; at < items.size(); ++at) {
                    if (at != 0) out += ", ";
                    if (is_object()) write_string(out, keys[at]);
                    if (is_object()) out += ": ";
                    items[at].write(out);
                }
                out += is_array() ? ']' : '}';
        }
    }
};

inline bool operator==(const Json& a, const Json& b) {
    return a.kind == b.kind && a.kind != Json::Kind::unknown && a.text == b.text && a.keys == b.keys &&
           a.items == b.items;
}

// One step of a place in data, in the syntax of jq: ".name" or "["two words"]".
inline std::string member_step(const std::string& key) {
    static constexpr std::string_view plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_0123456789";
    const bool is_plain = !key.empty() && (key[0] < '0' || key[0] > '9') && key.find_first_not_of(plain) == key.npos;
    return is_plain ? "." + key : "[" + Json::of(key).dump() + "]";
}
inline std::string element_step(std::size_t position) { return "[" + std::to_string(position) + "]"; }

namespace detail {

class JsonReader {
   public:
    explicit JsonReader(std::string_view text) : text_(text) {}

    Json all() {
        skip_space();
        return peek() == '@' ? compact(0) : standard(0);
    }

   private:
    // Contents may nest deeper than data.
    static constexpr int deepest = 520;

    // The library has read the text, so this never happens; in any case nothing beyond the text is read.
    [[noreturn]] static void fail() { throw std::invalid_argument("malformed JSON"); }

    char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }
    char next() {
        if (at_ >= text_.size()) fail();
        return text_[at_++];
    }
    bool take(char c) {
        if (peek() != c || at_ >= text_.size()) return false;
        ++at_;
        return true;
    }
    std::string_view piece(std::size_t size) {
        if (size > text_.size() - at_) fail();
        at_ += size;
        return text_.substr(at_ - size, size);
    }
    void skip_space() {
        while (at_ < text_.size() && std::string_view(" \t\r\n").find(text_[at_]) != std::string_view::npos) ++at_;
    }

    Json standard(int depth) {
        if (depth > deepest) fail();
        skip_space();
        const char first = peek();
        if (first == '"') return Json::of(string());
        if (first == '[') {
            Json array = Json::array();
            for_each_until(']', [&] { array.items.push_back(standard(depth + 1)); });
            return array;
        }
        if (first == '{') {
            std::vector<std::pair<std::string, Json>> members;
            for_each_until('}', [&] {
                skip_space();
                std::string key = string();
                skip_space();
                if (!take(':')) fail();
                members.emplace_back(std::move(key), standard(depth + 1));
            });
            return object(std::move(members));
        }
        return token(text_.substr(at_, text_.find_first_of(",]} \t\r\n", at_) - at_));
    }

    template <typename Item>
    void for_each_until(char end, const Item& item) {
        ++at_;
        skip_space();
        if (take(end)) return;
        do {
            item();
            skip_space();
        } while (take(','));
        if (!take(end)) fail();
    }

    Json token(std::string_view word) {
        piece(word.size());
        if (word == "null") return {};
        if (word == "true" || word == "false") return Json::boolean(word == "true");
        if (word.empty()) fail();
        return {Json::Kind::number, std::string(word), {}, {}};
    }

    // If a key occurs several times, the last member counts.
    static Json object(std::vector<std::pair<std::string, Json>> members) {
        std::stable_sort(members.begin(), members.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        Json object = Json::object();
        for (auto& [key, value] : members) {
            if (!object.keys.empty() && object.keys.back() == key) {
                object.items.back() = std::move(value);
            } else {
                object.keys.push_back(std::move(key));
                object.items.push_back(std::move(value));
            }
        }
        return object;
    }

    std::string string() {
        if (!take('"')) fail();
        std::string out;
        for (;;) {
            const std::size_t plain = std::min(text_.find_first_of("\"\\", at_), text_.size());
            out += piece(plain - at_);
            if (next() == '"') return out;
            const char escape = next();
            static constexpr std::string_view names = "bfnrt";
            if (escape == 'u') {
                append_utf8(out, code_point());
            } else if (const std::size_t found = names.find(escape); found != std::string_view::npos) {
                out += "\b\f\n\r\t"[found];
            } else {
                out += escape;
            }
        }
    }

    unsigned hex() {
        unsigned value = 0;
        for (const char digit : piece(4)) {
            const std::size_t number = std::string_view("0123456789abcdefABCDEF").find(digit);
            if (number == std::string_view::npos) fail();
            value = value * 16 + static_cast<unsigned>(number < 16 ? number : number - 6);
        }
        return value;
    }

    unsigned code_point() {
        const unsigned first = hex();
        if (first < 0xd800 || first > 0xdbff || text_.substr(at_, 2) != "\\u") return first;
        const std::size_t before = at_;
        at_ += 2;
        const unsigned second = hex();
        if (second >= 0xdc00 && second <= 0xdfff) return 0x10000 + ((first - 0xd800) << 10) + (second - 0xdc00);
        at_ = before;
        return first;
    }

    static void append_utf8(std::string& out, unsigned code) {
        const auto add = [&](unsigned byte) { out += static_cast<char>(byte); };
        if (code < 0x80) return add(code);
        if (code < 0x800) {
            add(0xc0 | (code >> 6));
        } else {
            if (code < 0x10000) {
                add(0xe0 | (code >> 12));
            } else {
                add(0xf0 | (code >> 18));
                add(0x80 | ((code >> 12) & 0x3f));
            }
            add(0x80 | ((code >> 6) & 0x3f));
        }
        add(0x80 | (code & 0x3f));
    }

    // The form in which its length precedes every string.
    Json compact(int depth) {
        if (depth > deepest || !take('@')) fail();
        switch (peek()) {
            case 'N':
                return ++at_, Json();
            case 'T':
            case 'F':
                return Json::boolean(next() == 'T');
            case 'i':
            case 'f': {
                ++at_;
                const std::size_t end = std::min(text_.find('x', at_), text_.size());
                Json number = token(text_.substr(at_, end - at_));
                next();
                return number;
            }
            case 'l': {
                ++at_;
                Json array = Json::array();
                while (!take('x')) array.items.push_back(compact(depth + 1));
                return array;
            }
            case 'd': {
                ++at_;
                std::vector<std::pair<std::string, Json>> members;
                while (!take('x')) {
                    std::string key = counted();
                    members.emplace_back(std::move(key), compact(depth + 1));
                }
                return object(std::move(members));
            }
            default:
                return Json::of(counted());
        }
    }

    std::string counted() {
        std::size_t size = 0;
        for (char c = next(); c != ':'; c = next()) {
            if (c < '0' || c > '9' || size > text_.size()) fail();
            size = size * 10 + static_cast<std::size_t>(c - '0');
        }
        return std::string(piece(size));
    }

    std::string_view text_;
    std::size_t at_ = 0;
};

}  // namespace detail

inline Json Json::parse(std::string_view text) { return detail::JsonReader(text).all(); }

}  // namespace zentadbpp

#endif
