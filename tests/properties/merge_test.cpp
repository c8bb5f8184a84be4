// Replicas that edit apart and merge in any order must agree, lose nothing, and show nothing twice that nobody put
// twice.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "documents/document_merge.h"
#include "documents/document_queries.h"
#include "documents/storage_queries.h"
#include "replication/replicator.h"
#include "transformation/in_texts.h"

namespace libzentadbpp {
namespace {

using namespace in_texts;

std::uint64_t scripts(std::uint64_t by_default) {
    const char* wanted = std::getenv("ZENTADBPP_SCRIPTS");
    return wanted == nullptr ? by_default : std::strtoull(wanted, nullptr, 10);
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

struct Task {
    std::string id;
    std::int32_t value = 0;
};
struct List {
    std::string id;
    std::int32_t value = 0;
    std::vector<Task> tasks;
};
struct Board {
    std::int32_t title = 0;
    std::vector<List> lists;

    static Board parse(std::string_view text) {
        Arena arena;
        const JsonValue value = parse_json(text, arena);
        const auto number = [](const JsonValue& object) {
            return static_cast<std::int32_t>(object.find("v")->as_real());
        };
        const auto id = [](const JsonValue& object) { return std::string(object.find("_id")->as_string()); };
        Board board{number(value), {}};
        for (const JsonValue& list : value.find("lists")->elements()) {
            board.lists.push_back({id(list), number(list), {}});
            for (const JsonValue& task : list.find("tasks")->elements()) {
                board.lists.back().tasks.push_back({id(task), number(task)});
            }
        }
        return board;
    }

    [[nodiscard]] std::string text() const {
        const auto head = [](const std::string& id, std::int32_t v) {
            return R"({"_id": ")" + id + R"(", "v": )" + std::to_string(v);
        };
        std::string text = R"({"v": )" + std::to_string(title) + R"(, "lists": [)";
        for (const List& list : lists) {
            if (&list != lists.data()) text += ", ";
            text += head(list.id, list.value) + R"(, "tasks": [)";
            for (const Task& task : list.tasks) {
                if (&task != list.tasks.data()) text += ", ";
                text += head(task.id, task.value) + "}";
            }
            text += "]}";
        }
        return text + "]}";
    }
};

// A move of a task to another list, and which moves its writer had seen.
struct Move {
    std::string task;
    std::string to;
    std::set<std::size_t> seen;
};

struct Replica {
    std::string name;
    std::string config;
    std::string text;
    std::set<std::size_t> seen;  // moves
};

class Script {
   public:
    Script(std::uint64_t seed, bool shared_instance, bool with_list_removal)
        : random_(seed), with_list_removal_(with_list_removal) {
        const std::size_t count = 2 + random_.below(4);
        const bool fast = random_.one_in(3);
        Board board;
        board.lists = {{"l1", 0, {}}, {"l2", 0, {}}, {"l3", 0, {}}};
        if (random_.one_in(2)) {
            for (const char* id : {"b1", "b2", "b3", "b4"}) board.lists[random_.below(3)].tasks.push_back({id, 0});
        }
        for (std::size_t i = 0; i < count; ++i) {
            const std::string instance = shared_instance ? "i" : "i" + std::to_string(i);
            replicas_.push_back(
                {std::string(1, static_cast<char>('p' + i)),
                 R"({"instance_id": ")" + instance + R"(", "force_fast_hash_only": )" + (fast ? "true}" : "false}"),
                 {},
                 {}});
            // The copies begin with equal data of their own, or as copies of the first.
            replicas_[i].text = serialized(updated({}, board.text(), replicas_[shared_instance ? i : 0].config));
        }
    }

    void run(std::size_t steps) {
        while (steps-- != 0) step();
    }

    void step() {
        Replica& replica = random_replica();
        switch (random_.below(4)) {
            case 0:
                return replicate_to(replica, random_replica());
            case 1:
                if (random_.one_in(2)) return resolve_one(replica);
                return store_order_of(replica);
            default:
                return edit(replica);
        }
    }

    // Every copy into every other, until nothing changes any more.
    void settle() {
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
        EXPECT_FALSE(changed) << "the copies do not come to rest";
    }

    void check() {
        settle();
        for (const Replica& replica : replicas_) {
            ASSERT_EQ(replica.text, replicas_[0].text);
            check_nothing_lost_or_doubled(replica);
        }
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
            // What was read can be given back without an effect.
            const Opened opened(stored);
            ASSERT_EQ(serialized(updated(opened.storage(), before, replicas_[i].config)), stored);
        }
        settle();
        for (const Replica& replica : replicas_) {
            ASSERT_EQ(replica.text, replicas_[0].text);
            check_nothing_lost_or_doubled(replica);
        }
    }

   private:
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
        target.seen.insert(source.seen.begin(), source.seen.end());
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

    void edit(Replica& replica) {
        Board board = Board::parse(read_by(replica));
        for (std::size_t changes = 1 + random_.below(3); changes-- != 0;) change(board, replica);
        const std::string data = board.text();
        {
            const Opened opened(replica.text);
            replica.text = serialized(updated(opened.storage(), data, replica.config));
        }
        EXPECT_EQ(canonical(read_by(replica)), canonical(with_root_id(data)));
    }

    static std::string with_root_id(const std::string& data) { return R"({"_id": "root", )" + data.substr(1); }

    void change(Board& board, Replica& replica) {
        const auto digit = [&] { return static_cast<std::int32_t>(random_.below(3)); };
        if (board.lists.empty() || random_.one_in(20)) {
            board.title = digit();
            return;
        }
        const std::size_t from = random_.below(board.lists.size());
        List& list = board.lists[from];
        auto& tasks = list.tasks;
        const std::size_t at = tasks.empty() ? 0 : random_.below(tasks.size());
        switch (random_.below(tasks.empty() ? 3 : 9)) {
            case 0:
                list.value = digit();
                return;
            case 1:
                if (random_.one_in(3)) {
                    const List moved = list;
                    board.lists.erase(board.lists.begin() + static_cast<std::ptrdiff_t>(from));
                    if (!with_list_removal_ || random_.one_in(2)) {
                        board.lists.insert(
                            board.lists.begin() + static_cast<std::ptrdiff_t>(random_.below(board.lists.size() + 1)),
                            moved);
                    }
                    return;
                }
                [[fallthrough]];
            case 2:
                tasks.insert(tasks.begin() + static_cast<std::ptrdiff_t>(at),
                             {replica.name + std::to_string(next_id_++), digit()});
                return;
            case 3:
                tasks.erase(tasks.begin() + static_cast<std::ptrdiff_t>(at));
                return;
            case 4:
                if (random_.one_in(4)) {
                    repeated_.insert(tasks[at].id);
                    tasks.push_back(Task(tasks[at]));
                    return;
                }
                [[fallthrough]];
            case 5:
            case 6: {
                const std::int32_t value = digit();
                for (List& each : board.lists) {
                    for (Task& task : each.tasks) {
                        if (task.id == tasks[at].id) task.value = value;
                    }
                }
                return;
            }
            default: {
                const std::size_t to = random_.below(board.lists.size());
                const Task task = tasks[at];
                for (List& each : board.lists) {
                    std::erase_if(each.tasks, [&](const Task& other) { return other.id == task.id; });
                }
                auto& there = board.lists[to].tasks;
                there.insert(there.begin() + static_cast<std::ptrdiff_t>(random_.below(there.size() + 1)), task);
                if (to != from) {
                    moves_.push_back({task.id, board.lists[to].id, replica.seen});
                    replica.seen.insert(moves_.size() - 1);
                }
            }
        }
    }

    // Concurrent moves show an element in both places, and so may a move from where only a losing list held the element.
    [[nodiscard]] bool may_be_doubled(const std::string& task) const {
        const auto of_task = [&](const Move& move) { return move.task == task; };
        return repeated_.contains(task) || std::ranges::any_of(moves_, of_task);
    }

    void check_nothing_lost_or_doubled(const Replica& replica) {
        const Board board = Board::parse(read_by(replica));
        std::map<std::string, int> shown;
        std::map<std::string, std::string> where;
        for (const List& list : board.lists) {
            ++shown[list.id];
            for (const Task& task : list.tasks) {
                ++shown[task.id];
                where[task.id] += " " + list.id;
            }
        }
        const Opened opened(replica.text);
        for (const auto& entry : opened.storage().documents()) {
            const std::string id(entry.key);
            if (id == "root" || has_ordering_id(id) || entry.value->winning().is_deleted()) continue;
            EXPECT_GE(shown[id], 1) << id << " is lost";
            if (!may_be_doubled(id)) {
                EXPECT_LE(shown[id], 1) << id << " stands in" << where[id];
            }
        }
    }

    Random random_;
    bool with_list_removal_;
    std::vector<Replica> replicas_;
    std::vector<Move> moves_;
    std::set<std::string> repeated_;
    int next_id_ = 0;
};

void run_scripts(bool shared_instance, bool with_list_removal, std::uint64_t first_seed) {
    for (std::uint64_t seed = first_seed; seed < first_seed + scripts(150); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Script script(seed, shared_instance, with_list_removal);
        script.run(10 + seed % 40);
        script.check();
        if (testing::Test::HasFailure() && !getenv("ALL")) return;
    }
}

TEST(Replicas, OfOneInstanceAgreeAndLoseNothing) { run_scripts(true, false, 1); }
TEST(Replicas, OfSeveralInstancesAgreeAndLoseNothing) { run_scripts(false, false, 100001); }

}  // namespace
}  // namespace libzentadbpp
