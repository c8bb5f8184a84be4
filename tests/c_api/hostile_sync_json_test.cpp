#include <algorithm>
#include <ctime>
#include <functional>
#include <limits>
#include <utility>

#include "c_api/samples.h"
#include "c_api/zenta.h"

// Texts that are valid, but made to take more time, memory or result than texts of their length should.
namespace c_api {
namespace {

// A small text may stand for data without end, or for such as is left out of the result.
TEST(HostileSyncJson, WhatWouldGrowBeyondMeasureFails) {
    const std::string text(1 << 20, 'x');
    for (const std::string& large :
         {R"({"a": "!)" + text + "\"}", R"({"_id": ")" + text + R"(", "_revisions": ")" + text + "\"}"}) {
        std::string doubling = R"({"d": {"root": ["C10_first"])";
        std::string shared = R"({"d": {"root": ["C_first"])";
        std::string contents = R"(, "o": {"C50": )" + large;
        for (int i = 10; i < 50; ++i) {
            const std::string next = std::to_string(i + 1);
            doubling += ", \"" + next + R"(": ["C)" + next + "_first\"]";
            contents += R"(, "C)" + std::to_string(i) + R"(": {"a": "AD)" + next + "\"}";
            doubling += R"(, "ord-)" + next + R"(": ["L)" + next + "_first\"]";
            contents += R"(, "L)" + next + R"(": {"d": "D)" + next + R"(", "i": "default", "s": [")" + next + "\", \"" +
                        next + "\"]}";
        }
        doubling += "}" + contents + R"(}, "r": "root"})";
        for (int i = 0; i < 400; ++i) shared += ", \"" + std::to_string(i) + R"(": ["C_first"])";
        shared += R"(}, "o": {"C": )" + large + R"(}, "r": "root"})";
        EXPECT_EQ(taken(read_sync_json(doubling.c_str(), "{}")).error, "exceeded maximum result size");
        EXPECT_EQ(taken(sync_json_to_bulk_docs(shared.c_str())).error, "exceeded maximum result size");
    }
}

// Looking for arrays, and for lists of arrays that are gone, has no result that could grow.
TEST(HostileSyncJson, ContentsThatAreSharedAreLookedThroughOnce) {
    std::string set = R"({"d": {"root": ["R_first"])";
    std::string ids = "\"root\"";
    for (int i = 0; i < 50000; ++i) {
        for (const char* kind : {"", "ord-"}) set += ", \"" + (kind + std::to_string(i)) + R"(": ["C_first"])";
        ids += ", \"AD\"";
    }
    set += R"(}, "o": {"C": {"d": "D", "i": "default", "s": [)" + ids + R"(]}, "R": {}}, "r": "root"})";
    EXPECT_EQ(taken(read_sync_json(set.c_str(), "{}")).value, R"({"_id": "root"})");
    EXPECT_TRUE(taken(update_sync_json("{}", set.c_str(), "{}")).value);
}

double seconds_to_read(const std::string& content) {
    const std::string set = R"({"d": {"root": ["R_first"]}, "o": {"R": )" + content + R"(}, "r": "root"})";
    double least = std::numeric_limits<double>::max();
    for (int run = 0; run < 3; ++run) {
        const std::clock_t begin = std::clock();
        EXPECT_TRUE(taken(read_sync_json(set.c_str(), "{}")).value);
        least = std::min(least, static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC);
    }
    return least;
}

// Whether an object has one of the members that change how it is read is not looked for again at every level: here a
// key that sorts before those holds all the rest.
TEST(HostileSyncJson, WhatIsNestedIsReadOnce) {
    constexpr int levels = 190;
    std::string numbers = "[0";
    for (int i = 0; i < 200000; ++i) numbers += ", 0";
    numbers += ']';
    std::string nested = numbers;
    for (int i = 0; i < levels; ++i) nested = R"({" ": )" + nested + (i % 2 == 0 ? "}" : R"(, "#df": true})");
    EXPECT_LT(seconds_to_read(nested), 10 * seconds_to_read(R"({" ": )" + numbers + "}"));
}

// Sets in which every list, object or member wants something from every other one.
TEST(HostileSyncJson, ListsTakeNoMoreThanTheirLength) {
    constexpr int count = 20000;
    std::string documents;
    std::string contents;
    const auto document = [&](const std::string& id, const std::string& history) {
        documents += (documents.empty() ? "\"" : ", \"") + id + "\": [" + history + "]";
    };
    const auto content = [&](const std::string& hash, const std::string& text) {
        contents += (contents.empty() ? "\"" : ", \"") + hash + "\": " + text;
    };
    const auto list = [](const std::string& domain, const std::string& ids) {
        return R"({"d": ")" + domain + R"(", "i": "default", "s": [)" + ids + "]}";
    };
    const auto shown = [&] {
        const std::string set = R"({"d": {)" + documents + R"(}, "o": {)" + contents + R"(}, "r": "root"})";
        const std::string data = taken(read_sync_json(set.c_str(), "{}")).text();
        const Handle handle = open(set).handle;
        EXPECT_EQ(taken(read_sync_json_ptr(handle.get(), "{}")).text(), data);
        EXPECT_TRUE(taken(update_sync_json(data.c_str(), set.c_str(), "{}")).value);
        documents.clear();
        contents.clear();
        return static_cast<std::size_t>(std::ranges::count(data, 'I'));
    };
    std::string all;
    for (int i = 0; i < count; ++i) all += (i == 0 ? "\"I" : ", \"I") + std::to_string(i) + "\"";

    const auto root_with_list = [&] {
        document("root", R"("R_first")");
        content("R", R"({"a": "AD"})");
        content("E", "{}");
        content("B", list("D", all));
    };

    // Many short lists that begin with one long one.
    std::string leaves;
    root_with_list();
    for (int i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        document("I" + number, R"("E_first")");
        content("L" + number, list("D", "\"I" + std::to_string((i * 7 + 1) % count) + "\", \"I" + number + "\""));
        leaves += (leaves.empty() ? "\"L" : ", \"L") + number + "_B\"";
    }
    document("ord-1", R"("B_first", [)" + leaves + "]");
    EXPECT_EQ(shown(), static_cast<std::size_t>(count));

    // Objects that were moved, each with an array that another copy added to.
    root_with_list();
    document("ord-0", R"("B_first")");
    for (int i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        document("I" + number, "\"P" + number + "_first\", \"Q" + number + "_P" + number + "\"");
        content("P" + number, R"({"in": "AX)" + number + "\"}");
        content("Q" + number, R"({"in": "AY)" + number + "\"}");
        document("eI" + number, R"("E_first")");
        document("ord-1" + number, "\"S" + number + "_first\"");
        content("S" + number, list("X" + number, "\"eI" + number + "\""));
    }
    EXPECT_EQ(shown(), static_cast<std::size_t>(2 * count));

    // Objects that share what they had before, members of an object that none of them has any more.
    std::string members;
    root_with_list();
    document("ord-0", R"("B_first")");
    for (int i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        document("I" + number, R"("H_first", "W)" + number + "_H\"");
        content("W" + number, R"({"n": )" + number + "}");
        document("m" + number, R"("E_first")");
        members += (members.empty() ? "\"k" : ", \"k") + number + R"(": "Om)" + number + "\"";
    }
    content("H", R"({"in": {)" + members + "}}");
    EXPECT_EQ(shown(), static_cast<std::size_t>(count));
}

// Written entry by entry.
struct Set {
    std::string documents;
    std::string contents;

    Set& document(const std::string& id, const std::string& history) {
        documents += (documents.empty() ? "\"" : ", \"") + id + "\": [" + history + "]";
        return *this;
    }
    Set& content(const std::string& hash, const std::string& text) {
        contents += (contents.empty() ? "\"" : ", \"") + hash + "\": " + text;
        return *this;
    }
    Set& list(const std::string& hash, const std::string& domain, const std::string& ids,
              const std::string& instance = "default") {
        return content(hash, R"({"d": ")" + domain + R"(", "i": ")" + instance + R"(", "s": [)" + ids + "]}");
    }
    [[nodiscard]] std::string text() const {
        return R"({"d": {)" + documents + R"(}, "o": {)" + contents + R"(}, "r": "root"})";
    }
};

// One, two, three ... of a text, in which '#' is the number and '+' the next one.
std::string numbered(int count, std::string_view pattern, std::string_view separator = ", ") {
    std::string all;
    for (int i = 0; i < count; ++i) {
        if (i != 0) all += separator;
        for (const char c : pattern) {
            if (c == '#' || c == '+') {
                all += std::to_string(c == '#' ? i : i + 1);
            } else {
                all += c;
            }
        }
    }
    return all;
}

double seconds_of(const std::function<bool()>& call) {
    const std::clock_t begin = std::clock();
    EXPECT_TRUE(call());
    return static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
}

// Sets in which each of many documents, revisions, lists or instances meets each of many others. To read them takes a
// few times what it takes to open them; if each pair were looked at, hundreds of times.
TEST(HostileSyncJson, PairsAreNotLookedAt) {
    constexpr int count = 40000;
    const auto each = [](Set& set, const std::function<void(Set&, const std::string&)>& add) {
        for (int i = 0; i < count; ++i) add(set, std::to_string(i));
    };
    const std::string all_ids = numbered(count, "\"e#\"");
    std::vector<std::pair<const char*, Set>> sets;

    sets.emplace_back("leaves below a chain of empty revisions",
                      Set()
                          .document("root", R"("R_first")")
                          .content("R", "{}")
                          .document("ord-1", R"("A_first", "empty_A", )" + numbered(count, R"("empty_empty")") + ", [" +
                                                 numbered(count, R"("B_e#")") + "]")
                          .list("A", "D", R"("root")")
                          .list("B", "D", ""));

    Set domains;
    domains.document("root", R"("R_first")").content("R", "{}").list("A", "D", R"("root")");
    domains.document("ord-1", R"("A_first", [)" + numbered(count, R"("B#_A")") + "]");
    each(domains, [](Set& set, const std::string& i) { set.list("B" + i, "D" + i, R"("root")"); });
    sets.emplace_back("leaves of different arrays", domains);

    Set instances;
    instances.document("root", R"("R_first", "S_R")").document("lost", R"("E_first")");
    instances.content("R", "{" + numbered(count, R"("m#": "Oe#")") + "}").content("E", "{}");
    instances.content("S", "{" + numbered(count, R"("a#": "AD#")") + "}");
    each(instances, [](Set& set, const std::string& i) {
        set.document("e" + i, R"("E_first")");
        set.document("ord-" + i, "\"L" + i + R"(_first")").list("L" + i, "D" + i, R"("root")", "instance " + i);
    });
    sets.emplace_back("instances, arrays and lost members", instances);

    Set short_ones;
    short_ones.document("root", R"("Q_first", )" + numbered(count, R"("Q#_Q")") + R"(, "R_Q")");
    short_ones.document("lost", R"("E_first")").content("E", "{}");
    short_ones.document("ord-0", R"("L_first")").list("L", "Q", R"("lost")");
    short_ones.content("Q", R"({"z": "AQ"})").content("R", "{" + numbered(count, R"("m#": 1)") + R"(, "z": "AR"})");
    each(short_ones, [](Set& set, const std::string& i) { set.content("Q" + i, R"({"z": "AQ)" + i + "\"}"); });
    sets.emplace_back("short revisions before a long one", short_ones);

    Set shared;
    shared.document("root", R"("R_first")").document("lost", R"("E_first")").content("E", "{}");
    shared.content("R", R"({"p": "AP"})").document("ord-0", R"("P_first")").list("P", "P", all_ids);
    shared.document("ord-1", R"("L_first")").list("L", "L", R"("lost")");
    shared.content("long", "{" + numbered(count, R"("m#": 1)") + R"(, "z": "AL"})");
    each(shared, [](Set& set, const std::string& i) {
        set.document("e" + i, R"("long_first", "S)" + i + R"(_long")").content("S" + i, R"({"z": "AS)" + i + "\"}");
    });
    sets.emplace_back("a long content that documents had before", shared);

    for (const bool is_shared : {false, true}) {
        Set moved;
        moved.document("root", R"("Q_first", )" + numbered(count, R"("Q#_Q")") + R"(, "R_Q")");
        moved.content("Q", R"({"p": "AD"})").content("R", R"({"p": "AX"})").content("E", "{}");
        moved.list("X", "X", is_shared ? R"("e0")" : all_ids).document("ord-0", R"("X_first")");
        moved.list("Y", "Y", is_shared ? all_ids : R"("e0")").document("ord-1", R"("Y_first")");
        each(moved, [&](Set& set, const std::string& i) {
            set.document("e" + i, R"("E_first")").content("Q" + i, R"({"p": "AD)" + i + "\"}");
            set.list("S" + i, "D" + i, "\"e" + i + "\"");
            set.document("ord-2" + i, is_shared ? R"("Y_first", "S)" + i + R"(_Y")" : "\"S" + i + R"(_first")");
        });
        sets.emplace_back(is_shared ? "lists that were one before" : "lists of which one took the place", moved);
    }

    Set forked;
    forked.document("root", R"("R_first")").content("R", R"({"p": "AP"})").content("E", "{}");
    forked.document("ord-0", R"("P_first")").list("P", "P", all_ids);
    forked.list("L", "Y", all_ids).list("S", "Y", R"("e0")");
    each(forked, [](Set& set, const std::string& i) {
        set.document("e" + i, R"("E_first")").document("ord-2" + i, R"("S_first", ["L_S", "S_S"])");
    });
    sets.emplace_back("documents that fork to one long list", forked);

    const std::string long_text = numbered(20 * count, "i", "");
    Set instance;
    instance.document("root", R"("R_first")").content("R", R"({"p": "AP"})");
    instance.document("lost", R"("E_first")").content("E", "{}");
    for (const char* const name : {"L", "M"}) instance.list(name, "D", R"("lost")", long_text + name);
    each(instance, [](Set& set, const std::string& i) {
        set.document("ord-1" + i, R"("L_first")").document("ord-2" + i, R"("M_first")");
    });
    sets.emplace_back("a long instance that lists share", instance);

    for (const auto& [name, set] : sets) {
        const std::string text = set.text();
        Handle handle;
        const double opening = seconds_of([&] { return (handle = open(text).handle) != nullptr; });
        const double reading =
            seconds_of([&] { return taken(read_sync_json_ptr(handle.get(), "{}")).value.has_value(); });
        EXPECT_LT(reading, 50 * opening) << name;
    }
}

// The same for updates.
TEST(HostileSyncJson, UpdatesLookAtNoPairs) {
    constexpr int count = 20000;
    struct Update {
        const char* name;
        Set set;
        std::string data;
    };
    std::vector<Update> updates;

    Set leaves;
    leaves.document("root", R"("R_first", "S_R", [)" + numbered(count, R"("L#_S")") + "]")
        .document("gone", R"("E_first")");
    leaves.content("R", R"({"m": "Ogone"})").content("S", R"({"m": "Ogone", "n": 1})").content("E", "{}");
    for (int i = 0; i < count; ++i) leaves.content("L" + std::to_string(i), R"({"n": )" + std::to_string(i) + "}");
    updates.push_back({"leaves of one document", leaves, "{}"});

    Set repeated;
    const std::string ids = numbered(count, "\"e#\"");
    repeated.document("root", R"("R_first")").content("R", R"({"p": "AP", "q": "AQ"})").content("E", "{}");
    repeated.document("ord-0", R"("P_first")")
        .list("P", "P", ids)
        .document("ord-1", R"("Q_first")")
        .list("Q", "Q", ids);
    repeated.content("long", R"({"a": "!)" + numbered(20 * count, "i", "") + "\"}");
    for (int i = 0; i < count; ++i) repeated.document("e" + std::to_string(i), R"("long_first", "E_long")");
    const std::string elements = numbered(count, R"({"_id": "e#"})");
    updates.push_back({"elements in two lists, with one long content that they had before", repeated,
                       R"({"p": [)" + elements + R"(], "q": [)" + elements + "]}"});

    for (const auto& [name, set, data] : updates) {
        const std::string text = set.text();
        Handle handle;
        const double opening = seconds_of([&] { return (handle = open(text).handle) != nullptr; });
        const double updating = seconds_of([&, &data = data] {
            return taken(update_sync_json_ptr(data.c_str(), handle.get(), "{}")).handle != nullptr;
        });
        EXPECT_LT(updating, 50 * opening) << name;
    }
}

// The first read after a merge takes over what the one before learned, and reads what documents share once as well.
TEST(HostileSyncJson, WhatIsTakenOverIsLookedAtOnce) {
    constexpr int count = 10000;
    const auto set = [](const char* history, const char* last, const std::string& content) {
        Set result;
        result.document("root", R"("R_first")").document("gone", R"("E_first", "deleted_E")").document("last", last);
        result.content("R", R"({"p": "AP"})").content("E", "{}");
        if (!content.empty()) result.content("C", content);
        result.list("P", "P", numbered(count, "\"e#\"") + R"(, "last")");
        for (int i = 0; i < count; ++i) {
            const std::string number = std::to_string(i);
            result.document("e" + number, history).document("ord-" + number, R"("P_first")");
        }
        return result.text();
    };
    const std::string before = set(R"("E_first")", R"("E_first")", "");
    const std::string references = "{" + numbered(count, R"("m#": "Ogone")") + "}";
    const std::pair<const char*, std::string> merged[] = {
        {"a changed content", set(R"("E_first", "C_E")", R"("E_first")", references)},
        {"a list of what is gone", set(R"("E_first")", R"("E_first", "deleted_E")", "")},
    };
    for (const auto& [name, text] : merged) {
        Handle source;
        const double opening = seconds_of([&, &text = text] { return (source = open(text).handle) != nullptr; });
        const Handle target = open(before).handle;
        EXPECT_TRUE(taken(read_sync_json_ptr(target.get(), R"({"preserve_old_ordering": true})")).value);
        const Handle both = std::move(taken(replicate_sync_json_ptr(source.get(), target.get(), "{}")).handle);
        const double reading = seconds_of(
            [&] { return taken(sync_json_ptr_data(both.get(), "e0", "1-E_first", "{}")).value.has_value(); });
        EXPECT_LT(reading, 10 * opening) << name;
    }
}

// Elements that show once, in an array of many documents: all but the first of these would pass over all of them.
TEST(HostileSyncJson, PassingOverElementsIsLimited) {
    constexpr int count = 30000;
    Set set;
    set.document("root", R"("R_first")")
        .document("once", R"("E_first")")
        .content("R", R"({"p": "AP"})")
        .content("E", "{}");
    set.content("D", R"({"a": "AX"})").content("I", R"({"m": "Oonce"})");
    set.document("ord-p", R"("P_first")").list("P", "P", numbered(count, "\"d#\""));
    set.document("ord-x", R"("X_first")").list("X", "X", numbered(count, "\"e#\""));
    for (int i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        set.document("d" + number, R"("D_first")").document("e" + number, R"("I_first")");
    }
    EXPECT_EQ(taken(read_sync_json(set.text().c_str(), "{}")).error, "exceeded maximum result size");
}

// Whether a document is an ordering document is looked for once in each content, however long its first members are.
TEST(HostileSyncJson, LongDomainsAreReadOnce) {
    constexpr int count = 8000;
    const std::string long_text = numbered(8 * count, "\\n", "");
    Set set;
    set.document("root", R"("R_first")").content("R", "{}");
    set.list("L", long_text, R"("root")").list("M", long_text + "#", R"("root")");
    set.content("N", R"({"a": ")" + long_text + "\"}").content("O", R"({"b": ")" + long_text + "\"}");
    for (int i = 0; i < count; ++i) {
        set.document("ord-1" + std::to_string(i), R"("L_first", ["L_L", "M_L"])");
        set.document("ord-2" + std::to_string(i), R"("N_first", ["N_N", "O_N"])");
    }
    const std::string text = set.text();
    Handle handle;
    const double opening = seconds_of([&] { return (handle = open(text).handle) != nullptr; });
    const std::vector<std::pair<const char*, std::function<bool()>>> calls{
        {"unresolved", [&] { return taken(sync_json_ptr_unresolved(handle.get())).value.has_value(); }},
        {"prune", [&] { return taken(sync_json_ptr_prune(handle.get(), 1, false)).handle != nullptr; }},
        {"update", [&] { return taken(update_sync_json_ptr("{}", handle.get(), "{}")).handle != nullptr; }},
    };
    for (const auto& [name, call] : calls) EXPECT_LT(seconds_of(call), 50 * opening) << name;
}

// What an update changes about the lists of arrays that are gone stays in proportion to what it is given.
TEST(HostileSyncJson, ListsAreNotStoredForEachOther) {
    constexpr int count = 8000;
    const std::string p = "x1997517980";  // the domains of two members of the root
    const std::string q = "x2562972595";
    Set set;
    set.document("root", R"("Q_first", )" + numbered(count, R"("Q#_Q")") + R"(, "R_Q")");
    set.content("Q", "{}").content("R", R"({"p": "A)" + p + R"(", "q": "A)" + q + "\"}").content("E", "{}");
    for (int i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        set.document("e" + number, R"("E_first")").content("Q" + number, R"({"p": "AD)" + number + "\"}");
        set.document("ord-" + number, "\"S" + number + R"(_first", "T)" + number + "_S\"");
        set.list("S" + number, "D" + number, "\"e" + number + "\"").list("T" + number, "D" + number, "");
    }
    const std::string data = R"({"p": [)" + numbered(count, R"({"_id": "e#"})") + R"(], "q": [{"_id": "e0"}]})";
    const auto updated =
        taken(update_sync_json(data.c_str(), set.text().c_str(), R"({"force_fast_hash_only": true})")).text();
    EXPECT_LT(updated.size(), 100 * set.text().size());
}

// How often a set could be opened while it is read for the first time.
double openings_in_a_read(const std::string& set) {
    Handle handle;
    const double opening = seconds_of([&] { return (handle = open(set).handle) != nullptr; });
    const double reading = seconds_of([&] {
        return taken(read_sync_json_ptr(handle.get(), R"({"preserve_old_ordering": true})")).value.has_value();
    });
    return reading / opening;
}

// Members that a document lost are given back below keys of any length.
TEST(HostileSyncJson, LostMembersShareTheKeysAboveThem) {
    constexpr int count = 30000;
    const std::string long_key(std::size_t{40} * count, 'k');
    const auto below = [&](const std::string& members) { return "{\"" + long_key + "\": {" + members + "}}"; };
    const std::pair<const char*, std::string> winning[] = {{"members come back", R"("more": 1)"},
                                                           {"members have no room", numbered(count, R"("m#": 1)")}};
    for (const auto& [name, members] : winning) {
        const std::string set = R"({"d": {"root": ["P_first", "R_P"], )" + numbered(count, R"("e#": ["E_first"])") +
                                R"(}, "o": {"E": {}, "P": )" + below(numbered(count, R"("m#": "Oe#")")) + R"(, "R": )" +
                                below(members) + R"(}, "r": "root"})";
        EXPECT_LT(openings_in_a_read(set), 20) << name;
    }
}

// An array took the place of many, and the documents of all of these are to keep what it has.
TEST(HostileSyncJson, ArraysKeepOneListForThoseWhosePlaceTheyTook) {
    constexpr int count = 2500;
    const auto lists = [](std::string_view hash, std::string_view ids) {
        return numbered(
            count, "\"" + std::string(hash) + R"(#": {"d": "D#", "i": "default", "s": [)" + std::string(ids) + "]}");
    };
    const std::string documents = R"("root": ["P_first", )" + numbered(count, R"("P#_P")") + R"(, "R_P"], )" +
                                  numbered(count, R"("e#": ["E_first"], "ord-#": ["L#_first", ["M#_L#", "N#_L#"]])");
    const std::string contents = R"("E": {}, "P": {}, "R": {"p": "AX", "q": "AY"}, )" +
                                 numbered(count, R"("P#": {"p": "AD#", "q": "AD#"})") + ", " + lists("L", R"("e#")") +
                                 ", " + lists("M", R"("e#", "e0")") + ", " + lists("N", R"("e0", "e+")");
    const std::string set = R"({"d": {)" + documents + R"(}, "o": {)" + contents + R"(}, "r": "root"})";
    EXPECT_LT(openings_in_a_read(set), 20);
}

}  // namespace
}  // namespace c_api
