#include "transformation/update.h"

#include <algorithm>
#include <bit>
#include <string>
#include <unordered_set>

#include "contents/ordering_content.h"
#include "data/data_hash.h"
#include "json/canonical_object.h"
#include "json/writer.h"
#include "memory/by_number.h"
#include "memory/prefetch.h"
#include "text/first_bytes.h"
#include "transformation/flattener.h"
#include "transformation/list_branches.h"
#include "transformation/list_keeper.h"
#include "transformation/store_documents.h"
#include "transformation/unseen_documents.h"

namespace libzentadbpp {

namespace {

using Documents = std::vector<FlattenedDocument>;

// Which of the contents that the data has for one document are those of some of its revisions.
std::vector<bool> known_contents(std::span<const FlattenedDocument> contents, const MultiVersionDocument& document,
                                 const DataStorage& data, DataHasher& hasher) {
    std::unordered_set<std::string_view> revisions;
    std::unordered_set<std::string_view> pruned;  // their hashes
    std::unordered_set<std::uint32_t> seen;       // numbers of contents
    for (const TreeRevision& revision : document.revisions()) {
        const auto content = data.find_numbered(revision.datahash());
        if (!content) {
            pruned.insert(revision.datahash());
        } else if (seen.insert(content->number).second) {
            revisions.insert(content->text);
        }
    }
    std::vector<bool> known;
    for (const FlattenedDocument& content : contents) {
        known.push_back(revisions.contains(content.content) ||
                        (!pruned.empty() && pruned.contains(hasher(content.content))));
    }
    return known;
}

// An element that merges left in two arrays is edited in one of them as a rule, and comes in two contents. The one that
// was there before gives way.
void settle_repeated(Documents& documents, const DocumentStorage& storage, DataHasher& hasher) {
    Documents settled;
    auto copied = documents.begin();  // up to where `settled` has what it needs
    for (auto first = documents.begin(); first != documents.end();) {
        const auto last = std::find_if(first + 1, documents.end(),
                                       [&](const FlattenedDocument& other) { return other.id != first->id; });
        const std::span<const FlattenedDocument> contents(&*first, static_cast<std::size_t>(last - first));
        const MultiVersionDocument* const stored = contents.size() == 1 ? nullptr : storage.find(first->id);
        if (stored != nullptr && stored->has_winning()) {
            settled.insert(settled.end(), copied, first);
            copied = last;
            const std::vector<bool> known = known_contents(contents, *stored, storage.data(), hasher);
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

// The ids that the data has. Nearly all others are recognised by one bit.
class ProducedIds {
   public:
    explicit ProducedIds(const Documents& documents)
        : documents_(&documents), may_have_(std::bit_ceil(documents.size() * bits_each + 1)) {
        for (const FlattenedDocument& document : documents) may_have_[place_of(document.id)] = true;
    }

    [[nodiscard]] bool contains(std::string_view id) const {
        if (!may_have_[place_of(id)]) return false;
        const auto at = std::ranges::lower_bound(*documents_, id, {}, &FlattenedDocument::id);
        return at != documents_->end() && at->id == id;
    }

   private:
    static constexpr std::size_t bits_each = 16;

    [[nodiscard]] std::size_t place_of(std::string_view id) const {
        const std::string_view tail = id.substr(id.size() - std::min<std::size_t>(id.size(), 8));
        constexpr std::uint64_t odd = 0x9e3779b97f4a7c15;
        const std::uint64_t code = (first_bytes(id) * odd ^ first_bytes(tail) ^ id.size()) * odd;
        return (code >> 32) & (may_have_.size() - 1);
    }

    const Documents* documents_;
    std::vector<bool> may_have_;
};

bool has_repeated(const Documents& documents) {
    return std::ranges::adjacent_find(documents, {}, &FlattenedDocument::id) != documents.end();
}

// Whether an ordering document of this instance that the data did not produce lists what the data has, or, where the
// data has anything twice, whether there is such a document at all. Only then can anything but the produced documents
// change.
bool may_change_other_lists(const Documents& documents, bool any_repeated, const DocumentStorage& storage,
                            std::string_view instance) {
    Arena arena;
    const ProducedIds produced_ids(documents);
    NumberSet seen;  // documents may share a long content
    const auto lists_any = [&](std::uint32_t content_number, std::string_view content) {
        if (!seen.insert(content_number)) return false;
        const auto list = read_ordering_content(content, arena);
        if (!list || list->instance != instance) return false;
        bool any = any_repeated;
        visit_listed_ids(list->ids,
                         [&](std::optional<std::string_view> id) { any = any || (id && produced_ids.contains(*id)); });
        return any;
    };
    auto produced = std::ranges::lower_bound(documents, ordering_id_prefix, {}, &FlattenedDocument::id);
    const WinningContents& winning = *storage.winning_contents();
    const LookAhead ahead(steps_ahead::document, winning.texts.size(),
                          [&](std::size_t at) { prefetch(winning.texts[at]); });
    std::size_t next_number = 0;
    for (const auto& [id, document] : storage.documents()) {
        const std::size_t number = next_number++;
        ahead.reach(number);
        if (!has_ordering_id(id)) continue;
        while (produced != documents.end() && produced->id < id) ++produced;
        if ((produced != documents.end() && produced->id == id) || !document->has_winning()) continue;
        const std::string_view content = winning.texts[number];
        if (content.data() != nullptr && lists_any(winning.numbers[number], content)) return true;
        if (!has_other_leaves(*document)) continue;
        for (const std::uint32_t leaf : other_leaves(*document)) {
            const auto other = storage.data().find_numbered(document->revisions()[leaf].datahash());
            if (other && lists_any(other->number, other->text)) return true;
        }
    }
    return false;
}

// Stores the lists that the data changes beside those of its own arrays.
DocumentStorage keep_lists(const DocumentStorage& stored, const Documents& documents, std::string_view instance,
                           HashKind hash_kind) {
    const DocumentIndex index(stored);
    OrderingLists reader(index);
    Arena arena;
    DomainTable domains(documents.size());
    OwnLists own(index, instance, reader, domains, arena);
    const ReferenceGraph references(index, domains, arena);

    std::vector<bool> is_produced(index.size());
    std::vector<HeldData::List> lists;
    for (const FlattenedDocument& document : documents) {
        const std::uint32_t number = *index.find(document.id);
        is_produced[number] = true;
        if (!index.is_ordering(number) || index.ordering(number) == nullptr) continue;
        const OrderingList list = reader.read_winning(number, *index.ordering(number));
        const std::uint32_t domain = domains.add(*list.content);
        if (domain >= lists.size()) lists.resize(domain + 1);
        lists[domain] = list.content->elements;
    }
    const HeldData held{[&](std::uint32_t number) { return is_produced[number]; },
                        [&](std::uint32_t domain) { return domain < lists.size() ? lists[domain] : std::nullopt; },
                        false};
    std::vector<ListToStore> to_store;
    ListKeeper(index, own, references, domains, arena, held).add_to(to_store);
    return to_store.empty() ? stored : store_lists(index, instance, domains, to_store, hash_kind);
}

}  // namespace

DocumentStorage update(const DocumentStorage& given, const JsonValue& data, const TransformationSettings& settings,
                       Arena& arena, SharedMemory& memory) {
    DataHasher hasher(settings.hash_kind());
    Flattener::Result flat = Flattener(settings, hasher, arena).flatten(data);
    const DocumentStorage storage = given.with_winning_contents();
    const bool any_repeated = has_repeated(flat.documents);
    if (any_repeated) settle_repeated(flat.documents, storage, hasher);
    UnseenDocuments unseen(storage, settings.instance_id);
    const auto may_remove = [&](std::uint32_t number) { return !unseen.contains(number); };
    DocumentStorage stored = store_documents(storage, flat.documents, may_remove, hasher, memory);
    if (may_change_other_lists(flat.documents, any_repeated, storage, settings.instance_id)) {
        stored = keep_lists(stored, flat.documents, settings.instance_id, settings.hash_kind());
    }
    return stored.with_root(std::string(flat.root_id));
}

void flatten_object(const JsonValue& data, const TransformationSettings& settings, Arena& arena, TextBuffer& out) {
    SharedMemory memory(arena);
    const DocumentStorage storage = update({}, data, settings, arena, memory);
    ListSeparator separator;
    TextBuffer id;
    out.push_back('[');
    for (const auto& entry : storage.documents()) {
        separator.append_to(out);
        id.clear();
        write_json_string(entry.key, id);
        const WrittenMember id_member{vocabulary::id_key, id.view()};
        write_object_with(storage.data().read_object(entry.value->winning().datahash()), {&id_member, 1}, out);
    }
    out.push_back(']');
}

}  // namespace libzentadbpp
