// Copies of one host's data that are edited independently, exchanged in every way, and settle: they must agree, keep
// what each of them did, lose nothing, show nothing twice that nobody put twice, and be all the time what the naive
// model says.

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "c_api/zenta.h"
#include "inspect/integrity.h"
#include "properties/items.h"
#include "properties/naive.h"
#include "properties/owed.h"
#include "properties/round.h"
#include "properties/seeds.h"

namespace libzentadbpp {
namespace {

using namespace c_api;
using namespace items;

struct Copy {
    std::string name;
    std::string config;
    std::string text;
    naive::Storage model;
};

class Script {
   public:
    Script(std::uint64_t seed, bool one_instance) : random_(seed), one_instance_(one_instance) {
        flatten_objects_ = random_.one_in(5);
        const std::string more = std::string(R"(", "force_fast_hash_only": )") +
                                 (random_.one_in(3) ? "true" : "false") + R"(, "flatten_objects": )" +
                                 (flatten_objects_ ? "true" : "false") + "}";
        Item root{"root"};
        editor(root, "b").fill();
        places_ = View(root, flatten_objects_).places;
        for (std::size_t i = 0, count = 2 + random_.below(3); i < count; ++i) {
            const std::string instance = one_instance ? "i" : "i" + std::to_string(random_.below(3));
            copies_.push_back(
                {std::string(1, static_cast<char>('c' + i)), R"({"instance_id": ")" + instance + more, {}, {}});
            copies_[i].text = taken(update_sync_json(root.text().c_str(), "{}", copies_[0].config.c_str())).text();
            copies_[i].model = naive::storage_of(copies_[i].text);
        }
    }

    Script(const Script&) = delete;
    Script& operator=(const Script&) = delete;
    ~Script() {
        if (!testing::Test::HasFailure()) return;
        for (const Copy& copy : copies_) story_ += copy.name + ": " + copy.text + '\n';
        std::fputs(story_.c_str(), stdout);
    }

    // The copies are the same, are edited, and are the same again.
    void run_round() {
        round_.emplace(view_of(copies_[0]), one_instance_, places_);
        const bool apart = random_.one_in(2);
        for (std::size_t steps = 1 + random_.below(apart ? 6 : 24); steps-- != 0 && !testing::Test::HasFailure();) {
            apart ? edit(random_copy()) : step();
        }
        if (testing::Test::HasFailure()) return;
        check_laws();
        ASSERT_NO_FATAL_FAILURE(exchange_all());
        round_->check(view_of(copies_[0]), tally_);
        check_losers(random_copy());
        settle();
    }

    [[nodiscard]] const Tally& tally() const { return tally_; }

   private:
    void step() {
        Copy& copy = random_copy();
        round_->merged();
        switch (random_.below(16)) {
            case 0:
            case 1:
            case 2:
            case 3:
                return replicate(random_copy(), copy);
            case 4:
                return settle_conflict(copy);
            case 5:
                return store_order_of(copy);
            case 6:
                return keep_winners(copy);
            case 7:
                return prune(copy);
            case 8:
                return exchange(random_copy(), copy);
            case 9:
                return check_laws();
            default:
                return edit(copy);
        }
    }

    Copy& random_copy() { return copies_[random_.below(copies_.size())]; }
    Editor editor(Item& root, const std::string& writer) { return {random_, root, writer, flatten_objects_, last_id_}; }

    static std::string read(const std::string& text, const Copy& copy) {
        return taken(read_sync_json(text.c_str(), copy.config.c_str())).text();
    }
    static std::string read(const Copy& copy) { return read(copy.text, copy); }
    static Item parsed(const std::string& data) {
        Arena arena;
        return Item::parse(parse_json(data, arena));
    }
    [[nodiscard]] View view_of(const Copy& copy) const { return View(parsed(read(copy)), flatten_objects_); }

    // The handle that an earlier operation made of a text, so that handles come from handles, or a new one.
    Handle handle_of(const std::string& text) {
        Handle& known = handles_[text];
        if (known == nullptr) known = open(text).handle;
        return known;
    }
    void keep(const std::string& text, const Handle& handle) {
        constexpr std::size_t many = 64;
        if (handles_.size() > many) handles_.clear();
        handles_[text] = handle;
        // Whatever the handles before passed on, it is read as its text is.
        const std::string& config = copies_[text.size() % copies_.size()].config;
        const std::string only_read = config.substr(0, config.size() - 1) + R"(, "preserve_old_ordering": true})";
        EXPECT_EQ(taken(read_sync_json_ptr(handle.get(), only_read.c_str())),
                  taken(read_sync_json(text.c_str(), only_read.c_str())));
    }

    // One operation on a sync JSON: by text, by compressed text, or by handle.
    template <class ByText, class ByHandle, class... Rest>
    std::string in_some_way(const std::string& text, ByText by_text, ByHandle by_handle, Rest... rest) {
        const std::size_t way = random_.below(4);
        if (way == 0) return uncompressed(taken(by_text(compressed(text).c_str(), rest...)).text());
        if (way == 1) {
            const Answer answer = taken(by_handle(handle_of(text).get(), rest...));
            if (answer.handle != nullptr) keep(answer.text(), answer.handle);
            return answer.text();
        }
        return taken(by_text(text.c_str(), rest...)).text();
    }

    std::string updated(const Copy& copy, const std::string& data) {
        const char* config = copy.config.c_str();
        return in_some_way(
            copy.text, [&](const char* text) { return update_sync_json(data.c_str(), text, config); },
            [&](sync_json_ptr handle) { return update_sync_json_ptr(data.c_str(), handle, config); });
    }

    std::string merged(const std::string& source, const std::string& target) {
        const Handle from = handle_of(source);
        return in_some_way(
            target, [&](const char* text) { return replicate_sync_json(source.c_str(), text, "{}"); },
            [&](sync_json_ptr handle) { return replicate_sync_json_ptr(from.get(), handle, "{}"); });
    }

    std::string resolved(const std::string& text, const std::string& id, const naive::Revision& leaf) {
        const std::string rev = naive::text_of(leaf);
        return in_some_way(text, sync_json_resolve, sync_json_ptr_resolve, id.c_str(), rev.c_str());
    }

    static void expect_model(const Copy& copy) {
        const bool is_model = naive::storage_of(copy.text) == copy.model;
        ASSERT_TRUE(is_model) << "not what the model says: " << copy.name << ' ' << copy.text;
    }

    void replicate(const Copy& source, Copy& target) {
        if (source.text != target.text) story_ += source.name + " -> " + target.name + '\n';
        const naive::Storage both = naive::merged(target.model, source.model);
        target.text = merged(source.text, target.text);
        target.model = both;
        expect_model(target);
        EXPECT_EQ(merged(source.text, target.text), target.text) << "replicating again changes something";
    }

    // By a server that is sent the winners and gives them to the other.
    void exchange(Copy& source, Copy& target) {
        story_ += source.name + " -> server\n";
        store_order_of(source);
        const std::string body = in_some_way(source.text, sync_json_to_bulk_docs, sync_json_ptr_to_bulk_docs);
        const std::string answer = as_bulk_get_answer(body);
        const bool by_value = random_.one_in(2);
        const Answer got = by_value ? taken(sync_json_from_bulk_get(answer.c_str(), R"({"compressed": true})"))
                                    : taken(sync_json_ptr_from_bulk_get(answer.c_str(), "{}"));
        const Copy server{"server", "", uncompressed(got.text()), naive::exchanged(source.model)};
        expect_model(server);
        replicate(server, target);
    }

    void check_laws() {
        const Copy &a = random_copy(), &b = random_copy(), &c = random_copy();
        const std::string ab = merged(a.text, b.text);
        EXPECT_EQ(merged(b.text, a.text), ab) << "not commutative";
        const auto bc = naive::merged(b.model, c.model);
        const auto model_ab = naive::merged(a.model, b.model);
        if (bc.names_met || model_ab.names_met || naive::merged(a.model, bc).names_met ||
            naive::merged(model_ab, c.model).names_met) {
            return;
        }
        EXPECT_EQ(merged(ab, c.text), merged(a.text, merged(b.text, c.text))) << "not associative";
    }

    void settle_conflict(Copy& copy) {
        const std::vector<std::string> ids = split_list(taken(sync_json_unresolved(copy.text.c_str())).text());
        if (ids.empty()) return;
        const std::string& id = ids[random_.below(ids.size())];
        naive::Tree& tree = copy.model.documents.at(id);
        const auto leaves = naive::leaves(tree);
        const auto leaf = *std::next(leaves.begin(), static_cast<std::ptrdiff_t>(random_.below(leaves.size())));
        story_ += copy.name + " resolves " + id + ' ' + naive::text_of(leaf) + '\n';
        copy.text = resolved(copy.text, id, leaf);
        naive::add(tree, leaf, "resolved");
        expect_model(copy);
        round_->settled(id);
    }

    // Whoever settles a conflict for the version that lost gets back what he would have got before an update.
    void check_losers(const Copy& copy) {
        const std::string after = updated(copy, read(copy));
        const naive::Storage storage = naive::storage_of(after);
        for (const std::string& id : split_list(taken(sync_json_unresolved(copy.text.c_str())).text())) {
            const naive::Tree& tree = copy.model.documents.at(id);
            for (const naive::Revision& loser : naive::leaves(tree)) {
                const bool is_there = copy.model.contents.contains(naive::hash_of(loser));
                if (loser == naive::winner(tree) || !is_there) continue;
                const auto chosen = [&](std::string text, const naive::Tree& leaves_of) {
                    for (const naive::Revision& leaf : naive::leaves(leaves_of)) {
                        if (leaf != loser) text = resolved(text, id, leaf);
                    }
                    return View(parsed(read(text, copy)), flatten_objects_);
                };
                const View wanted = chosen(copy.text, tree);
                const View found = chosen(after, storage.documents.at(id));
                const bool is_lost = std::ranges::any_of(
                    wanted.documents, [&](const auto& known) { return !found.documents.contains(known.first); });
                const bool is_in_open_lists = std::ranges::all_of(wanted.documents, [&](const auto& known) {
                    return found.documents.contains(known.first) || is_part(known.first) ||
                           is_listed(copy.model, known.first);
                });
                if (is_lost && !is_in_open_lists) {
                    ++tally_["a loser lacks what only earlier lists have"];
                    continue;
                }
                if (is_lost && (is_part_joined(copy.model, storage) || is_place_taken(wanted, found))) {
                    ++tally_["an update stores a part that came back, and a loser is not whole"];
                    continue;
                }
                for (const auto& [document, value] : wanted.documents) {
                    const auto known = found.documents.find(document);
                    ASSERT_TRUE(known != found.documents.end())
                        << document << " is lost with the losing version of " << id;
                    EXPECT_EQ(known->second, value) << document;
                }
            }
        }
    }

    // Whether an update with what was read has made a part from a document: one that came back into an object that
    // holds its parts inline.
    static bool is_part_joined(const naive::Storage& before, const naive::Storage& after) {
        return std::ranges::any_of(after.documents, [&](const auto& document) {
            const auto& [id, tree] = document;
            return is_part(id) && naive::hash_of(naive::winner(tree)) == "deleted" &&
                   naive::hash_of(naive::winner(before.documents.at(id))) != "deleted";
        });
    }

    static bool is_listed(const naive::Storage& storage, const std::string& element) {
        return std::ranges::any_of(storage.documents, [&](const auto& document) {
            const auto& [id, tree] = document;
            if (!id.starts_with("ord-")) return false;
            return std::ranges::any_of(naive::leaves(tree), [&](const naive::Revision& leaf) {
                const auto list = storage.contents.find(naive::hash_of(leaf));
                return list != storage.contents.end() && list->second.find('"' + element + '"') != std::string::npos;
            });
        });
    }

    // Whether what came back has the place of something that is not shown now.
    static bool is_place_taken(const View& wanted, const View& found) {
        return std::ranges::any_of(wanted.places, [&](const auto& known) {
            if (!is_part(known.first) || found.documents.contains(known.first)) return false;
            return std::ranges::any_of(found.places, [&](const auto& other) {
                return std::ranges::any_of(known.second,
                                           [&](const Place& place) { return other.second.contains(place); });
            });
        });
    }

    void keep_winners(Copy& copy) {
        story_ += copy.name + " keeps the winners\n";
        store_order_of(copy);
        const std::string before = read(copy);
        copy.text = in_some_way(copy.text, sync_json_all_winning, sync_json_ptr_all_winning);
        copy.model = naive::all_winning(copy.model);
        expect_model(copy);
        EXPECT_EQ(read(copy), before) << "what won is not all that shows";
    }

    // Drops old contents of documents without branches.
    void prune(Copy& copy) {
        story_ += copy.name + " prunes\n";
        has_pruned_ = true;
        store_order_of(copy);
        const std::string before = read(copy);
        Ids ids;
        for (const auto& [id, tree] : copy.model.documents) {
            if (id.starts_with("ord-") || tree.rbegin()->first.first == tree.size()) ids.insert(id);
        }
        const auto limit = static_cast<std::uint32_t>(1 + random_.below(2));
        if (ids.size() == copy.model.documents.size()) {
            copy.text = in_some_way(copy.text, sync_json_prune, sync_json_ptr_prune, limit, false);
        } else {
            std::string list;
            for (const std::string& id : ids) list += (list.empty() ? "[\"" : ", \"") + id + "\"";
            list += "]";
            copy.text =
                in_some_way(copy.text, sync_json_prune_ids, sync_json_ptr_prune_ids, list.c_str(), limit, false);
        }
        naive::retain(copy.model, [&](const std::string& id, const naive::Tree& tree) {
            return ids.contains(id) ? naive::newest(tree, limit) : naive::all_hashes(tree);
        });
        expect_model(copy);
        expect_shown_as_before(copy, before);
    }

    // But for a part that came back to where an old content had it: only an update stores that.
    void expect_shown_as_before(const Copy& copy, const std::string& before) {
        if (read(copy) == before) return;
        const View was(parsed(before), flatten_objects_);
        const View now = view_of(copy);
        const auto is_where_it_was = [&](const std::string& id) {
            const auto before_it = was.places.find(id);
            const auto now_it = now.places.find(id);
            return before_it == was.places.end() || (now_it != now.places.end() && now_it->second == before_it->second);
        };
        const bool part_is_elsewhere = std::ranges::any_of(was.times, [&](const auto& shown) {
            const auto known = now.times.find(shown.first);
            const bool is_all_there = known != now.times.end() && known->second >= shown.second;
            return is_part(shown.first) && !(is_all_there && is_where_it_was(shown.first));
        });
        EXPECT_TRUE(part_is_elsewhere) << read(copy) << " was " << before;
        ++tally_["pruning takes a part that came back"];
    }

    // Takes over what an operation of the host made: at most so many new revisions of each document, on top of its
    // winner. The other leaves of an ordering document are closed.
    static void adopt(Copy& copy, const std::string& text, const std::function<std::size_t(const std::string&)>& most) {
        naive::Storage now = naive::storage_of(text);
        for (const auto& [id, tree] : now.documents) {
            const auto known = copy.model.documents.find(id);
            naive::Tree expected = known == copy.model.documents.end() ? naive::Tree() : known->second;
            if (expected == tree) continue;
            std::vector<std::string> added;
            for (naive::Revision at = naive::winner(tree); at.first != 0 && !expected.contains(at); at = tree.at(at)) {
                if (naive::hash_of(at) != "empty") added.push_back(naive::hash_of(at));
            }
            ASSERT_LE(added.size(), most(id)) << id;
            for (; !added.empty(); added.pop_back()) {
                naive::add(expected, expected.empty() ? naive::Revision() : naive::winner(expected), added.back());
            }
            if (id.starts_with("ord-")) naive::close_all_but_winner(expected);
            ASSERT_EQ(tree, expected) << id;
        }
        ASSERT_EQ(naive::merged(copy.model, now), now) << "something is gone";
        copy.text = text;
        copy.model = std::move(now);
    }

    void store_order_of(Copy& copy) {
        story_ += copy.name + " stores " + parsed(read(copy)).sketch() + '\n';
        const std::string before = read(copy);
        const Handle handle = handle_of(copy.text);
        handles_.erase(copy.text);
        EXPECT_EQ(taken(read_sync_json_ptr(handle.get(), copy.config.c_str())).text(), before);
        keep(*dump(handle), handle);
        adopt(copy, *dump(handle), [](const std::string& id) { return id.starts_with("ord-") ? 2U : 0U; });
        EXPECT_EQ(read(copy), before) << "storing the order changes it";
    }

    void edit(Copy& copy) {
        Item item = parsed(read(copy));
        const View before(item, flatten_objects_);
        for (std::size_t changes = random_.below(4); changes-- != 0;) editor(item, copy.name).change();
        update(copy, before, item);
    }

    void update(Copy& copy, const View& before, const Item& data) {
        const View after(data, flatten_objects_);
        story_ += copy.name + " updates " + data.sketch() + '\n';
        const std::string text = updated(copy, data.text());
        const naive::Storage now = naive::storage_of(text);
        for (const auto& [id, tree] : now.documents) {
            const bool is_deleted = naive::hash_of(naive::winner(tree)) == "deleted";
            if (is_deleted) round_->deleted(id);
            EXPECT_FALSE(is_deleted && after.documents.contains(id)) << id;
            const auto known = copy.model.documents.find(id);
            if (known == copy.model.documents.end() || known->second != tree) round_->stored(id, copy.name);
        }
        round_->edited(copy.name, before, after);
        for (const auto& [id, places] : after.places) places_[id].insert(places.begin(), places.end());
        const naive::Storage model = copy.model;
        adopt(copy, text, [&](const std::string& id) -> std::size_t {
            if (id.starts_with("ord-")) return 2;
            if (!after.documents.contains(id)) return 1;
            // Merges leave in contents where lists were, and which parts there were, so only tasks must stay.
            const auto known = before.own.find(id);
            const bool is_same = known != before.own.end() && known->second == after.own.at(id) && id.starts_with('t');
            return is_same ? 0 : static_cast<std::size_t>(after.times.at(id));
        });
        if (testing::Test::HasFailure()) return;
        const Item back = parsed(read(copy));
        if (!means_one_thing(data)) {
            check_edited_in_one_place(before, data, View(back, flatten_objects_));
        } else if (back.text() != data.text()) {
            check_hidden(View(back, flatten_objects_), before, after, model);
        }
        if (updated(copy, back.text()) != text) ++tally_["a second update changes something"];
    }

    // A document that the data before did not show may come back in the place of a part that was removed, also beside
    // an inline part of its id.
    void check_hidden(const View& back, const View& before, const View& after, const naive::Storage& model) {
        bool was_hidden = false;
        for (const auto& [id, times] : back.times) {
            const auto written = after.times.find(id);
            was_hidden = was_hidden || (times > (written == after.times.end() ? 0 : written->second) &&
                                        !before.documents.contains(id) && model.documents.contains(id));
        }
        EXPECT_TRUE(was_hidden) << "what is read is not what was written";
        ++tally_["a hidden part comes back"];
    }

    // Whether an item that is shown several times is the same everywhere.
    static bool means_one_thing(const Item& data) {
        std::map<std::string, std::string> texts;
        bool is_one = true;
        Item::visit(data, [&](const Item& item) {
            is_one = is_one && texts.try_emplace(item.id, item.text()).first->second == item.text();
        });
        return is_one;
    }

    // Of what was edited in one place only, one edit is kept.
    static void check_edited_in_one_place(const View& before, const Item& data, const View& back) {
        std::map<std::string, std::set<std::int32_t>> edits;
        Item::visit(data, [&](const Item& item) {
            const auto known = before.documents.find(item.id);
            const bool is_edited = known != before.documents.end() && known->second != item.value;
            if (is_edited && item.id[0] == 't') edits[item.id].insert(item.value);
        });
        for (const auto& [id, values] : edits) EXPECT_TRUE(values.contains(back.documents.at(id))) << id;
    }

    // Every copy into every other, in any order, until nothing changes any more.
    void exchange_all() {
        bool changed = true;
        for (int rounds = 0; changed && rounds < 12; ++rounds) {
            changed = false;
            for (std::size_t pairs = copies_.size() * copies_.size(), at = random_.below(pairs), i = 0; i < pairs;
                 ++i) {
                Copy& target = copies_[(at + i) % pairs % copies_.size()];
                const std::string before = target.text;
                replicate(copies_[(at + i) % pairs / copies_.size()], target);
                changed = changed || target.text != before;
            }
        }
        ASSERT_FALSE(changed) << "the copies do not come to rest";
        for (const Copy& copy : copies_) {
            ASSERT_EQ(copy.text, copies_[0].text);
            check_shown(copy);
        }
        for (const auto& finding : zentadb::check_integrity(copies_[0].text).findings) {
            EXPECT_FALSE(is_damage(finding.trouble)) << describe(finding);
        }
    }

    void check_shown(const Copy& copy) const {
        const View view = view_of(copy);
        for (const auto& [id, value] : view.documents) {
            const std::string hash = naive::hash_of(naive::winner(copy.model.documents.at(id)));
            EXPECT_EQ(member(copy.model.contents.at(hash), "v"), std::to_string(value)) << id;
        }
        for (const std::string& id : owed(copy.model, view)) EXPECT_TRUE(false) << id << " is lost";
    }

    // All store what they read, or update with it, and meet, until nothing changes any more. Writers of different
    // instances do not update: an item may stay in one place for the one and in another for the other, and where its
    // lists are is in its content.
    void settle() {
        round_.emplace(view_of(copies_[0]), one_instance_, places_);
        for (int rounds = 1; rounds < 8; ++rounds) {
            const std::string before = copies_[0].text;
            for (Copy& copy : copies_) {
                if (!one_instance_ || random_.one_in(2)) {
                    store_order_of(copy);
                } else {
                    const Item data = parsed(read(copy));
                    update(copy, View(data, flatten_objects_), data);
                }
                if (testing::Test::HasFailure()) return;
            }
            ASSERT_NO_FATAL_FAILURE(exchange_all());
            if (copies_[0].text == before) return;
            if (rounds > 1) ++tally_["settled in " + std::to_string(rounds) + " rounds"];
        }
        // An object in two places has its lists in both, and an update stores them there. A read takes the one out
        // that its content does not name, unless an old content still tells that the two are one.
        const View shown = view_of(copies_[0]);
        const bool has_list_twice = std::ranges::any_of(
            shown.places, [&](const auto& place) { return shown.is_doubled(place.first) && place.first[0] == 'l'; });
        ASSERT_TRUE(has_pruned_ && has_list_twice) << "storing and merging does not come to rest";
        ++tally_["does not settle, a list twice"];
    }

    Random random_;
    bool one_instance_;
    bool flatten_objects_ = false;
    std::vector<Copy> copies_;
    std::optional<Round> round_;
    Tally tally_;
    std::map<std::string, Handle> handles_;  // by what they dump
    std::string story_;                      // what the copies did
    int last_id_ = 0;
    bool has_pruned_ = false;
    Places places_;  // where anything ever was
};

void run_scripts(std::uint64_t first_seed, bool one_instance) {
    std::map<std::string, std::vector<std::uint64_t>> scripts;
    int count = 0;
    for_seeds(first_seed, 80, [&](std::uint64_t seed) {
        Script script(seed, one_instance);
        for (int rounds = 0; rounds < 3 && !testing::Test::HasFailure(); ++rounds) script.run_round();
        for (const auto& [what, times] : script.tally()) scripts[what].push_back(seed);
        ++count;
    });
    for (const auto& [what, seeds] : scripts) {
        std::printf("    %7.1f per 1,000 scripts: %s (seeds", 1000.0 * static_cast<double>(seeds.size()) / count,
                    what.c_str());
        for (std::size_t i = 0; i < seeds.size() && i < 5; ++i)
            std::printf(" %llu", static_cast<unsigned long long>(seeds[i]));
        std::puts(")");
    }
}

TEST(Replicas, OfOneInstanceAgreeAndLoseNothing) { run_scripts(1, true); }
TEST(Replicas, OfSeveralInstancesAgreeAndLoseNothing) { run_scripts(100001, false); }

}  // namespace
}  // namespace libzentadbpp
