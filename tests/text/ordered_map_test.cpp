#include "text/ordered_map.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace libzentadbpp {
namespace {

// The key lies in the value, as documents keep their ids.
struct Item {
    std::string key;
    std::uint64_t number;
};
using Ref = std::shared_ptr<const Item>;
using Map = OrderedMap<Ref>;
using Model = std::map<std::string, std::uint64_t, std::less<>>;
static_assert(std::forward_iterator<Map::const_iterator>);

Map::Entries entries_of(const Model& model) {
    Map::Entries entries;
    for (const auto& [key, number] : model) {
        auto item = std::make_shared<const Item>(Item{key, number});
        entries.push_back({item->key, item});
    }
    return entries;
}

Model model_of(const Map& map) {
    Model model;
    std::string_view last;
    for (const auto& entry : map) {
        EXPECT_TRUE(model.empty() || last < entry.key);
        EXPECT_EQ(entry.key.data(), entry.value->key.data()) << "the key must be the one that its value keeps alive";
        last = entry.key;
        model.emplace(entry.key, entry.value->number);
    }
    EXPECT_EQ(map.size(), model.size());
    return model;
}

std::string numbered_key(std::size_t number) {
    std::string digits = std::to_string(number);
    return std::string(8 - digits.size(), '0') + digits;
}

Map numbered(std::size_t count) {
    Model model;
    for (std::size_t i = 0; i < count; ++i) model[numbered_key(2 * i)] = i;
    return Map::from_sorted(entries_of(model));
}

// Sizes around every split, up to three levels of branches.
TEST(OrderedMap, HoldsEverySize) {
    for (const std::size_t size : {0U, 1U, 63U, 64U, 65U, 128U, 129U, 4095U, 4096U, 4097U, 8193U, 300000U}) {
        SCOPED_TRACE(size);
        const Map map = numbered(size);
        EXPECT_EQ(map.size(), size);
        std::size_t at = 0;
        for (const auto& entry : map) EXPECT_EQ(entry.value->number, at++);
        EXPECT_EQ(at, size);
        for (std::size_t i = 0; i < size; i += 1 + size / 1000) {
            const Ref* found = map.find(numbered_key(2 * i));
            ASSERT_NE(found, nullptr);
            EXPECT_EQ((*found)->number, i);
            EXPECT_EQ(map.find(numbered_key(2 * i + 1)), nullptr);
            EXPECT_EQ(map.place_of(numbered_key(2 * i)).number, i);
            EXPECT_EQ(map.place_of(numbered_key(2 * i + 1)).number, i + 1);
        }
        EXPECT_TRUE(map.find("") == nullptr && map.find("~") == nullptr);
    }
}

TEST(OrderedMap, ChangesFollowAModelAndLeaveOlderMapsAlone) {
    for (std::uint64_t seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937_64 random(seed);
        const std::size_t keys = seed % 3 == 0 ? 8000 : 500;
        std::vector<std::pair<Map, Model>> versions(1);
        for (std::uint64_t step = 0; step < 40; ++step) {
            const std::size_t largest = random() % 4 == 0 ? keys : 8;
            // Clustered changes overflow one leaf by many times its size.
            const std::size_t range = random() % 2 == 0 ? keys : keys / 20;
            const std::size_t begin = random() % (keys - range + 1);
            Model changes;
            for (std::size_t i = random() % largest; i > 0; --i) changes[numbered_key(begin + random() % range)] = step;
            const auto& [map, model] = versions.back();
            Model next = changes;
            next.insert(model.begin(), model.end());
            Map changed = map.with(entries_of(changes));
            versions.emplace_back(std::move(changed), std::move(next));
        }
        for (const auto& [map, model] : versions) ASSERT_EQ(model_of(map), model);
        // What a map needs, it keeps alive by itself.
        const auto last = std::move(versions.back());
        versions.clear();
        EXPECT_EQ(model_of(last.first), last.second);
        std::size_t before = 0;
        for (const auto& [key, number] : last.second) {
            ASSERT_EQ((*last.first.find(key))->number, number);
            ASSERT_EQ(last.first.place_of(key).number, before++);
        }
    }
}

TEST(OrderedMap, SharesWhatAChangeDoesNotTouch) {
    const Map map = numbered(100000);
    const struct {
        Model changes;
        std::size_t most_copied;  // entries of the leaves that are touched
    } cases[] = {
        {{{numbered_key(50000), 7}}, 65},
        {{{numbered_key(50001), 7}}, 65},
        {{{"", 7}, {numbered_key(100000), 7}, {"~", 7}}, 195},
        {{}, 0},
    };
    for (const auto& [changes, most_copied] : cases) {
        const Map changed = map.with(entries_of(changes));
        std::size_t copied = 0;
        Model differing;
        visit_beside(changed, map, [&](const Map::Entry& entry, const Map::Entry* other) {
            ++copied;
            EXPECT_EQ(other == nullptr ? nullptr : &other->value, map.find(entry.key));
            if (other == nullptr || other->value != entry.value) differing[entry.value->key] = entry.value->number;
        });
        EXPECT_LE(copied, most_copied);
        EXPECT_EQ(differing, changes);
    }
}

}  // namespace
}  // namespace libzentadbpp
