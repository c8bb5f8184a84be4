// Replicas that edit apart and merge in any order must agree, lose nothing, and show nothing twice that nobody put
// twice.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <map>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/error.h"
#include "documents/document_merge.h"
#include "documents/document_queries.h"
#include "documents/storage_queries.h"
#include "properties/naive.h"
#include "replication/replicator.h"
#include "transformation/in_texts.h"

namespace libzentadbpp {
namespace {

using namespace in_texts;

// Runs a script for each of some seeds, until one fails.
template <class Body>
void for_seeds(std::uint64_t first, std::uint64_t count, const Body& body) {
    const char* wanted = std::getenv("ZENTADBPP_SCRIPTS");
    if (wanted != nullptr) count = std::strtoull(wanted, nullptr, 10);
    for (std::uint64_t seed = first; seed < first + count && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        try {
            body(seed);
        } catch (const std::exception& error) {
            FAIL() << error.what();
        }
    }
}

class Random {
   public:
    explicit Random(std::uint64_t seed) : engine_(seed) {}
    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(engine_() % limit); }
    bool one_in(std::size_t n) { return below(n) == 0; }

   private:
    std::mt19937_64 engine_;
};

// ---- Hosts that work on lists of tasks -----------------------------------------------------------------------------

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
};

struct Replica {
    std::string name;
    std::string config;
    std::string text;
};

class Script {
   public:
    Script(std::uint64_t seed, bool shared_instance, bool with_list_removal)
        : random_(seed), with_list_removal_(with_list_removal) {
        const std::size_t count = 2 + random_.below(4);
        const bool fast = random_.one_in(3);
        Item board{"root", 0, {{"l1"}, {"l2"}, {"l3"}}};
        if (random_.one_in(2)) {
            for (const char* id : {"b1", "b2", "b3", "b4"}) board.items[random_.below(3)].items.push_back({id});
        }
        for (std::size_t i = 0; i < count; ++i) {
            const std::string instance = shared_instance ? "i" : "i" + std::to_string(i);
            replicas_.push_back(
                {std::string(1, static_cast<char>('p' + i)),
                 R"({"instance_id": ")" + instance + R"(", "force_fast_hash_only": )" + (fast ? "true}" : "false}"),
                 {}});
            // The copies begin with equal data of their own, or as copies of the first.
            replicas_[i].text = serialized(updated({}, board.text(), replicas_[shared_instance ? i : 0].config));
        }
    }

    void step() {
        Replica& replica = random_replica();
        switch (random_.below(8)) {
            case 0:
            case 1:
                return replicate_to(replica, random_replica());
            case 2:
                return resolve_one(replica);
            case 3:
                return store_order_of(replica);
            default:
                return edit(replica);
        }
    }

    void check() {
        ASSERT_NO_FATAL_FAILURE(settle_and_agree());
        for (std::size_t i = 0; i < replicas_.size(); ++i) {
            const std::string before = read_by(replicas_[i]);
            store_order_of(replicas_[i]);
            ASSERT_EQ(read_by(replicas_[i]), before) << "storing the order changes it";
            const std::string stored = replicas_[i].text;
            store_order_of(replicas_[i]);
            ASSERT_EQ(replicas_[i].text, stored) << "storing the order again stores something";
            if (replicas_[i].config == replicas_[0].config) {
                ASSERT_EQ(stored, replicas_[0].text);
            }
            // What was read can be given back without an effect; only what another copy put into a removed list goes.
            const Opened opened(stored);
            const DocumentStorage given_back = updated(opened.storage(), before, replicas_[i].config);
            ASSERT_EQ(read(given_back, replicas_[i].config), before);
            if (!with_list_removal_) {
                ASSERT_EQ(serialized(given_back), stored);
            }
        }
        ASSERT_NO_FATAL_FAILURE(settle_and_agree());
    }

   private:
    // Every copy into every other, until nothing changes any more.
    void settle_and_agree() {
        bool changed = true;
        for (int round = 0; changed && round < 12; ++round) {
            changed = false;
            for (Replica& target : replicas_) {
                for (const Replica& source : replicas_) {
                    const std::string before = target.text;
                    replicate_to(target, source);
                    changed = changed || target.text != before;
                }
            }
        }
        ASSERT_FALSE(changed) << "the copies do not come to rest";
        for (const Replica& replica : replicas_) {
            ASSERT_EQ(replica.text, replicas_[0].text);
            check_nothing_lost_or_doubled(replica);
        }
    }

    Replica& random_replica() { return replicas_[random_.below(replicas_.size())]; }

    static std::string read_by(const Replica& replica) {
        const Opened opened(replica.text);
        return read(opened.storage(), replica.config);
    }

    static void replicate_to(Replica& target, const Replica& source) {
        const Opened from(source.text);
        const Opened to(target.text);
        const ReplicationResult once = replicate(from.storage(), to.storage(), Takeover::share);
        target.text = serialized(once.target);
        const ReplicationResult again = replicate(from.storage(), once.target, Takeover::copy);
        EXPECT_EQ(again.missing_found, 0);
        EXPECT_EQ(serialized(again.target), target.text);
    }

    static void store_order_of(Replica& replica) {
        const Opened opened(replica.text);
        Arena arena;
        TextBuffer out;
        const auto settings = TransformationSettings::for_reading(parse_json(replica.config, arena));
        replica.text = serialized(read_and_reorder(opened.storage(), settings, out));
    }

    void resolve_one(Replica& replica) {
        const Opened opened(replica.text);
        const std::vector<std::string> ids = unresolved(opened.storage());
        if (ids.empty()) return;
        const DocumentRef& document = *opened.storage().documents().find(ids[random_.below(ids.size())]);
        const std::vector<std::string> leafs = leaf_revisions(*document);
        const std::string& leaf = leafs[random_.below(leafs.size())];
        replica.text = serialized(resolve(opened.storage(), document, Revision(leaf)));
        const Opened resolved(replica.text);
        const auto left = leaf_revisions(**resolved.storage().documents().find(document->id()));
        if (Revision(leaf).is_deleted()) return;
        EXPECT_TRUE(std::ranges::find(left, leaf) == left.end()) << document->id() << " keeps " << leaf;
    }

    static Item board_of(const Replica& replica) {
        Arena arena;
        return Item::parse(parse_json(read_by(replica), arena));
    }

    void edit(Replica& replica) {
        Item board = board_of(replica);
        for (std::size_t changes = 1 + random_.below(3); changes-- != 0;) change(board, replica);
        const std::string data = board.text();
        const Opened opened(replica.text);
        replica.text = serialized(updated(opened.storage(), data, replica.config));
        EXPECT_EQ(read_by(replica), canonical(data));
    }

    void insert(std::vector<Item>& items, const Item& item) {
        items.insert(items.begin() + static_cast<std::ptrdiff_t>(random_.below(items.size() + 1)), item);
    }

    void change(Item& board, const Replica& replica) {
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
            insert(tasks, {replica.name + std::to_string(next_id_++), digit});
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
                for (Item& each : lists)
                    std::erase_if(each.items, [&](const Item& other) { return other.id == task.id; });
                insert(there.items, task);
                if (&there != &*list) may_be_doubled_.insert(task.id);
            }
        }
    }

    // The documents that a list of a shown array names, in whatever revision: these must be shown while they live.
    static std::set<std::string> owed(const DocumentStorage& storage) {
        std::set<std::string> ids;
        Arena arena;
        const auto parsed = [&](const TreeRevision& revision) {
            return parse_json(storage.data().read_object(revision.datahash()), arena);
        };
        std::set<std::string> shown;
        for (const auto& entry : storage.documents()) {
            if (has_ordering_id(entry.key) || entry.value->winning().is_deleted()) continue;
            for (const auto& [key, value] : parsed(entry.value->winning()).members()) {
                if (value.is_string()) shown.insert(std::string(value.as_string().substr(1)));
            }
        }
        for (const auto& entry : storage.documents()) {
            if (!has_ordering_id(entry.key)) continue;
            for (const TreeRevision& revision : entry.value->revisions()) {
                if (DataStorage::is_reserved(revision.datahash())) continue;
                const JsonValue list = parsed(revision);
                if (!shown.contains(std::string(list.find("d")->as_string()))) continue;
                for (const JsonValue& id : list.find("s")->elements()) ids.emplace(id.as_string());
            }
        }
        return ids;
    }

    void check_nothing_lost_or_doubled(const Replica& replica) {
        std::map<std::string, int> shown;
        for (const Item& list : board_of(replica).items) {
            ++shown[list.id];
            for (const Item& task : list.items) ++shown[task.id];
        }
        const Opened opened(replica.text);
        for (const std::string& id : owed(opened.storage())) {
            const MultiVersionDocument* document = opened.storage().find(id);
            if (document == nullptr || document->winning().is_deleted()) continue;
            EXPECT_GE(shown[id], 1) << id << " is lost";
            if (!may_be_doubled_.contains(id)) {
                EXPECT_EQ(shown[id], 1) << id << " is doubled";
            }
        }
    }

    Random random_;
    bool with_list_removal_;
    std::vector<Replica> replicas_;
    std::set<std::string> may_be_doubled_;  // a writer repeated them or moved them to another list
    int next_id_ = 0;
};

void run_scripts(std::uint64_t first_seed, bool shared_instance) {
    for_seeds(first_seed, 150, [&](std::uint64_t seed) {
        Script script(seed, shared_instance, seed % 2 == 0);
        for (std::uint64_t steps = 10 + seed % 40; steps-- != 0;) script.step();
        script.check();
    });
}

TEST(Replicas, OfOneInstanceAgreeAndLoseNothing) { run_scripts(1, true); }
TEST(Replicas, OfSeveralInstancesAgreeAndLoseNothing) { run_scripts(100001, false); }

// ---- One document ---------------------------------------------------------------------------------------------------

DocumentRef merged(const DocumentRef& target, const DocumentRef& source) {
    const MergedDocument merge = merge_documents(*target, *source);
    return merge.document != nullptr ? merge.document : target;
}

naive::Tree naive_tree(const DocumentRef& document) { return naive::tree_of(document->history()); }

// Copies that changed one document apart, with few contents, so that they often come to the same one on different ways.
std::vector<DocumentRef> random_copies(Random& random, bool is_ordering) {
    constexpr std::string_view hashes[] = {"a", "b", "c", "aaaaaaa1", "aaaaaaa2", deleted_hash};
    std::vector<DocumentRef> copies;
    for (int i = 0; i < 4; ++i) {
        copies.push_back(is_ordering ? MultiVersionDocument::first("ord-1", hashes[random.below(3)])
                                     : MultiVersionDocument::first("d", "a"));
    }
    if (random.one_in(2)) {  // all from one conflict
        for (const char* hash : {"a", "b", "c"}) copies[0] = copies[0]->with_child(0, hash);
        for (DocumentRef& copy : copies) copy = merged(copy, copies[0]);
    }
    for (std::size_t steps = random.below(24); steps-- != 0;) {
        DocumentRef& copy = copies[random.below(copies.size())];
        const auto leafs = copy->open_leafs();
        const std::uint32_t leaf = leafs[random.below(leafs.size())];
        try {
            switch (random.below(5)) {
                case 0:
                    copy = merged(copy, copies[random.below(copies.size())]);
                    break;
                case 1:
                case 2:
                    if (leafs.size() > 1) copy = copy->with_child(leaf, resolved_hash);
                    break;
                default:
                    copy = copy->with_child(leaf, hashes[random.below(std::size(hashes))]);
            }
        } catch (const InvalidParentRevisionException&) {
            // Three ways to one content have used up the names of its child.
        }
    }
    return copies;
}

void check_merge(const DocumentRef& a, const DocumentRef& b) {
    const MergedDocument merge = merge_documents(*a, *b);
    const naive::Merge expected = naive::merged(naive_tree(a), naive_tree(b));
    const DocumentRef both = merged(a, b);
    ASSERT_EQ(naive_tree(both), expected.tree);
    ASSERT_EQ(merge.added, expected.added);
    ASSERT_EQ(merged(b, a)->history(), both->history()) << "not commutative";
    ASSERT_TRUE(both->has_winning());
    for (const DocumentRef& known : {a, b, both}) {
        const MergedDocument again = merge_documents(*both, *known);
        ASSERT_EQ(again.added, 0) << "not idempotent";
        ASSERT_EQ(again.document, nullptr) << "not idempotent";
    }
}

void check_three(const DocumentRef& a, const DocumentRef& b, const DocumentRef& c) {
    const DocumentRef ab = merged(a, b);
    const DocumentRef bc = merged(b, c);
    const DocumentRef left = merged(ab, c);
    const DocumentRef right = merged(a, bc);
    bool names_met = false;
    for (const auto& [target, source] : {std::pair(a, b), std::pair(b, c), std::pair(ab, c), std::pair(a, bc)}) {
        names_met = names_met || naive::merged(naive_tree(target), naive_tree(source)).names_met;
    }
    if (!names_met) {
        ASSERT_EQ(left->history(), right->history()) << "not associative";
    }
    const DocumentRef settled = merged(left, right);
    for (const DocumentRef& known : {a, b, c, ab, bc, left, right}) {
        ASSERT_EQ(merge_documents(*settled, *known).document, nullptr) << "does not settle";
    }
}

TEST(MergeDocuments, IsTheUnionInAnyOrder) {
    for_seeds(1, 3000, [](std::uint64_t seed) {
        Random random(seed);
        const auto copies = random_copies(random, seed % 3 == 0);
        for (const DocumentRef& a : copies) {
            for (const DocumentRef& b : copies) ASSERT_NO_FATAL_FAILURE(check_merge(a, b));
        }
        ASSERT_NO_FATAL_FAILURE(check_three(copies[0], copies[1], copies[2]));
        ASSERT_NO_FATAL_FAILURE(check_three(copies[3], copies[1], copies[0]));
    });
}

}  // namespace
}  // namespace libzentadbpp
