// Copies of one board that are edited apart, exchanged in every way, and settle: they must agree, lose nothing, show
// nothing twice that nobody put twice, and be all the time what the naive model says.

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "c_api/zenta.h"
#include "integrity.h"
#include "properties/naive.h"
#include "properties/seeds.h"

namespace libzentadbpp {
namespace {

using namespace c_api;
using Ids = std::set<std::string>;

// A board (the root) of lists of tasks.
struct Item {
    std::string id;
    std::int32_t value = 0;
    std::vector<Item> items = {};

    static Item parse(const JsonValue& json) {
        Item item{std::string(json.find("_id")->as_string()), static_cast<std::int32_t>(json.find("v")->as_real())};
        if (const JsonValue* items = json.find("items")) {
            for (const JsonValue& inside : items->elements()) item.items.push_back(parse(inside));
        }
        return item;
    }

    // The lower items of a task are left out.
    [[nodiscard]] std::string text(int levels = 2) const {
        std::string inside;
        for (const Item& item : items) inside += (inside.empty() ? "" : ", ") + item.text(levels - 1);
        if (levels > 0) inside = R"("items": [)" + inside + "], ";
        return R"({"_id": ")" + id + "\", " + inside + R"("v": )" + std::to_string(value) + "}";
    }

    // How often each is shown, and with which value.
    void count(std::map<std::string, int>& shown, std::map<std::string, int>& values) const {
        ++shown[id];
        values[id] = value + 1;
        for (const Item& item : items) item.count(shown, values);
    }
};

struct Copy {
    std::string name;
    std::string config;
    std::string text;
    naive::Storage model;
};

class Script {
   public:
    Script(std::uint64_t seed, bool shared_instance, bool with_list_removal)
        : random_(seed), with_list_removal_(with_list_removal) {
        const std::size_t count = 2 + random_.below(5);
        const std::string fast = random_.one_in(3) ? "true" : "false";
        Item board{"root", 0, {{"l1"}, {"l2"}, {"l3"}}};
        if (random_.one_in(2)) {
            for (const char* id : {"b1", "b2", "b3", "b4"}) board.items[random_.below(3)].items.push_back({id});
        }
        for (std::size_t i = 0; i < count; ++i) {
            const std::string instance = shared_instance ? "i" : "i" + std::to_string(i);
            copies_.push_back({std::string(1, static_cast<char>('p' + i)),
                               R"({"instance_id": ")" + instance + R"(", "force_fast_hash_only": )" + fast + "}",
                               {},
                               {}});
            // The copies begin with equal data of their own, or as copies of the first.
            const std::string& config = copies_[shared_instance ? i : 0].config;
            copies_[i].text = taken(update_sync_json(board.text().c_str(), "{}", config.c_str())).text();
            copies_[i].model = naive::storage_of(copies_[i].text);
        }
    }

    void step() {
        Copy& copy = random_copy();
        const std::size_t what = random_.below(24);
        if (what < 6) return replicate(random_copy(), copy);
        if (what < 8) return settle_conflict(copy);
        if (what < 10) return store_order_of(copy);
        if (what == 10) return keep_winners(copy);
        if (what == 11) return prune(copy);
        if (what == 12) return exchange(random_copy(), copy);
        if (what == 13) return check_laws();
        edit(copy);
    }

    void check() {
        check_laws();
        ASSERT_NO_FATAL_FAILURE(settle_and_agree());
        for (Copy& copy : copies_) {
            const std::string before = read(copy);
            store_order_of(copy);
            const std::string stored = copy.text;
            store_order_of(copy);
            ASSERT_EQ(copy.text, stored) << "storing the order again stores something";
            if (copy.config == copies_[0].config) {
                ASSERT_EQ(stored, copies_[0].text);
            }
            // What was read can be given back without an effect; only what another copy put into a removed list goes.
            const std::string given_back = updated(copy, before);
            ASSERT_EQ(taken(read_sync_json(given_back.c_str(), copy.config.c_str())).text(), before);
            if (!with_list_removal_) {
                ASSERT_EQ(given_back, stored);
            }
        }
        ASSERT_NO_FATAL_FAILURE(settle_and_agree());
    }

   private:
    Copy& random_copy() { return copies_[random_.below(copies_.size())]; }

    static std::string read(const Copy& copy) {
        return taken(read_sync_json(copy.text.c_str(), copy.config.c_str())).text();
    }

    static Item board_of(const Copy& copy) {
        Arena arena;
        return Item::parse(parse_json(read(copy), arena));
    }

    // One operation on a sync JSON: by text, by compressed text, or by handle.
    template <class ByText, class ByHandle, class... Rest>
    std::string in_some_way(const std::string& text, ByText by_text, ByHandle by_handle, Rest... rest) {
        const std::size_t way = random_.below(4);
        if (way == 0) return uncompressed(taken(by_text(compressed(text).c_str(), rest...)).text());
        if (way == 1) return taken(by_handle(open(text).handle.get(), rest...)).text();
        return taken(by_text(text.c_str(), rest...)).text();
    }

    std::string updated(const Copy& copy, const std::string& data) {
        const char* config = copy.config.c_str();
        return in_some_way(
            copy.text, [&](const char* text) { return update_sync_json(data.c_str(), text, config); },
            [&](sync_json_ptr handle) { return update_sync_json_ptr(data.c_str(), handle, config); });
    }

    std::string merged(const std::string& source, const std::string& target) {
        const Answer from = open(source);
        return in_some_way(
            target, [&](const char* text) { return replicate_sync_json(source.c_str(), text, "{}"); },
            [&](sync_json_ptr handle) { return replicate_sync_json_ptr(from.handle.get(), handle, "{}"); });
    }

    static void expect_model(const Copy& copy) { ASSERT_EQ(naive::storage_of(copy.text), copy.model) << copy.text; }

    void replicate(const Copy& source, Copy& target) {
        const naive::Storage both = naive::merged(target.model, source.model);
        target.text = merged(source.text, target.text);
        target.model = both;
        expect_model(target);
        EXPECT_EQ(merged(source.text, target.text), target.text) << "replicating again changes something";
    }

    // By a server that is sent the winners and gives them to the other.
    void exchange(Copy& source, Copy& target) {
        store_order_of(source);
        const std::string body = in_some_way(source.text, sync_json_to_bulk_docs, sync_json_ptr_to_bulk_docs);
        const std::string answer = as_bulk_get_answer(body);
        const bool by_value = random_.one_in(2);
        const Answer got = by_value ? taken(sync_json_from_bulk_get(answer.c_str(), R"({"compressed": true})"))
                                    : taken(sync_json_ptr_from_bulk_get(answer.c_str(), "{}"));
        const Copy server{"", "", uncompressed(got.text()), naive::exchanged(source.model)};
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
        const auto leafs = naive::leafs(tree);
        const auto leaf = *std::next(leafs.begin(), static_cast<std::ptrdiff_t>(random_.below(leafs.size())));
        const std::string rev = naive::text_of(leaf);
        copy.text = in_some_way(copy.text, sync_json_resolve, sync_json_ptr_resolve, id.c_str(), rev.c_str());
        if (naive::hash_of(leaf) != "deleted") naive::add(tree, leaf, "resolved");
        expect_model(copy);
    }

    void keep_winners(Copy& copy) {
        store_order_of(copy);
        const std::string before = read(copy);
        copy.text = in_some_way(copy.text, sync_json_all_winning, sync_json_ptr_all_winning);
        copy.model = naive::all_winning(copy.model);
        expect_model(copy);
        EXPECT_EQ(read(copy), before) << "what won is not all that shows";
    }

    // Drops old contents of documents without branches.
    void prune(Copy& copy) {
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
        EXPECT_EQ(read(copy), before);
    }

    // Takes over what an operation of the host made: one more revision, at most, for each document that `changes`
    // holds, on top of its winner (two where its name was taken). Other documents stay.
    static void adopt(Copy& copy, const std::string& text, const std::function<bool(const std::string&)>& changes) {
        naive::Storage now = naive::storage_of(text);
        for (const auto& [id, tree] : now.documents) {
            const auto known = copy.model.documents.find(id);
            const bool is_new = known == copy.model.documents.end();
            if (!is_new && known->second == tree) continue;
            ASSERT_TRUE(changes(id)) << id;
            naive::Tree expected = is_new ? naive::Tree() : known->second;
            naive::add(expected, is_new ? naive::Revision() : naive::winner(expected),
                       naive::hash_of(naive::winner(tree)));
            ASSERT_EQ(tree, expected) << id;
        }
        ASSERT_EQ(naive::merged(copy.model, now), now) << "something is gone";
        copy.text = text;
        copy.model = std::move(now);
    }

    static void store_order_of(Copy& copy) {
        const std::string before = read(copy);
        const Handle handle = open(copy.text).handle;
        EXPECT_EQ(taken(read_sync_json_ptr(handle.get(), copy.config.c_str())).text(), before);
        adopt(copy, *dump(handle), [](const std::string& id) { return id.starts_with("ord-"); });
        EXPECT_EQ(read(copy), before) << "storing the order changes it";
    }

    void edit(Copy& copy) {
        const Item before = board_of(copy);
        Item board = before;
        for (std::size_t changes = 1 + random_.below(3); changes-- != 0;) change(board, copy);
        std::map<std::string, int> shown, old_values, values;
        before.count(shown, old_values);
        board.count(shown, values);
        const std::string text = updated(copy, board.text());
        Item read_back = board_of({copy.name, copy.config, text, {}});
        set_doubled_apart(board, read_back);
        EXPECT_EQ(read_back.text(), board.text());
        adopt(copy, text, [&](const std::string& id) {
            if (id.starts_with("ord-") || (with_list_removal_ && !shown.contains(id))) return true;
            return old_values[id] != values[id];
        });
    }

    // What is written into two lists may be read from one of them only, where an open leaf had moved it out of the
    // other.
    static void set_doubled_apart(Item& written, Item& read_back) {
        std::map<std::string, int> lists_of, shown, values;
        for (const Item& list : written.items) {
            Ids inside;
            for (const Item& task : list.items) inside.insert(task.id);
            for (const std::string& id : inside) ++lists_of[id];
        }
        read_back.count(shown, values);
        for (const auto& [id, lists] : lists_of) {
            if (lists < 2) continue;
            EXPECT_GE(shown[id], 1) << id << " is lost";
            for (Item* board : {&written, &read_back}) {
                for (Item& list : board->items) remove(list, id);
            }
        }
    }

    static void remove(Item& list, const std::string& id) {
        std::erase_if(list.items, [&](const Item& task) { return task.id == id; });
    }

    void insert(std::vector<Item>& items, const Item& item) {
        items.insert(items.begin() + static_cast<std::ptrdiff_t>(random_.below(items.size() + 1)), item);
    }

    void change(Item& board, const Copy& copy) {
        const auto digit = static_cast<std::int32_t>(random_.below(3));
        auto& lists = board.items;
        if (lists.empty() || random_.one_in(20)) {
            board.value = digit;
            return;
        }
        const auto list = lists.begin() + static_cast<std::ptrdiff_t>(random_.below(lists.size()));
        auto& tasks = list->items;
        const std::size_t what = random_.below(tasks.empty() ? 3 : 9);
        if (what == 0) {
            list->value = digit;
        } else if (what == 1 && random_.one_in(3)) {
            const Item moved = *list;
            lists.erase(list);
            if (!with_list_removal_ || random_.one_in(2)) insert(lists, moved);
        } else if (what <= 2) {
            insert(tasks, {copy.name + std::to_string(next_id_++), digit});
        } else {
            const auto at = tasks.begin() + static_cast<std::ptrdiff_t>(random_.below(tasks.size()));
            const Item task = *at;
            if (what == 3) {
                tasks.erase(at);
            } else if (what == 4 && random_.one_in(4)) {
                may_be_doubled_.insert(task.id);
                tasks.push_back(task);
            } else if (what <= 6) {
                for (Item& each : lists) {
                    for (Item& other : each.items) {
                        if (other.id == task.id) other.value = digit;
                    }
                }
            } else {
                Item& there = lists[random_.below(lists.size())];
                for (Item& each : lists) remove(each, task.id);
                insert(there.items, task);
                if (&there != &*list) may_be_doubled_.insert(task.id);
            }
        }
    }

    // Every copy into every other, in any order, until nothing changes any more.
    void settle_and_agree() {
        bool changed = true;
        for (int round = 0; changed && round < 12; ++round) {
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
            for (const auto& finding : zentadb::check_integrity(copy.text).findings) {
                EXPECT_FALSE(is_damage(finding.trouble)) << describe(finding) << '\n' << copy.text;
            }
        }
    }

    // The documents that a list of a shown array names, in whatever revision: these must be shown while they live.
    static Ids owed(const naive::Storage& storage) {
        Arena arena;
        Ids shown;
        Ids ids;
        for (const auto& [id, tree] : storage.documents) {
            const std::string hash = naive::hash_of(naive::winner(tree));
            if (id.starts_with("ord-") || hash == "deleted") continue;
            for (const auto& [key, value] : parse_json(storage.contents.at(hash), arena).members()) {
                if (value.is_string()) shown.insert(std::string(value.as_string().substr(1)));
            }
        }
        for (const auto& [id, tree] : storage.documents) {
            if (!id.starts_with("ord-")) continue;
            for (const std::string& hash : naive::all_hashes(tree)) {
                if (!storage.contents.contains(hash)) continue;
                const JsonValue list = parse_json(storage.contents.at(hash), arena);
                if (!shown.contains(std::string(list.find("d")->as_string()))) continue;
                for (const JsonValue& element : list.find("s")->elements()) ids.emplace(element.as_string());
            }
        }
        return ids;
    }

    void check_shown(const Copy& copy) {
        std::map<std::string, int> shown, values;
        board_of(copy).count(shown, values);
        for (const std::string& id : owed(copy.model)) {
            const auto known = copy.model.documents.find(id);
            if (known == copy.model.documents.end()) continue;
            const std::string hash = naive::hash_of(naive::winner(known->second));
            if (hash == "deleted") continue;
            EXPECT_GE(shown[id], 1) << id << " is lost";
            EXPECT_EQ(member(copy.model.contents.at(hash), "v"), std::to_string(values[id] - 1)) << id;
            if (!may_be_doubled_.contains(id)) {
                EXPECT_EQ(shown[id], 1) << id << " is doubled";
            }
        }
    }

    Random random_;
    bool with_list_removal_;
    std::vector<Copy> copies_;
    Ids may_be_doubled_;  // a writer repeated them or moved them to another list
    int next_id_ = 0;
};

void run_scripts(std::uint64_t first_seed, bool shared_instance) {
    for_seeds(first_seed, 80, [&](std::uint64_t seed) {
        Script script(seed, shared_instance, seed % 2 == 0);
        for (std::uint64_t steps = 10 + seed % 40; steps-- != 0 && !testing::Test::HasFailure();) script.step();
        script.check();
    });
}

TEST(Replicas, OfOneInstanceAgreeAndLoseNothing) { run_scripts(1, true); }
TEST(Replicas, OfSeveralInstancesAgreeAndLoseNothing) { run_scripts(100001, false); }

}  // namespace
}  // namespace libzentadbpp
