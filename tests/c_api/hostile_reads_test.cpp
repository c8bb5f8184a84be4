#include <ctime>
#include <functional>

#include "c_api/samples.h"
#include "c_api/zenta.h"

// Sets that take long to read if what many entries share is looked at for each of them.
namespace c_api {
namespace {

// One, two, three ... of a text, in which '#' is the number and '+' the next one.
std::string numbered(int count, std::string_view pattern) {
    std::string all;
    for (int i = 0; i < count; ++i) {
        if (i != 0) all += ", ";
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
TEST(HostileReads, LostMembersShareTheKeysAboveThem) {
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
TEST(HostileReads, ArraysKeepOneListForThoseWhosePlaceTheyTook) {
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
