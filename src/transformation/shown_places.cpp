#include "transformation/shown_places.h"

#include <algorithm>
#include <tuple>

#include "common/error.h"
#include "documents/references.h"
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

// Documents and arrays that a walk comes to, and from where. Documents have their numbers, arrays come after them.
struct Walk {
    explicit Walk(std::size_t documents) : is_met(documents) {}

    void meet(std::uint32_t node, std::uint32_t from) {
        edges.push_back({node, from});
        if (node >= is_met.size()) is_met.resize(node + 1);
        if (is_met[node]) return;
        is_met[node] = true;
        nodes.push_back(node);
    }

    struct Edge {
        std::uint32_t to;
        std::uint32_t from;
    };
    std::vector<bool> is_met;
    std::vector<std::uint32_t> nodes;
    std::vector<Edge> edges;
};

}  // namespace

void ShownPlaces::find_shown_once() {
    const DocumentIndex& index = shown_->index();
    const auto documents = static_cast<std::uint32_t>(index.size());
    Walk walk(documents);
    DomainTable domains(0);
    Arena arena;
    std::vector<std::uint32_t> members;  // documents that a member refers to
    const auto follow_content = [&](std::string_view content, std::uint32_t from) {
        visit_references(content, [&](char marker, std::string_view target) {
            if (marker == vocabulary::array_reference_marker) {
                const auto known = domains.find(target);
                walk.meet(documents + (known ? *known : domains.add(arena.copy(target))), from);
            } else if (const auto number = index.find(target); number && index.is_live(*number)) {
                members.push_back(*number);
                walk.meet(*number, from);
            }
        });
    };
    walk.is_met[start_] = true;
    follow_content(start_content_, start_);
    for (std::size_t at = 0; at < walk.nodes.size(); ++at) {
        const std::uint32_t node = walk.nodes[at];
        if (node >= documents) {
            for (const std::uint32_t element : elements(domains.text(node - documents))) walk.meet(element, node);
        } else if (index.is_live_data(node)) {
            if (const auto content = shown_->content(node)) follow_content(*content, node);
        }
    }

    std::ranges::sort(walk.edges, {}, &Walk::Edge::to);
    std::vector<bool> leads_to_member(walk.is_met.size());
    std::vector<std::uint32_t> open;
    const auto mark = [&](std::uint32_t node) {
        if (!leads_to_member[node]) open.push_back(node);
        leads_to_member[node] = true;
    };
    for (const std::uint32_t member : members) mark(member);
    while (!open.empty()) {
        const std::uint32_t node = open.back();
        open.pop_back();
        for (const auto& edge : std::ranges::equal_range(walk.edges, node, {}, &Walk::Edge::to)) mark(edge.from);
    }
    shown_once_ = std::move(leads_to_member);
}

std::span<const std::uint32_t> ShownPlaces::elements(std::string_view domain) {
    if (const auto reached = shown_->elements(domain)) return *reached;
    if (hidden_ == nullptr) collect_hidden_lists();
    const auto number = hidden_->domains.find(domain);
    return number ? hidden_->lists[*number] : std::span<const std::uint32_t>{};
}

void ShownPlaces::collect_hidden_lists() {
    const DocumentIndex& index = shown_->index();
    hidden_ = std::make_unique<HiddenLists>(HiddenLists{OrderingLists(index), DomainTable(0), {}});
    struct OpenList {
        OrderingList list;
        bool is_winning;
        bool is_foreign;
    };
    std::vector<OpenList> lists;
    const auto [first, end] = index.ordering_ids();
    for (std::uint32_t number = first; number < end; ++number) {
        const MultiVersionDocument& document = index.document(number);
        if (!index.is_ordering(number) || !document.has_winning()) continue;
        const auto collect = [&](std::uint32_t leaf) {
            const auto list = hidden_->reader.read(number, leaf);
            if (!list) return;
            lists.push_back({*list, leaf == document.winning_position(), list->instance != shown_->instance()});
        };
        collect(document.winning_position());
        if (!has_other_leaves(document)) continue;
        for (const std::uint32_t leaf : other_leaves(document)) collect(leaf);
    }
    std::ranges::sort(lists, {}, [](const OpenList& open) {
        return std::tuple(open.is_foreign, open.list.instance, !open.is_winning, open.list.document, open.list.revision);
    });
    std::vector<bool> is_decided;
    for (const auto& [list, is_winning, is_foreign] : lists) {
        const std::uint32_t domain = hidden_->domains.add(list.domain);
        if (domain >= is_decided.size()) is_decided.resize(domain + 1);
        hidden_->lists.resize(is_decided.size());
        if (is_decided[domain]) continue;
        hidden_->lists[domain] = list.elements;
        is_decided[domain] = (is_winning && !is_foreign) || !list.elements.empty();
    }
}

}  // namespace libzentadbpp
