// zentadbpp_verify.hpp: finds contents that do not hash to their names. The library does not verify names, because
// servers name contents in other ways. So a sender can put a false content under a hash that another copy will use
// later; the false content is then there first, and stays. If you merge texts from untrusted sources, call `verify`
// first.
//
//     if (!zentadbpp::verify(received, stored).empty()) refuse(received);
//     stored = zentadbpp::replicate(received, stored).str();
//
// Unlike zentadbpp.hpp, this header needs xxHash and OpenSSL's libcrypto: link with -lxxhash and -lcrypto.

#ifndef ZENTADBPP_VERIFY_HPP
#define ZENTADBPP_VERIFY_HPP

#include <openssl/evp.h>
#include <xxhash.h>

#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>
#include <zentadbpp.hpp>

namespace zentadbpp {

// The two hashes by which the library names contents and places.
[[nodiscard]] inline std::string sha256(std::string_view text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (EVP_Digest(text.data(), text.size(), digest, &size, EVP_sha256(), nullptr) != 1) throw std::bad_alloc();
    std::string hex;
    for (unsigned int at = 0; at < size; ++at) {
        hex.push_back("0123456789abcdef"[digest[at] >> 4]);
        hex.push_back("0123456789abcdef"[digest[at] & 15]);
    }
    return hex;
}

[[nodiscard]] inline std::string fast_hash(std::string_view text) {
    constexpr XXH64_hash_t seed = 123456;
    return "x" + std::to_string(XXH64(text.data(), text.size(), seed) & 0xffffffffU);
}

// The kind of hash of a name. The library makes no other kinds; those of servers cannot be verified.
enum class HashKind { sha256, fast, unknown };

[[nodiscard]] inline HashKind hash_kind(std::string_view name) {
    const auto consists_of = [](std::string_view text, std::string_view digits) {
        return !text.empty() && text.find_first_not_of(digits) == std::string_view::npos;
    };
    if (name.size() == 64 && consists_of(name, "0123456789abcdef")) return HashKind::sha256;
    if (name.substr(0, 1) == "x" && consists_of(name.substr(1), "0123456789")) return HashKind::fast;
    return HashKind::unknown;
}

[[nodiscard]] inline std::string hash_of(std::string_view text, HashKind kind) {
    return kind == HashKind::fast ? fast_hash(text) : sha256(text);
}

namespace detail {

// Calls `take(name, content)` for each content in a well-formed sync JSON, both as written.
template <typename Take>
void for_each_content(std::string_view sync_json, const Take& take) {
    std::string_view part, name;
    std::size_t depth = 0;
    std::size_t begin = 0;
    for (std::size_t at = 0; at < sync_json.size(); ++at) {
        const char c = sync_json[at];
        if (c == '"') {
            const std::size_t opened = at++;
            while (at < sync_json.size() && sync_json[at] != '"') at += sync_json[at] == '\\' ? 2 : 1;
            if (depth == 1) part = sync_json.substr(opened + 1, at - opened - 1);
            if (depth == 2) name = sync_json.substr(opened + 1, at - opened - 1);
        } else if (c == '{' || c == '[') {
            if (depth++ == 2) begin = at;
        } else if (c == '}' || c == ']') {
            if (--depth == 2 && part == "o") take(name, sync_json.substr(begin, at + 1 - begin));
        }
    }
}

inline bool is_named(std::string_view content, std::string_view name) {
    const HashKind kind = hash_kind(name);
    return kind == HashKind::unknown || hash_of(content, kind) == name;
}

// Whether the library reads both contents alike: only the form of numbers may differ.
inline bool is_read_as(std::string_view given, std::string_view written) {
    try {
        return uncompress(given) == written;
    } catch (const Error&) {
        return false;
    }
}

}  // namespace detail

// The names of all contents of `source` that `known` does not have and that do not hash to their name, ascending.
//
// `given` is the text from which `source` was opened. A process whose USE_FAST_FLOAT differs from the writer's writes
// numbers in another form; a content then counts as right if it hashes to its name in `given`.
[[nodiscard]] inline std::vector<std::string> verify(const Handle& source, const Handle& known,
                                                     const Text& given = nullptr) {
    const Value known_text = known.dump();
    const Value source_text = source.dump();
    if (source_text.view().substr(0, 1) == "@") throw Error("verify_needs_the_standard_form");
    std::unordered_set<std::string_view> there;
    detail::for_each_content(known_text, [&](std::string_view name, std::string_view) { there.insert(name); });
    std::vector<std::string> found;
    std::unordered_map<std::string_view, std::string_view> wrong;
    detail::for_each_content(source_text, [&](std::string_view name, std::string_view content) {
        if (there.count(name) == 0 && !detail::is_named(content, name)) wrong.emplace(name, content);
    });
    if (!wrong.empty() && given.c_str() != nullptr) {
        detail::for_each_content(given.c_str(), [&](std::string_view name, std::string_view content) {
            const auto entry = wrong.find(name);
            if (entry == wrong.end() || !detail::is_named(content, name)) return;
            if (detail::is_read_as(content, entry->second)) wrong.erase(entry);
        });
    }
    detail::for_each_content(source_text, [&](std::string_view name, std::string_view) {
        if (wrong.count(name) != 0) found.emplace_back(name);
    });
    return found;
}

// The same for two texts, each a sync JSON. Fails as opening them does, and with "verify_needs_the_standard_form" if
// USE_BEL_FORMAT is set.
[[nodiscard]] inline std::vector<std::string> verify(const Text& sync_json, const Text& known = "{}") {
    return verify(Handle(sync_json), Handle(known), sync_json.c_str());
}

}  // namespace zentadbpp

#endif
