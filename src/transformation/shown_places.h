#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "contents/ordering_lists.h"
#include "transformation/shown_data.h"

namespace libzentadbpp {

// What becomes of a document that a walk over the data meets in several places.
enum class Repeated : bool {
    left_out,  // merges can make such data, and an update refuses it: see below
    kept,      // it is rebuilt at each place; inside itself it is a failure
};

// Where in one walk over the data documents are shown. A document that a member refers to, or that leads to such a one,
// is shown at the first place that the walk meets, and no document inside itself. All other elements are shown as often
// as lists have them.
class ShownPlaces {
   public:
    ShownPlaces(const ShownData& shown, Repeated repeated);

    // The walk begins with this content of a document.
    void begin(std::uint32_t document, std::string_view content);
    // Whether a document is shown at a place that the walk comes to.
    [[nodiscard]] bool shows_member(std::uint32_t document) const {
        return repeated_ == Repeated::kept || state_[document] == State::new_here;
    }
    [[nodiscard]] bool shows_element(std::uint32_t document) {
        if (repeated_ == Repeated::kept || state_[document] == State::new_here) return true;
        return state_[document] == State::shown && !is_shown_once(document);
    }
    // The walk enters a document, and leaves it. UnflattenerException "cyclic_document_reference" if a document that
    // must not be left out is inside itself.
    void enter(std::uint32_t document);
    void leave(std::uint32_t document) { state_[document] = State::shown; }

    // The elements of an array. One that the data does not reach, which only an older revision refers to, has the
    // winning list of its own document; without one the first open list that has any element: of this instance, then of
    // others, ascending; winning ones first.
    [[nodiscard]] std::span<const std::uint32_t> elements(std::string_view domain);

   private:
    enum class State : std::uint8_t { new_here, entered, shown };
    // Lists of arrays that are not reached.
    struct HiddenLists {
        explicit HiddenLists(const DocumentIndex& index) : reader(index) {}

        OrderingLists reader;
        DomainTable domains{0};
        std::vector<std::span<const std::uint32_t>> lists;
    };

    [[nodiscard]] bool is_shown_once(std::uint32_t document);
    void find_shown_once();
    void collect_hidden_lists();

    const ShownData* shown_;
    Repeated repeated_;
    std::vector<State> state_;
    std::uint32_t start_ = 0;
    std::string_view start_content_;
    std::vector<bool> shown_once_;  // once it was asked for
    std::unique_ptr<HiddenLists> hidden_;
};

}  // namespace libzentadbpp
