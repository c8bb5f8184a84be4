#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "json/error.h"
#include "transformation/in_texts.h"

// What hosts give comes back, whatever it is and however it is flattened: random data beside a naive account of it.
namespace libzentadbpp {
namespace {

using namespace in_texts;

// A host's data.
struct Host {
    enum Kind { plain, string, array, object } kind = plain;
    std::string text;  // of a plain value as written, of a string as it is
    std::vector<Host> elements;
    std::map<std::string, Host> members;

    static Host of(Kind kind, std::string text = {}) { return {kind, std::move(text), {}, {}}; }
    [[nodiscard]] bool has(const std::string& key) const { return members.contains(key); }
};

std::string written(const Host& host) {
    TextBuffer quoted;
    std::string text;
    switch (host.kind) {
        case Host::plain:
            return host.text;
        case Host::string:
            write_json_string(host.text, quoted);
            return std::string(quoted.view());
        case Host::array:
            for (const Host& element : host.elements) text += (text.empty() ? "" : ",") + written(element);
            return "[" + text + "]";
        default:
            for (const auto& [key, member] : host.members) {
                text += (text.empty() ? "" : ",") + written(Host::of(Host::string, key)) + ":" + written(member);
            }
            return "{" + text + "}";
    }
}

struct Configuration {
    bool flatten_objects;
    bool rules;
    bool indexed;
    HashKind kind;
    bool discard_id;

    [[nodiscard]] std::string text() const {
        const auto flag = [](bool value) { return value ? "true" : "false"; };
        return std::string(R"({"instance_id": "me", "flatten_objects": )") + flag(flatten_objects) +
               R"(, "id_generation_rules": ")" + (rules ? "k,v;k" : "") + R"(", "indexed_array_paths": ")" +
               (indexed ? hash("root->x-", kind) : "") + R"(", "force_fast_hash_only": )" +
               flag(kind == HashKind::fast) + R"(, "discard_id": )" + flag(discard_id) + "}";
    }
};

// Which documents some data makes, and what is read back: found by recursion, with every path and every id made in
// full.
class Account {
   public:
    Account(const Host& data, const Configuration& configuration) : configuration_(configuration) {
        root_ = object_id(data, "");
        ids_.insert(root_);
        read_back_ = object(data, "", root_, true);
        refused_ = refused_ || std::ranges::any_of(elements_, [&](const auto& id) { return objects_.contains(id); });
    }

    [[nodiscard]] const Host& read_back() const { return read_back_; }
    [[nodiscard]] const std::set<std::string>& ids() const { return ids_; }
    [[nodiscard]] bool is_refused() const { return refused_; }
    // Several elements share one id.
    [[nodiscard]] bool is_ambiguous() const { return ambiguous_; }

   private:
    [[nodiscard]] std::string object_id(const Host& host, const std::string& path) const {
        if (host.has("_id") && host.members.at("_id").kind == Host::string) return host.members.at("_id").text;
        const std::string k = configuration_.rules ? piece(host, "k") : "";
        if (!k.empty()) return k + piece(host, "v");
        return path.empty() ? "root" : hash(path, configuration_.kind);
    }

    static std::string piece(const Host& host, const std::string& key) {
        const auto member = host.members.find(key);
        if (member == host.members.end()) return "";
        const auto& [kind, text, elements, members] = member->second;
        if (kind == Host::string) return text;
        if (kind != Host::plain || std::string("tfn").find(text[0]) != std::string::npos) return "";
        const double number = std::trunc(std::stod(text));
        return std::abs(number) < 1e18 ? std::to_string(static_cast<std::int64_t>(number)) : "";
    }

    Host object(const Host& host, const std::string& path, const std::string& id, bool is_document) {
        const bool stays = host.has("#nf");
        const bool splits = configuration_.flatten_objects || host.has("#df");
        const std::string inside = path.empty() ? "root->" : path + "o(" + id + ")->";
        Host result = Host::of(Host::object);
        for (const auto& [key, member] : host.members) {
            if (key == "_id") continue;
            const std::string member_path = inside + key + "-";
            if (stays) {
                result.members[key] = member;
            } else if (splits && member.kind == Host::object && !member.has("#nf")) {
                const std::string member_id = object_id(member, member_path);
                if (!objects_.insert(member_id).second || member_id == root_) refused_ = true;
                ambiguous_ = !ids_.insert(member_id).second || ambiguous_;
                result.members[key] = object(member, member_path, member_id, true);
            } else {
                result.members[key] = value(member, member_path);
            }
        }
        if (is_document ? !configuration_.discard_id
                        : (stays || splits) && !(configuration_.discard_id && (stays || host.has("#df")))) {
            result.members["_id"] = Host::of(Host::string, id);
        } else if (!is_document && !stays && !splits && host.has("_id")) {
            result.members["_id"] = host.members.at("_id");
        }
        return result;
    }

    Host value(const Host& host, const std::string& path) {
        if (host.kind == Host::object) return object(host, path, object_id(host, path), false);
        if (host.kind != Host::array) return host;
        Host result = Host::of(Host::array);
        if (!std::ranges::all_of(host.elements, [](const Host& element) { return element.kind == Host::object; })) {
            for (const Host& element : host.elements) result.elements.push_back(value(element, path + "a("));
            return result;
        }
        const std::string domain = hash(path, configuration_.kind);
        const auto [entry, is_new] = domains_.try_emplace(domain, host.elements.size());
        if (!is_new && entry->second + host.elements.size() > 0) refused_ = true;
        for (const Host& element : host.elements) {
            std::string element_path = path + "a(" + domain + ")->";
            if (configuration_.indexed && path == "root->x-") element_path += std::to_string(result.elements.size());
            const std::string id = object_id(element, element_path);
            if (id == root_) refused_ = true;
            elements_.insert(id);
            ambiguous_ = !ids_.insert(id).second || ambiguous_;
            result.elements.push_back(object(element, element_path, id, true));
        }
        return result;
    }

    Configuration configuration_;
    std::string root_;
    Host read_back_;
    std::set<std::string> ids_;
    std::set<std::string> objects_;
    std::set<std::string> elements_;
    std::map<std::string, std::size_t> domains_;
    bool refused_ = false;
    bool ambiguous_ = false;
};

class Hosts {
   public:
    explicit Hosts(std::uint64_t seed) : random_(seed) {}

    bool one_in(std::size_t n) { return below(n) == 0; }

    Host root() {
        Host data = object(3);
        if (one_in(8)) data.members["_id"] = Host::of(Host::string, one_in(2) ? "r1" : "r2");
        if (one_in(3)) {  // what may be indexed
            Host& x = data.members["x"] = Host::of(Host::array);
            for (std::size_t i = below(4); i > 0; --i) x.elements.push_back(object(1));
        }
        return data;
    }

    // A later version: here and there something else, or gone, or in another order.
    Host changed(const Host& host, int levels = 3) {
        if (one_in(12)) return host.kind == Host::object ? element(levels) : value(levels);
        Host result = host;
        for (auto& [key, member] : result.members) {
            if (key != "_id" && !one_in(3)) member = changed(member, levels - 1);
        }
        for (Host& element : result.elements) element = changed(element, levels - 1);
        if (host.kind == Host::object && one_in(8)) result.members[key()] = value(levels - 1);
        if (!result.members.empty() && one_in(8)) result.members.erase(result.members.begin());
        if (!result.elements.empty() && one_in(5)) result.elements.erase(result.elements.begin());
        if (one_in(5)) std::ranges::shuffle(result.elements, random_);
        return result;
    }

   private:
    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(random_() % limit); }

    template <std::size_t size>
    std::string one_of(const std::array<const char*, size>& texts) {
        return texts[below(size)];
    }

    std::string key() {
        return one_of<15>({"a", "b", "c", "d", "k", "v", "A", "#", "", "_", "_ie", "\xc3\xa9\"", "~\\", "\n", "\"k"});
    }

    std::string id() {
        if (one_in(2)) return "n" + std::to_string(++last_id_);
        return one_of<11>({"e1", "e2", "e3", "e4", "e5", "Oe1", "A", "\xe2\x80\xa8", "q\"\\", ")->", "\xc3\xa9\n"});
    }

    Host scalar() {
        return one_in(2)
                   ? Host::of(Host::string, one_of<12>({"", "A", "Oe1", "!", "text", "\"\\/", "\n\x01", "\xc3\xa9",
                                                        "\xe2\x80\xa9", "O", "k1", "\xf0\x9f\x98\x80"}))
                   : Host::of(Host::plain, one_of<13>({"0", "7", "-5", "1.5", "-2.75", "0.1", "1e300", "123456789012",
                                                       "2147483648", "true", "false", "null", "4e-9"}));
    }

    Host object(int levels) {
        Host host = Host::of(Host::object);
        for (std::size_t i = below(5); i > 0; --i) host.members[key()] = value(levels - 1);
        if (one_in(10)) host.members["#nf"] = scalar();
        if (one_in(6)) host.members["#df"] = scalar();
        if (one_in(12)) host.members["_id"] = scalar().kind == Host::plain ? scalar() : value(levels - 1);
        if (one_in(6)) host.members["_id"] = Host::of(Host::string, id());
        return host;
    }

    Host element(int levels) {
        Host host = object(levels);
        if (!one_in(12)) host.members["_id"] = Host::of(Host::string, id());
        return host;
    }

    Host value(int levels) {
        if (levels <= 0 || one_in(3)) return scalar();
        if (one_in(3)) return object(levels);
        Host host = Host::of(Host::array);
        const bool is_mixed = one_in(3);
        for (std::size_t i = below(5); i > 0; --i) {
            host.elements.push_back(is_mixed ? value(levels - 1) : element(levels - 1));
        }
        return host;
    }

    std::mt19937_64 random_;
    int last_id_ = 0;
};

// What must hold once `storage` was brought up to date with the data.
void check_version(const DocumentStorage& storage, const std::string& text, const std::string& read_back,
                   const Configuration& configuration) {
    const std::string config = configuration.text();
    const std::string sync_json = serialized(storage);
    ASSERT_EQ(read(storage, config), read_back);
    EXPECT_EQ(serialized(updated(storage, text, config)), sync_json) << "a second update changed something";
    if (!configuration.discard_id) {
        EXPECT_EQ(serialized(updated(storage, read_back, config)), sync_json) << "what is read is not what was stored";
    }

    const Opened opened(sync_json);
    EXPECT_EQ(serialized(opened.storage()), sync_json);
    EXPECT_EQ(read(opened.storage(), config), read_back);

    for (const bool as_writer : {true, false}) {
        auto settings = TransformationSettings{};
        settings.instance_id = as_writer ? "me" : "another";
        settings.discard_id = configuration.discard_id;
        TextBuffer first;
        const DocumentStorage reordered = read_and_reorder(storage, settings, first);
        EXPECT_EQ(first.view(), read_back) << settings.instance_id;
        TextBuffer second;
        EXPECT_EQ(serialized(read_and_reorder(reordered, settings, second)), serialized(reordered));
        EXPECT_EQ(second.view(), read_back) << settings.instance_id;
    }
}

struct Tally {
    int versions = 0;
    int refused = 0;
};

// One host's life: a few versions of its data, where nothing that was deleted comes back.
void live(Hosts& hosts, const Configuration& configuration, Tally& tally) {
    const std::string config = configuration.text();
    DocumentStorage storage;
    Host data;
    std::set<std::string> deleted;
    std::set<std::string> live_ids;
    for (int attempt = 0, version = 0; attempt < 16 && version < 4; ++attempt) {
        const Host next = version > 0 && !hosts.one_in(4) ? hosts.changed(data) : hosts.root();
        if (next.kind != Host::object) continue;
        const std::string text = written(next);
        const Account account(next, configuration);
        if (account.is_refused()) {
            ++tally.refused;
            EXPECT_THROW((void)updated(storage, text, config), FlattenerException) << text;
            continue;
        }
        if (account.ids().contains("")) {
            EXPECT_THROW((void)updated(storage, text, config), InvalidDocumentException) << text;
            continue;
        }
        if (account.is_ambiguous()) continue;
        const auto was_deleted = [&](const std::string& id) { return deleted.contains(id); };
        if (std::ranges::any_of(account.ids(), was_deleted)) continue;

        const std::string read_back = canonical(written(account.read_back()));
        SCOPED_TRACE(config + "\nfrom " + written(data) + "\nto   " + text);
        storage = updated(storage, text, config);
        check_version(storage, text, read_back, configuration);
        EXPECT_EQ(unflattened(flattened(text, config), config), read_back);
        if (testing::Test::HasFailure()) return;

        std::ranges::set_difference(live_ids, account.ids(), std::inserter(deleted, deleted.end()));
        live_ids = account.ids();
        data = next;
        ++version;
        ++tally.versions;
    }
}

TEST(RoundTrip, WhatWasUpdatedIsRead) {
    constexpr Configuration configurations[] = {
        {false, false, false, HashKind::sha256, false}, {false, false, true, HashKind::sha256, true},
        {true, false, false, HashKind::sha256, false},  {true, false, true, HashKind::fast, true},
        {false, true, true, HashKind::fast, false},     {true, true, true, HashKind::sha256, true},
    };
    Tally tally;
    for (std::uint64_t seed = 1; seed <= 1500; ++seed) {
        Hosts hosts(seed);
        ASSERT_NO_THROW(live(hosts, configurations[seed % std::size(configurations)], tally)) << "seed " << seed;
        ASSERT_FALSE(HasFailure()) << "seed " << seed;
    }
    EXPECT_GT(tally.versions, 3000);
    EXPECT_GT(tally.refused, 50);
}

}  // namespace
}  // namespace libzentadbpp
