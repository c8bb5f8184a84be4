// zentadbpp_check.hpp: checks whether a read returns data unchanged. An update takes any object, but may store
// something else: a deleted id stays deleted, list elements that share an id become one, long numbers lose digits. Call
// `check` before you store, while the user can still correct the data. Part of zentadbpp.hpp.
//
//     for (const zentadbpp::Difference& found : zentadbpp::check(data, config, stored)) {
//         warn(found.place, found.reason);
//     }

#ifndef ZENTADBPP_CHECK_HPP
#define ZENTADBPP_CHECK_HPP

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>
#include <zentadbpp.hpp>
#include <zentadbpp_json.hpp>

namespace zentadbpp {

// A place of the data that a read would not return unchanged.
struct Difference {
    std::string place;  // in the syntax of jq: ".tasks[1].text"; "." for all data
    // Why: "deleted"    the object's id was deleted before and stays deleted; give the object another id
    //      "shared_id"  another object with the same id replaces it; give each object its own id
    //      "number"     a double cannot represent the number; make it a string
    //      "changed"    anything else
    std::string reason;
    std::string id;  // of the object, if the reason is its id
};

namespace detail {

// Whether a number that was read means the number that was written. A fraction means its double; a whole number must
// have the same digits.
inline bool is_same_number(const std::string& given, const std::string& read) {
    if (given == read) return true;
    const auto value = [](const std::string& text, double& number) {
        return std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
    };
    double wanted = 0;
    double got = 0;
    if (!value(given, wanted) || !value(read, got) || wanted != got) return false;
    if (given.find_first_of(".eE") != std::string::npos) return true;
    std::array<char, 400> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), got, std::chars_format::fixed, 0);
    return std::string_view(digits.data(), static_cast<std::size_t>(end.ptr - digits.data())) == given || got == 0;
}

inline bool is_list_of_documents(const Json& value) {
    return value.is_array() && std::all_of(value.items.begin(), value.items.end(),
                                           [](const Json& element) { return !element.id().empty(); });
}

class DifferenceFinder {
   public:
    // Compares `given` with the data of a store that contains nothing else: the same data, and the ids of all
    // documents.
    void compare_given(const Json& given, const Json& read) {
        count_ids(read);
        given_beside(given, read, {});
    }

    // Compares `wanted`, from a store that contains nothing else, with the data of the real store.
    void compare_stored(const Json& wanted, const Json& read, const Handle& store) {
        store_ = &store;
        stored_beside(wanted, read, {});
    }

    std::vector<Difference> found() && { return std::move(found_); }
    bool is_empty() const { return found_.empty(); }
    void add(const std::string& place, const char* reason, std::string_view id = {}) {
        found_.push_back({place.empty() ? "." : place, reason, std::string(id)});
    }

   private:
    void count_ids(const Json& value) {
        if (!value.id().empty()) ++count_[std::string(value.id())];
        for (const Json& item : value.items) count_ids(item);
    }

    void given_beside(const Json& given, const Json& read, const std::string& place) {
        const std::size_t before = found_.size();
        if (given.is_object() && read.is_object()) {
            for (std::size_t at = 0; at < given.keys.size(); ++at) {
                const std::string member = place + member_step(given.keys[at]);
                if (const Json* back = read.find(given.keys[at])) {
                    given_beside(given.items[at], *back, member);
                } else {
                    add(member, "changed");
                }
            }
            for (const std::string& key : read.keys) {
                if (key != "_id" && given.find(key) == nullptr) add(place + member_step(key), "changed");
            }
            const auto count = count_.find(std::string(read.id()));
            if (found_.size() == before || count == count_.end() || count->second < 2) return;
            found_.resize(before);
            add(place, "shared_id", read.id());
        } else if (given.is_array() && read.is_array() && given.items.size() == read.items.size()) {
            for (std::size_t at = 0; at < given.items.size(); ++at) {
                given_beside(given.items[at], read.items[at], place + element_step(at));
            }
        } else if (given.kind == Json::Kind::number && (read.kind == given.kind || read.kind == Json::Kind::null)) {
            if (read.kind != given.kind || !is_same_number(given.text, read.text)) add(place, "number");
        } else if (given.is_object() || given.is_array() || !(given == read)) {
            add(place, "changed");
        }
    }

    void add_missing(const Json& value, const std::string& place) {
        const std::string id(value.id());
        bool is_deleted = false;
        try {
            is_deleted = !id.empty() && store_->winning(id).view().find("-deleted_") != std::string_view::npos;
        } catch (const Error&) {  // no document has this id
        }
        add(place, is_deleted ? "deleted" : "changed", is_deleted ? id : "");
    }

    void stored_beside(const Json& wanted, const Json& read, const std::string& place) {
        if (wanted.is_object() && read.is_object()) {
            const bool is_gone = read.find("_deleted") != nullptr && wanted.find("_deleted") == nullptr;
            if (is_gone || wanted.id() != read.id()) return add_missing(wanted, place);
            for (std::size_t at = 0; at < wanted.keys.size(); ++at) {
                const std::string member = place + member_step(wanted.keys[at]);
                if (const Json* back = read.find(wanted.keys[at])) {
                    stored_beside(wanted.items[at], *back, member);
                } else {
                    add_missing(wanted.items[at], member);
                }
            }
            for (const std::string& key : read.keys) {
                if (wanted.find(key) == nullptr) add(place + member_step(key), "changed");
            }
        } else if (is_list_of_documents(wanted) && is_list_of_documents(read)) {
            lists_beside(wanted, read, place);
        } else if (wanted.is_array() && read.is_array() && wanted.items.size() == read.items.size()) {
            for (std::size_t at = 0; at < wanted.items.size(); ++at) {
                stored_beside(wanted.items[at], read.items[at], place + element_step(at));
            }
        } else if (!(wanted == read)) {
            add(place, "changed");
        }
    }

    // Elements match by id; several with one id match in their order.
    void lists_beside(const Json& wanted, const Json& read, const std::string& place) {
        std::map<std::string_view, std::vector<std::size_t>> places;
        for (std::size_t at = read.items.size(); at-- > 0;) places[read.items[at].id()].push_back(at);
        std::size_t met = 0;
        std::size_t last = 0;
        bool in_order = true;
        for (std::size_t at = 0; at < wanted.items.size(); ++at) {
            const auto left = places.find(wanted.items[at].id());
            if (left == places.end() || left->second.empty()) {
                add_missing(wanted.items[at], place + element_step(at));
                continue;
            }
            const std::size_t position = left->second.back();
            left->second.pop_back();
            in_order = in_order && (met++ == 0 || position > last);
            last = position;
            stored_beside(wanted.items[at], read.items[position], place + element_step(at));
        }
        if (!in_order || met < read.items.size()) add(place, "changed");
    }

    const Handle* store_ = nullptr;
    std::map<std::string, std::size_t> count_;
    std::vector<Difference> found_;
};

// The configuration for a read of everything stored that changes nothing.
inline std::string config_for_reading(std::string_view config) {
    Json settings = Json::parse(config);
    settings.set("discard_id", Json::boolean(false));
    settings.set("preserve_old_ordering", Json::boolean(true));
    return settings.dump();
}

}  // namespace detail

// The places of the data that `stored`, the store after an update with it, does not return unchanged.
[[nodiscard]] inline std::vector<Difference> check_stored(const Text& data, const Text& config, Handle& stored) {
    const std::string reading = detail::config_for_reading(config.c_str());
    const Json given = Json::parse(data.c_str());
    const Json read = Json::parse(stored.read(reading));
    detail::DifferenceFinder direct;
    direct.compare_given(given, read);
    if (direct.is_empty()) return {};
    // A store that contains nothing else returns all elements with their ids, by which they are found.
    const Json alone = Json::parse(Handle("{}").update(data, config).read(reading));
    detail::DifferenceFinder finder;
    finder.compare_given(given, alone);
    finder.compare_stored(alone, read, stored);
    return finder.is_empty() ? std::move(direct).found() : std::move(finder).found();
}

// The places of the data that a read would not return unchanged if the store were updated with it; empty if there are
// none. Does not change the store. Fails as update and read do.
[[nodiscard]] inline std::vector<Difference> check(const Text& data, const Text& config, const Handle& store) {
    Handle stored = store.update(data, config);
    return check_stored(data, config, stored);
}
[[nodiscard]] inline std::vector<Difference> check(const Text& data, const Text& config = "{}",
                                                   const Text& store = "{}") {
    return check(data, config, Handle(store));
}

}  // namespace zentadbpp

#endif
