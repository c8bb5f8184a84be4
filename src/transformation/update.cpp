#include "transformation/update.h"

#include <algorithm>
#include <optional>
#include <string>

#include "contents/ordering_content.h"
#include "data/data_hash.h"
#include "json/canonical_object.h"
#include "json/writer.h"
#include "memory/by_number.h"
#include "transformation/flattener.h"
#include "transformation/list_branches.h"
#include "transformation/list_keeper.h"
#include "transformation/repeated_documents.h"
#include "transformation/store_documents.h"
#include "transformation/unseen_documents.h"

namespace libzentadbpp {

namespace {

using Documents = std::vector<FlattenedDocument>;

// The ordering documents of this instance that the data did not produce.
std::shared_ptr<const OtherLists> other_lists(const Documents& documents, const DocumentStorage& storage,
                                              std::string_view instance) {
    auto others = std::make_shared<OtherLists>();
    Arena arena;
    NumberSet seen;  // documents may share a long content
    const auto collect = [&](std::uint32_t content_number, std::string_view content) {
        if (!seen.insert(content_number)) return;
        const auto list = read_ordering_content(content, arena);
        if (!list || list->instance != instance) return;
        others->any = true;
        visit_listed_ids(list->ids, [&](std::optional<std::string_view> id) {
            if (id && !others->ids.find(*id)) others->ids.add(others->texts.copy(*id));
        });
    };
    auto produced = std::ranges::lower_bound(documents, ordering_id_prefix, {}, &FlattenedDocument::id);
    const WinningContents& winning = *storage.winning_contents();
    std::size_t next_number = 0;
    for (const auto& [id, document] : storage.documents()) {
        const std::size_t number = next_number++;
        if (!has_ordering_id(id)) continue;
        while (produced != documents.end() && produced->id < id) ++produced;
        if ((produced != documents.end() && produced->id == id) || !document->has_winning()) continue;
        const std::string_view content = winning.texts[number];
        if (content.data() != nullptr) collect(winning.numbers[number], content);
        if (!has_other_leaves(*document)) continue;
        for (const std::uint32_t leaf : other_leaves(*document)) {
            const auto other = storage.data().find_numbered(document->revisions()[leaf].datahash());
            if (other) collect(other->number, other->text);
        }
    }
    return others;
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

// One update. With a last one, only what differs from that is sorted and stored.
class Update {
   public:
    Update(const DocumentStorage& given, const TransformationSettings& settings, Arena& arena, SharedMemory& memory,
           std::shared_ptr<const LastUpdate> last, Remember remember)
        : settings_(&settings),
          memory_(&memory),
          hasher_(settings.hash_kind()),
          given_(&given),
          last_(is_of_these_settings(last.get()) ? std::move(last) : nullptr),
          remembers_(remember == Remember::yes),
          paths_(last_ == nullptr ? nullptr : last_->paths) {
        if (last_ != nullptr) expected_.emplace(*last_);
        flattener_.emplace(settings, hasher_, arena, remembers_ ? &paths_ : nullptr, expected_ ? &*expected_ : nullptr);
    }

    [[nodiscard]] Updated run(const JsonValue& data) {
        std::string root(flattener_->flatten(data));
        const DocumentStorage storage = given_->with_winning_contents();
        sort();
        const bool any_repeated = flat_.any_repeated;
        if (any_repeated) settle_repeated(flat_.documents, storage, hasher_);

        DocumentStorage stored = store(storage);
        const std::shared_ptr<const OtherLists> others =
            knows_other_lists() ? last_->other_lists
            : expected_         ? other_lists(all_documents(), storage, settings_->instance_id)
                                : other_lists(flat_.documents, storage, settings_->instance_id);
        Updated updated;
        // Where the data has anything twice, any other list may change.
        if (any_repeated ? others->any : are_any_listed(*others)) {
            stored = keep_lists(stored, all_documents(), settings_->instance_id, hasher_.kind());
        } else if (remembers_ && !any_repeated && stored.winning_contents() != nullptr) {
            updated.last = remembered(stored, others);
        }
        updated.as_it_was = updated.last != nullptr && !notes_.any_changed;
        updated.storage = stored.with_root(std::move(root));
        return updated;
    }

   private:
    [[nodiscard]] bool is_of_these_settings(const LastUpdate* last) const {
        return last != nullptr && last->instance_id == settings_->instance_id && last->hash_kind == hasher_.kind();
    }

    // Where the data has something twice, nothing counts as expected.
    void sort() {
        if (expected_) {
            flat_ = flattener_->sorted(Flattener::Which::not_unchanged);
            const auto was_found = [&](const FlattenedDocument& document) {
                const auto at = std::ranges::lower_bound(last_->ids, document.id);
                return at != last_->ids.end() && *at == document.id &&
                       expected_->was_found(static_cast<std::uint32_t>(at - last_->ids.begin()));
            };
            if (!expected_->any_repeated() && !flat_.any_repeated && std::ranges::none_of(flat_.documents, was_found)) {
                return;
            }
            expected_.reset();
        }
        flat_ = flattener_->sorted(Flattener::Which::all);
        if (!remembers_) flattener_.reset();
    }

    // Whether the data has what other lists have. Only then can anything but the produced documents change.
    [[nodiscard]] bool are_any_listed(const OtherLists& others) const {
        if (others.ids.empty()) return false;
        const auto is_listed = [&](const FlattenedDocument& document) {
            return others.ids.find(document.id).has_value();
        };
        if (!expected_) return std::ranges::any_of(flat_.documents, is_listed);
        return std::ranges::any_of(flattener_->produced(), is_listed, &Flattener::Produced::document);
    }

    [[nodiscard]] Documents all_documents() const {
        return expected_ ? flattener_->sorted(Flattener::Which::all).documents : flat_.documents;
    }

    [[nodiscard]] DocumentStorage store(const DocumentStorage& storage) {
        UnseenDocuments unseen(storage, settings_->instance_id);
        const auto may_remove = [&](std::uint32_t number) { return !unseen.contains(number); };
        StoredNotes* const notes = remembers_ ? &notes_ : nullptr;
        if (!expected_) return store_documents(storage, flat_.documents, may_remove, hasher_, *memory_, nullptr, notes);
        const std::vector<bool>& left_alone = expected_->left_alone();
        if (flat_.documents.empty() && std::ranges::find(left_alone, false) == left_alone.end()) return storage;
        const KnownDocuments known{*last_, left_alone};
        return store_documents(storage, flat_.documents, may_remove, hasher_, *memory_, &known, notes);
    }

    // Whether the data has all lists that it had the last time, so that there are no further ones of arrays that are
    // gone.
    [[nodiscard]] bool knows_other_lists() const {
        if (!expected_) return false;
        return std::ranges::none_of(last_->produced, [&](const LastUpdate::Produced& document) {
            return !expected_->was_found(document.number) && has_ordering_id(document.id) &&
                   !std::ranges::binary_search(flat_.documents, document.id, {}, &FlattenedDocument::id);
        });
    }

    [[nodiscard]] std::shared_ptr<const LastUpdate> remembered(const DocumentStorage& stored,
                                                               const std::shared_ptr<const OtherLists>& others) {
        auto paths = paths_.collected();
        const bool nothing_stored = notes_.settled.empty() && last_ != nullptr;
        if (nothing_stored && paths == last_->paths && others == last_->other_lists && expected_->all_in_order()) {
            return last_;
        }
        auto next = std::make_shared<LastUpdate>();
        next->instance_id = settings_->instance_id;
        next->hash_kind = hasher_.kind();
        next->ids.reserve(stored.documents().size());
        for (const auto& entry : stored.documents()) next->ids.push_back(entry.key);
        if (nothing_stored) {
            next->settled = last_->settled;
            next->stays = last_->stays;
        } else {
            next->settled = std::move(notes_.settled);
            next->stays = std::move(notes_.stays);
        }
        next->contents = stored.winning_contents();
        add_produced(*next);
        next->paths = std::move(paths);
        next->other_lists = others;
        return next;
    }

    // The documents as the data produced them, with the numbers that they have in the storage that results.
    void add_produced(LastUpdate& next) const {
        const auto& produced = flattener_->produced();
        next.produced.reserve(produced.size());
        const auto& inserted = notes_.inserted;
        std::size_t bytes = 0;
        for (const auto& [document, array, unchanged] : produced) {
            const auto shifted = std::ranges::upper_bound(inserted, unchanged) - inserted.begin();
            next.produced.push_back({{}, {}, unchanged + static_cast<std::uint32_t>(shifted)});
            bytes += document.id.size();
        }
        for (std::size_t at = 0; at < flat_.produced.size(); ++at) {
            next.produced[flat_.produced[at]].number = notes_.numbers[at];
        }
        next.produced_ids.reserve(bytes);
        for (std::size_t at = 0; at < produced.size(); ++at) {
            auto& [id, content, number] = next.produced[at];
            const std::size_t begin = next.produced_ids.size();
            next.produced_ids.append(produced[at].document.id);
            id = std::string_view(next.produced_ids).substr(begin);
            if (next.settled[number]) content = next.contents->texts[number];
            next.ids[number] = id;
        }
    }

    const TransformationSettings* settings_;
    SharedMemory* memory_;
    DataHasher hasher_;
    const DocumentStorage* given_;
    std::shared_ptr<const LastUpdate> last_;
    bool remembers_;
    PathMemory paths_;
    std::optional<ExpectedDocuments> expected_;
    std::optional<Flattener> flattener_;
    Flattener::Sorted flat_;  // what differs from what was expected, or everything
    StoredNotes notes_;
};

}  // namespace

DocumentStorage update(const DocumentStorage& storage, const JsonValue& data, const TransformationSettings& settings,
                       Arena& arena, SharedMemory& memory) {
    return Update(storage, settings, arena, memory, nullptr, Remember::no).run(data).storage;
}

Updated update_again(const DocumentStorage& storage, const JsonValue& data, const TransformationSettings& settings,
                     Arena& arena, SharedMemory& memory, const std::shared_ptr<const LastUpdate>& last,
                     Remember remember) {
    return Update(storage, settings, arena, memory, last, remember).run(data);
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
