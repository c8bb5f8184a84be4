#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "properties/items.h"

// What copies did since they were all the same, and what has to come of it once they merge.
namespace libzentadbpp::items {

using Places = std::map<std::string, std::set<Place>>;  // by id

// How many scripts showed what cannot always be avoided.
using Tally = std::map<std::string, int>;

class Round {
   public:
    Round(View ground, bool one_instance, Places earlier)
        : ground_(std::move(ground)), one_instance_(one_instance), earlier_(std::move(earlier)) {
        wrote(ground_);
    }

    void merged() { is_apart_ = false; }
    void deleted(const std::string& id) { deleted_.insert(id); }
    void settled(const std::string& id) { changed_[id].insert("settled"); }
    // A merge may leave in a content where its lists and parts were, which the next update stores.
    void stored(const std::string& id, const std::string& writer) { changed_[id].insert(writer); }

    // A copy read `before` and updated with `after`.
    void edited(const std::string& writer, const View& before, const View& after) {
        saw(before);
        wrote(after);
        for (const auto& [id, places] : after.places) {
            const auto known = before.places.find(id);
            for (const Place& place : places) {
                if (known != before.places.end() && known->second.contains(place)) continue;
                put_[id][writer] = place;
            }
            if (after.is_doubled(id)) doubled_.insert(id);
        }
        for (const auto& [id, content] : after.own) {
            const auto known = before.own.find(id);
            if (known != before.own.end() && known->second != content) changed_[id].insert(writer);
        }
        for (const auto& [place, list] : after.lists) {
            const auto known = before.lists.find(place);
            if (known == before.lists.end()) continue;
            if (known->second != list) list_writers_[place].insert(writer);
            if (turns(known->second, list)) reordered_[place][writer] = list;
        }
    }

    // What is shown after the merge.
    void check(const View& shown, Tally& tally) const {
        check_doubled(shown, tally);
        if (!one_instance_) return;
        for (const auto& [id, by_writer] : put_) check_put(id, by_writer, shown, tally);
        for (const auto& [place, by_writer] : reordered_) check_order(place, by_writer, shown, tally);
        check_neighbours(shown, tally);
    }

   private:
    void saw(const View& view) {
        for (const auto& [id, owners] : view.owners) {
            owners_[id].insert(owners.begin(), owners.end());
            if (view.is_doubled(id)) doubled_.insert(id);
        }
        for (const auto& [id, paths] : view.paths) paths_[id].insert(paths.begin(), paths.end());
    }
    void wrote(const View& view) {
        saw(view);
        for (const auto& [place, list] : view.lists) written_[place].insert(list);
    }

    static List common(const List& list, const List& other) {
        List both;
        for (const std::string& id : list) {
            if (std::ranges::find(other, id) != other.end()) both.push_back(id);
        }
        return both;
    }
    static bool turns(const List& before, const List& after) { return common(before, after) != common(after, before); }

    // Whether it holds for the document or one that moves of several copies, taken together, could put around it.
    template <class Holds>
    [[nodiscard]] bool any_around(const std::string& id, const Holds& holds) const {
        Ids seen;
        List next{id};
        while (!next.empty()) {
            const std::string at = next.back();
            next.pop_back();
            if (holds(at)) return true;
            const auto known = owners_.find(at);
            if (!seen.insert(at).second || known == owners_.end()) continue;
            next.insert(next.end(), known->second.begin(), known->second.end());
        }
        return false;
    }
    [[nodiscard]] bool could_hold(const std::string& id, const std::string& inner) const {
        return any_around(inner, [&](const std::string& at) { return at == id; });
    }

    // Nobody but the writer changed it.
    [[nodiscard]] bool is_left_alone(const std::string& id, const std::string& writer) const {
        const auto known = changed_.find(id);
        return known == changed_.end() ||
               std::ranges::all_of(known->second, [&](const std::string& other) { return other == writer; });
    }

    // One copy removed it, or what held it, and another kept it; or it was put into a list that is gone; or a list from
    // before takes back its move. So it may come back late: what was moved into it is lost before that, and comes back
    // to where it was.
    [[nodiscard]] bool is_returned(const std::string& id, const View& shown) const {
        return any_around(id, [&](const std::string& at) {
            const auto put = put_.find(at);
            return deleted_.contains(at) ||
                   (put != put_.end() && std::ranges::any_of(put->second, [&](const auto& by_writer) {
                        return !shown.lists.contains(by_writer.second) || was_there(at, by_writer.second);
                    }));
        });
    }

    // Two copies put one into the other. One of the moves is undone, and what was moved with the other may be too.
    [[nodiscard]] bool is_inside_cycle(const std::string& id) const {
        return any_around(id, [&](const std::string& at) {
            const auto known = owners_.find(at);
            return known != owners_.end() &&
                   std::ranges::any_of(known->second, [&](const std::string& owner) { return could_hold(at, owner); });
        });
    }

    [[nodiscard]] bool is_moved(const std::string& id) const {
        const auto known = paths_.find(id);
        return known != paths_.end() && known->second.size() > 1;
    }

    // A part that moved. What it holds is then in a new list, which does not follow the old one if the part moved to
    // another key or object.
    [[nodiscard]] bool is_moved_part(const std::string& id) const { return is_part(id) && is_moved(id); }

    // It was in that list in an earlier round. If the object moved since, a list from before that no longer has it says
    // that it was not moved back, but carried along.
    [[nodiscard]] bool was_there(const std::string& id, const Place& place) const {
        const auto known = earlier_.find(id);
        return known != earlier_.end() && known->second.contains(place);
    }

    // It was put into an object that moved, from a list that another copy changed, or that moved too. What is in these
    // lists is lost at first, and the first of them gives back all.
    [[nodiscard]] bool is_taken_back(const std::string& writer, const Place& to, const Place& found) const {
        const auto known = list_writers_.find(found);
        return is_moved(to.first) &&
               (is_moved(found.first) ||
                (known != list_writers_.end() &&
                 std::ranges::any_of(known->second, [&](const std::string& other) { return other != writer; })));
    }

    void check_doubled(const View& shown, Tally& tally) const {
        for (const auto& [id, places] : shown.places) {
            if (!shown.is_doubled(id) || doubled_.contains(id)) continue;
            const auto put = put_.find(id);
            if (put != put_.end() && put->second.size() > 1) continue;
            if (std::ranges::any_of(places, [&](const Place& place) { return is_returned(place.first, shown); })) {
                ++tally["doubled in what came back"];
                continue;
            }
            if (std::ranges::any_of(places, [&](const Place& place) { return is_moved_part(place.first); })) {
                ++tally["doubled in a part that moved"];
                continue;
            }
            if (std::ranges::any_of(places, [&](const Place& place) { return is_inside_cycle(place.first); })) {
                ++tally["doubled in a cycle"];
                continue;
            }
            if (!is_apart_ || !one_instance_) {
                ++tally["doubled"];
                continue;
            }
            EXPECT_TRUE(false) << id << " is doubled";
        }
    }

    // What one copy alone added, or moved to another place, is there.
    void check_put(const std::string& id, const std::map<std::string, Place>& by_writer, const View& shown,
                   Tally& tally) const {
        const auto& [writer, place] = *by_writer.begin();
        if (by_writer.size() > 1 || deleted_.contains(id) || doubled_.contains(id)) return;
        if (could_hold(id, place.first) || deleted_.contains(place.first)) return;
        if (!shown.lists.contains(place)) {  // its owner is not shown, or it is a part
            if (!shown.places.contains(place.first)) return;
            for (const std::string& owner : owners_.at(id)) {
                if (!is_left_alone(owner, writer) || deleted_.contains(owner)) return;
            }
            if (!is_left_alone(id, writer)) return;
        }
        const auto places = shown.places.find(id);
        const bool is_there = places != shown.places.end() && places->second == std::set<Place>{place};
        if (is_there) return;
        if (places != shown.places.end() && places->second.contains(place)) return;  // check_doubled counts it
        const auto is_in_moved_part = [&](const Place& at) { return is_moved_part(at.first); };
        if (is_moved_part(place.first) ||
            (places != shown.places.end() && std::ranges::any_of(places->second, is_in_moved_part))) {
            ++tally["lost moves, part moved"];
            return;
        }
        if (places != shown.places.end() &&
            std::ranges::any_of(places->second, [&, &writer = writer, &place = place](const Place& found) {
                return is_taken_back(writer, place, found);
            })) {
            ++tally["lost moves, object moved"];
            return;
        }
        if (is_inside_cycle(place.first)) {
            ++tally["lost moves, in a cycle"];
            return;
        }
        if (is_returned(place.first, shown)) {
            ++tally["lost moves, into what came back"];
            return;
        }
        if (was_there(id, place)) {
            ++tally["lost moves, to where it was before"];
            return;
        }
        if (!is_apart_) {
            ++tally["lost moves"];
            return;
        }
        EXPECT_TRUE(is_there) << id << " was put into " << place.first << '/' << place.second << " by " << writer;
    }

    // The order that one copy alone gave to what was there before.
    void check_order(const Place& place, const std::map<std::string, List>& by_writer, const View& shown,
                     Tally& tally) const {
        const auto list = shown.lists.find(place);
        const auto ground = ground_.lists.find(place);
        if (list == shown.lists.end() || ground == ground_.lists.end()) return;
        for (const auto& [writer, order] : by_writer) {
            List wanted = common(common(order, ground->second), list->second);
            std::erase_if(wanted, [&](const std::string& id) {
                return put_.contains(id) || doubled_.contains(id) || deleted_.contains(id);
            });
            const List found = common(list->second, wanted);
            if (by_writer.size() > 1) {
                if (turns(ground->second, wanted) && !turns(ground->second, found)) ++tally["lost reorderings, of two"];
            } else if (paths_.at(place.first).size() > 1) {
                if (found != wanted) ++tally["lost reorderings, object moved"];
            } else if (!is_apart_) {
                if (found != wanted) ++tally["lost reorderings, merged between"];
            } else {
                EXPECT_EQ(found, wanted) << place.first << '/' << place.second << " as " << writer << " has it";
            }
        }
    }

    void check_neighbours(const View& shown, Tally& tally) const {
        for (const auto& [place, list] : shown.lists) {
            const auto known = written_.find(place);
            if (known == written_.end()) continue;
            for (std::size_t i = 1; i < list.size(); ++i) {
                const List pair{list[i - 1], list[i]};
                bool is_written = false;
                bool is_turned = false;
                for (const List& other : known->second) {
                    const List both = common(other, pair);
                    is_written = is_written || both == pair;
                    is_turned = is_turned || both == List{pair[1], pair[0]};
                }
                if (is_turned && !is_written) ++tally["order nobody wrote"];
            }
        }
    }

    View ground_;
    bool one_instance_;
    Places earlier_;
    bool is_apart_ = true;                                     // no copy met another since
    std::map<std::string, std::map<std::string, Place>> put_;  // by id and writer: where it was added or moved to
    std::map<Place, std::map<std::string, List>> reordered_;   // by writer
    std::map<Place, Ids> list_writers_;                        // who changed them
    std::map<std::string, Ids> changed_;                       // by id: the writers of its content
    std::map<Place, std::set<List>> written_;
    std::map<std::string, Ids> owners_;
    std::map<std::string, Ids> paths_;
    Ids deleted_;
    Ids doubled_;
};

}  // namespace libzentadbpp::items
