#include "transformation/repeated_documents.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <unordered_set>

#include "memory/by_number.h"
#include "text/text_table.h"

namespace libzentadbpp {

namespace {

// Recognizes the contents of documents' revisions. Documents may share a long content, which is looked at once.
class KnownContents {
   public:
    KnownContents(const DataStorage& data, DataHasher& hasher) : data_(&data), hasher_(&hasher) {}

    // For each of the contents that the data has for one document, whether a revision has it.
    [[nodiscard]] std::vector<bool> among(std::span<const FlattenedDocument> contents,
                                          const MultiVersionDocument& document) {
        std::unordered_set<std::uint32_t> revisions;  // numbers of texts
        TextTable pruned;                             // hashes
        for (const TreeRevision& revision : document.revisions()) {
            if (const auto content = data_->find_numbered(revision.datahash())) {
                revisions.insert(text_number(*content));
            } else {
                pruned.add(revision.datahash());
            }
        }
        std::vector<bool> known;
        for (const FlattenedDocument& content : contents) {
            const auto text = texts_.find(content.content);
            known.push_back((text && revisions.contains(*text)) ||
                            (!pruned.empty() && pruned.find((*hasher_)(content.content))));
        }
        return known;
    }

   private:
    std::uint32_t text_number(const NumberedContent& content) {
        std::uint32_t& known = text_numbers_[content.number];
        if (known == 0) known = texts_.add(content.text).number + 1;
        return known - 1;
    }

    const DataStorage* data_;
    DataHasher* hasher_;
    TextTable texts_;
    ByNumber<std::uint32_t> text_numbers_;  // by content, plus one
};

}  // namespace

void settle_repeated(std::vector<FlattenedDocument>& documents, const DocumentStorage& storage, DataHasher& hasher) {
    KnownContents known_contents(storage.data(), hasher);
    std::vector<FlattenedDocument> settled;
    auto copied = documents.begin();  // up to where `settled` has what it needs
    for (auto first = documents.begin(); first != documents.end();) {
        const auto last = std::find_if(first + 1, documents.end(),
                                       [&](const FlattenedDocument& other) { return other.id != first->id; });
        const std::span<const FlattenedDocument> contents(&*first, static_cast<std::size_t>(last - first));
        const MultiVersionDocument* const stored = contents.size() == 1 ? nullptr : storage.find(first->id);
        if (stored != nullptr && stored->has_winning()) {
            settled.insert(settled.end(), copied, first);
            copied = last;
            const std::vector<bool> known = known_contents.among(contents, *stored);
            const auto winning = storage.data().find(stored->winning().datahash());
            const auto is_winning = [&](const FlattenedDocument& content) { return content.content == winning; };
            if (std::ranges::find(known, false) != known.end()) {
                for (std::size_t at = 0; at < contents.size(); ++at) {
                    if (!known[at]) settled.push_back(contents[at]);
                }
            } else if (const auto same = std::ranges::find_if(contents, is_winning); same != contents.end()) {
                settled.push_back(*same);
            } else {
                settled.push_back(contents.back());
            }
        }
        first = last;
    }
    if (copied == documents.begin()) return;
    settled.insert(settled.end(), copied, documents.end());
    documents = std::move(settled);
}

}  // namespace libzentadbpp
