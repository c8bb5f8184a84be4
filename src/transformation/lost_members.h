#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "contents/document_index.h"
#include "json/value.h"
#include "memory/arena.h"

namespace libzentadbpp {

// Members that documents lost: an earlier revision refers to a document at a member (a path of keys through inline
// objects), and the winning content has the objects on the way, but nothing there, or a document that was deleted.
class LostMembers {
   public:
    explicit LostMembers(const DocumentIndex& index) : index_(&index) {}

    // A document that may take members back: a reached one.
    void offer(std::uint32_t document);
    // Restores the first lost member and returns the document that it refers to: of the lowest document, from the
    // nearest ancestor of its winning revision, at the smallest path. Empty if no offered document takes one.
    std::optional<std::uint32_t> next(const std::function<bool(std::uint32_t)>& is_lost);

    // The winning contents together with the members that were given back.
    [[nodiscard]] std::vector<std::pair<std::uint32_t, std::string_view>> contents(Arena& arena) const;

   private:
    // What a winning content gets back at a member: the reference to a document, or members inside an object.
    struct Given {
        std::uint32_t target = 0;
        std::map<std::string_view, std::unique_ptr<Given>> inside;
    };
    // The way to an object inside a content. Its members share it, as keys may be long.
    struct Way {
        Way* before;
        std::string_view key;
        Given* given = nullptr;  // what that object gets back, once it gets something
    };
    struct Candidate {
        Way* way;
        std::string_view key;
        std::uint32_t target;
    };
    struct Taker {
        JsonValue winning;
        std::vector<Candidate> candidates;
        std::size_t next = 0;
    };

    void read_candidates(std::uint32_t document, Taker& taker);
    [[nodiscard]] Way& new_way(Way* before, std::string_view key);
    void collect(const JsonValue& object, const JsonValue& winning, Way& way, std::vector<Candidate>& candidates);
    [[nodiscard]] bool refers_to_deleted(const JsonValue& member) const;
    [[nodiscard]] Given& given_at(std::uint32_t document, Way& way);
    [[nodiscard]] bool give(std::uint32_t document, const Candidate& candidate);
    [[nodiscard]] JsonValue with_members(const JsonValue& object, const Given& given, Arena& arena) const;

    const DocumentIndex* index_;
    Arena arena_;
    std::set<std::uint32_t> waiting_;  // offered documents that may take more
    std::map<std::uint32_t, Taker> takers_;
    std::map<std::uint32_t, Given> given_;
    std::size_t work_ = 0;
};

}  // namespace libzentadbpp
