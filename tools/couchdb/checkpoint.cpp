#include "couchdb/checkpoint.h"

#include <openssl/evp.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <utility>
#include <vector>

#include "couchdb/names.h"

namespace zentadb {

namespace {

constexpr std::size_t mark_size = 8;

std::string hexadecimal(std::uint64_t number) {
    std::string text;
    for (int shift = 60; shift >= 0; shift -= 4) text.push_back("0123456789abcdef"[number >> shift & 15]);
    return text;
}

std::string new_name() {
    std::random_device random;
    return hexadecimal(std::uint64_t{random()} << 32 | random());
}

std::string encoded(const std::vector<std::uint64_t>& marks) {
    std::string bytes;
    for (const std::uint64_t mark : marks) {
        for (std::size_t at = 0; at < mark_size; ++at) bytes.push_back(static_cast<char>(mark >> (8 * at) & 255));
    }
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    // Base64 in one piece is limited to what an int can count.
    constexpr std::size_t piece = std::size_t{3} << 20;
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
    std::size_t written = 0;
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        const int size = static_cast<int>(std::min(piece, bytes.size() - at));
        auto* const out = reinterpret_cast<unsigned char*>(text.data() + written);
        written += static_cast<std::size_t>(EVP_EncodeBlock(out, data + at, size));
    }
    text.resize(written);
    return text;
}

std::unordered_set<std::uint64_t> decoded(const std::string& text) {
    constexpr std::size_t piece = std::size_t{4} << 20;
    std::string bytes(text.size() / 4 * 3 + 3, '\0');
    std::size_t written = 0;
    for (std::size_t at = 0; at < text.size(); at += piece) {
        const int size = static_cast<int>(std::min(piece, text.size() - at));
        auto* const out = reinterpret_cast<unsigned char*>(bytes.data() + written);
        const int got = EVP_DecodeBlock(out, reinterpret_cast<const unsigned char*>(text.data() + at), size);
        written += static_cast<std::size_t>(std::max(got, 0));
    }
    // What pads the last group comes out as bytes too; there are fewer of them than a mark has.
    std::unordered_set<std::uint64_t> marks;
    for (std::size_t at = 0; at + mark_size <= written; at += mark_size) {
        std::uint64_t mark = 0;
        for (std::size_t byte = mark_size; byte-- > 0;) mark = mark << 8 | static_cast<unsigned char>(bytes[at + byte]);
        marks.insert(mark);
    }
    return marks;
}

}  // namespace

Checkpoint::Checkpoint(const std::string& store_path, Database& database)
    : database_(database),
      path_(store_path + ".zentadb-" + hexadecimal(mark_of(database.url(), "")).substr(0, 10)),
      lock_(path_),
      session_(new_name()) {}

bool Checkpoint::is_valid(const Json& saved, const SyncJson& store) {
    if (!database_.has_reached(saved.at("since"))) return false;
    const auto local = database_.local("zentadb-" + saved.at("session").get<std::string>());
    if (!local || std::ranges::count(local->value("saved", Json::array()), saved.at("name")) == 0) return false;
    auto marks = decoded(saved.at("shared").get<std::string>());
    for (const Entry& document : store.documents()) {
        if (marks.empty()) break;
        const RevisionTree tree(document.value);
        for (const Revision& revision : tree.revisions()) {
            marks.erase(mark_of(document.key, server_rev(revision)));
        }
    }
    return marks.empty();
}

void Checkpoint::recall(const SyncJson& store, bool afresh) {
    if (afresh || !file_exists(path_)) return;
    const Json saved = Json::parse(read_file(path_), nullptr, false);
    try {
        if (saved.at("url") != database_.url() || !is_valid(saved, store)) return;
        session_ = saved.at("session").get<std::string>();
        since_ = saved.at("since");
        shared_ = decoded(saved.at("shared").get<std::string>());
        is_changed_ = false;
    } catch (const Json::exception&) {
        // A malformed file is ignored, and replaced when this exchange is done.
    }
}

bool Checkpoint::note_on_server(const std::string& name) {
    // Copies of the store that began with one checkpoint take their turns here; one that falls behind asks for all.
    constexpr std::size_t most = 100;
    for (int attempt = 0; attempt < 3; ++attempt) {
        Json local = database_.local(local_name()).value_or(Json::object());
        Json saved = local.value("saved", Json::array());
        saved.insert(saved.begin(), name);
        if (saved.size() > most) saved.erase(saved.begin() + most, saved.end());
        local["saved"] = std::move(saved);
        if (database_.put_local(local_name(), local)) return true;
    }
    return false;
}

void Checkpoint::save(const SyncJson& store, const Json& since) {
    if (!is_changed_ && since == since_) return;
    since_ = since;
    is_changed_ = false;
    // Of each branch the newest mark says all that the older ones say.
    std::vector<std::uint64_t> newest;
    for (const Entry& document : store.documents()) {
        const RevisionTree tree(document.value);
        std::vector<bool> is_seen(tree.revisions().size());
        for (std::size_t at : tips_of(tree)) {
            for (; at != Revision::none && !is_seen[at]; at = tree[at].parent) {
                is_seen[at] = true;
                const std::uint64_t mark = mark_of(document.key, server_rev(tree[at]));
                if (!shared_.contains(mark)) continue;
                newest.push_back(mark);
                break;
            }
        }
    }
    std::ranges::sort(newest);
    newest.erase(std::unique(newest.begin(), newest.end()), newest.end());
    const std::string name = new_name();
    if (!note_on_server(name)) {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
        return;
    }
    const Json saved = {
        {"url", database_.url()}, {"session", session_}, {"name", name}, {"since", since}, {"shared", encoded(newest)}};
    replace_file(path_, saved.dump() + "\n");
}

}  // namespace zentadb
