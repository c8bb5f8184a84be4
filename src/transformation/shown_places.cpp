#include "transformation/shown_places.h"

#include <algorithm>
#include <tuple>

#include "contents/references.h"
#include "json/error.h"
#include "memory/by_number.h"
#include "transformation/list_branches.h"

namespace libzentadbpp {

ShownPlaces::ShownPlaces(const ShownData& shown, Repeated repeated)
    : shown_(&shown), repeated_(repeated), state_(shown.index().size(), State::new_here) {}

void ShownPlaces::begin(std::uint32_t document, std::string_view content) {
    start_ = document;
    start_content_ = content;
    enter(document);
}

void ShownPlaces::enter(std::uint32_t document) {
    if (state_[document] == State::entered) {
        raise<UnflattenerException>(source::unflattener, "operator ()", "cyclic_document_reference",
                                    shown_->index().id(document));
    }
    state_[document] = State::entered;
}

bool ShownPlaces::is_shown_once(std::uint32_t document) {
    if (shown_once_.empty()) find_shown_once();
    return shown_once_[document];
}

namespace {

// What a walk comes to, and from where: documents, which have their numbers, then arrays and contents. Documents may
// share a content, which is followed once.
class Walk {
   public:
    explicit Walk(std::uint32_t documents) : documents_(documents), is_met_(documents) {}

    void meet(std::uint32_t node, std::uint32_t from) {
        edges_.push_back({node, from});
        if (is_met_[node]) return;
        is_met_[node] = true;
        nodes_.push_back(node);
    }
    void meet_array(std::string_view domain, std::uint32_t from) {
        const auto known = arrays_.find(domain);
        if (!known) {
            const std::string_view kept = texts_.copy(domain);
            arrays_.add(kept);
            array_nodes_.push_back(add({kept, true}));
        }
        meet(known ? array_nodes_[*known] : array_nodes_.back(), from);
    }
    void meet_content(const NumberedContent& content, std::uint32_t from) {
        std::uint32_t& known = contents_[content.number];
        if (known == 0) known = add({content.text, false});
        meet(known, from);
    }

    struct Inner {
        std::string_view text;  // the domain, or the content
        bool is_array;
    };
    // What has no number of its own, or null for a document.
    [[nodiscard]] const Inner* inner(std::uint32_t node) const {
        return node < documents_ ? nullptr : &inner_[node - documents_];
    }
    [[nodiscard]] const std::vector<std::uint32_t>& nodes() const { return nodes_; }

    // The given nodes, and all from which the walk came to one of them.
    [[nodiscard]] std::vector<bool> leading_to(const std::vector<std::uint32_t>& targets) {
        std::ranges::sort(edges_, {}, &Edge::to);
        std::vector<bool> leads(is_met_.size());
        std::vector<std::uint32_t> open;
        const auto mark = [&](std::uint32_t node) {
            if (!leads[node]) open.push_back(node);
            leads[node] = true;
        };
        for (const std::uint32_t target : targets) mark(target);
        while (!open.empty()) {
            const std::uint32_t node = open.back();
            open.pop_back();
            auto edge = std::ranges::lower_bound(edges_, node, {}, &Edge::to);
            for (; edge != edges_.end() && edge->to == node; ++edge) mark(edge->from);
        }
        return leads;
    }

   private:
    struct Edge {
        std::uint32_t to;
        std::uint32_t from;
    };

    std::uint32_t add(Inner inner) {
        inner_.push_back(inner);
        is_met_.push_back(false);
        return static_cast<std::uint32_t>(is_met_.size() - 1);
    }

    std::uint32_t documents_;
    std::vector<bool> is_met_;
    std::vector<std::uint32_t> nodes_;
    std::vector<Edge> edges_;
    std::vector<Inner> inner_;
    Arena texts_;
    TextTable arrays_;
    std::vector<std::uint32_t> array_nodes_;
    ByNumber<std::uint32_t> contents_;  // 0: not met
};

}  // namespace

void ShownPlaces::find_shown_once() {
    const DocumentIndex& index = shown_->index();
    Walk walk(static_cast<std::uint32_t>(index.size()));
    std::vector<std::uint32_t> members;  // documents that a member refers to
    const auto follow = [&](std::string_view content, std::uint32_t from) {
        visit_references(content, [&](char marker, std::string_view target) {
            if (marker == vocabulary::array_reference_marker) return walk.meet_array(target, from);
            if (const auto number = index.find(target); number && index.is_live(*number)) {
                members.push_back(*number);
                walk.meet(*number, from);
            }
        });
    };
    follow(start_content_, start_);
    for (std::size_t at = 0; at < walk.nodes().size(); ++at) {
        const std::uint32_t node = walk.nodes()[at];
        if (const Walk::Inner* const inner = walk.inner(node)) {
            const std::string_view text = inner->text;
            if (!inner->is_array) {
                follow(text, node);
            } else {
                for (const std::uint32_t element : elements(text)) walk.meet(element, node);
            }
        } else if (node != start_ && index.is_live_data(node)) {
            const auto content = shown_->content(node);
            if (!content) continue;
            if (shown_->is_restored(node)) {
                follow(*content, node);
            } else {
                walk.meet_content({index.winning_number(node), *content}, node);
            }
        }
    }
    shown_once_ = walk.leading_to(members);
}

std::span<const std::uint32_t> ShownPlaces::elements(std::string_view domain) {
    if (const auto reached = shown_->elements(domain)) return *reached;
    if (hidden_ == nullptr) collect_hidden_lists();
    const auto number = hidden_->domains.find(domain);
    return number ? hidden_->lists[*number] : std::span<const std::uint32_t>{};
}

void ShownPlaces::collect_hidden_lists() {
    const DocumentIndex& index = shown_->index();
    hidden_ = std::make_unique<HiddenLists>(index);
    struct OpenList {
        OrderingList list;
        bool is_winning;
        bool is_foreign;
    };
    std::vector<OpenList> lists;
    const std::uint32_t instance = hidden_->reader.number_of(shown_->instance());
    visit_open_lists(index, hidden_->reader, [&](const OrderingList& list, bool is_winning) {
        lists.push_back({list, is_winning, list.content->instance != instance});
    });
    const std::vector<std::uint32_t> ranks = hidden_->reader.instance_ranks();
    std::ranges::sort(lists, {}, [&](const OpenList& open) {
        return std::tuple(open.is_foreign, ranks[open.list.content->instance], !open.is_winning, open.list.document,
                          open.list.revision);
    });
    std::vector<bool> is_decided;
    for (const auto& [list, is_winning, is_foreign] : lists) {
        const std::uint32_t domain = hidden_->domains.add(*list.content);
        if (domain >= is_decided.size()) is_decided.resize(domain + 1);
        hidden_->lists.resize(is_decided.size());
        if (is_decided[domain]) continue;
        hidden_->lists[domain] = list.content->elements;
        is_decided[domain] = (is_winning && !is_foreign) || !list.content->elements.empty();
    }
}

}  // namespace libzentadbpp
