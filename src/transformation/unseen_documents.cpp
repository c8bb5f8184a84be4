#include "transformation/unseen_documents.h"

#include <span>
#include <utility>

#include "contents/ordering_content.h"
#include "contents/references.h"
#include "memory/by_number.h"
#include "transformation/list_branches.h"
#include "transformation/read_index.h"

namespace libzentadbpp {

namespace {

// The contents of the open revisions that a document has beside its winning one.
std::vector<NumberedContent> conflicting_contents(const MultiVersionDocument& document, const DataStorage& data) {
    std::vector<NumberedContent> contents;
    if (!document.has_winning() || document.winning().index == document.revisions().size()) return contents;
    for (const std::uint32_t leaf : document.leaves_or_none()) {
        if (leaf == document.winning_position() || document.revisions()[leaf].is_deleted()) continue;
        if (const auto content = data.find_numbered(document.revisions()[leaf].datahash()))
            contents.push_back(*content);
    }
    return contents;
}

// Follows references and lists through winning contents.
class Closure {
   public:
    explicit Closure(const ReadIndex& index)
        : index_(&index), documents_(&index.documents()), lists_(*documents_), met_(documents_->size()) {}

    void add_all_from(std::uint32_t document, std::span<const NumberedContent> contents) {
        for (const NumberedContent& content : contents) follow_once(content);
        add_earlier_arrays(document);
        while (!open_.empty()) {
            const std::uint32_t number = open_.back();
            open_.pop_back();
            follow_winning(number);
            add_earlier_arrays(number);
        }
    }

    [[nodiscard]] const std::vector<bool>& met() const { return met_; }

   private:
    void follow_winning(std::uint32_t number) {
        const auto content = index_->shown().content(number);
        if (!content) return;
        if (index_->shown().is_restored(number)) return follow(*content);
        follow_once({documents_->winning_number(number), *content});
    }

    void follow_once(const NumberedContent& content) {
        if (followed_.insert(content.number)) follow(content.text);
    }

    void follow(std::string_view content) {
        visit_references(content, [&](char marker, std::string_view target) {
            if (marker == vocabulary::array_reference_marker) {
                add_array(target);
            } else if (const auto number = documents_->find(target)) {
                add(*number);
            }
        });
    }

    // An object that was moved has other arrays than before, which get back what copies put into those before.
    void add_earlier_arrays(std::uint32_t number) {
        const MultiVersionDocument& document = documents_->document(number);
        if (document.revisions().size() == 1) return;
        for (const TreeRevision& revision : document.revisions()) {
            const auto content = index_->storage().data().find_numbered(revision.datahash());
            if (!content || !earlier_.insert(content->number)) continue;
            visit_references(content->text, [&](char marker, std::string_view target) {
                if (marker == vocabulary::array_reference_marker) add_array(target);
            });
        }
    }

    void add(std::uint32_t number) {
        // What is shown leads to nothing that is not.
        if (met_[number] || !documents_->is_live_data(number) || index_->shown().is_reached(number)) return;
        met_[number] = true;
        open_.push_back(number);
    }

    // All open lists of an array, whoever wrote them.
    void add_array(std::string_view domain) {
        if (!are_lists_collected_) collect_lists();
        const auto found = domains_.find(domain);
        if (!found) return;
        for (const auto elements : std::exchange(lists_by_domain_[*found], {})) {
            for (const std::uint32_t number : elements) add(number);
        }
    }

    void collect_lists() {
        are_lists_collected_ = true;
        NumberSet seen;
        visit_open_lists(*documents_, lists_, [&](const OrderingList& list, bool /*is_winning*/) {
            if (!seen.insert(list.content->number)) return;
            const std::uint32_t domain = domains_.add(*list.content);
            if (domain >= lists_by_domain_.size()) lists_by_domain_.resize(domain + 1);
            lists_by_domain_[domain].push_back(list.content->elements);
        });
    }

    const ReadIndex* index_;
    const DocumentIndex* documents_;
    OrderingLists lists_;
    DomainTable domains_{0};
    std::vector<std::vector<std::span<const std::uint32_t>>> lists_by_domain_;
    bool are_lists_collected_ = false;
    NumberSet followed_;  // contents
    NumberSet earlier_;   // contents whose arrays were added
    std::vector<bool> met_;
    std::vector<std::uint32_t> open_;
};

}  // namespace

bool UnseenDocuments::contains(std::uint32_t number) {
    if (!unseen_) collect();
    return !unseen_->empty() && (*unseen_)[number];
}

void UnseenDocuments::collect() {
    unseen_.emplace();
    std::vector<std::pair<std::uint32_t, std::vector<NumberedContent>>> conflicting;  // documents and contents
    OrderingDocuments ordering(storage_->data());
    std::uint32_t number = 0;
    for (const auto& entry : storage_->documents()) {
        auto contents = conflicting_contents(*entry.value, storage_->data());
        if (!contents.empty() && !ordering.contains(*entry.value))
            conflicting.emplace_back(number, std::move(contents));
        ++number;
    }
    if (conflicting.empty()) return;
    const ReadIndex index(*storage_, instance_);
    Closure closure(index);
    for (const auto& [document, contents] : conflicting) closure.add_all_from(document, contents);
    *unseen_ = closure.met();
}

}  // namespace libzentadbpp
