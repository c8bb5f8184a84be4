#include "documents/multiversion_document.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

#include "documents/growing_tree.h"
#include "json/error.h"
#include "json/scanner.h"
#include "json/writer.h"
#include "text/byte_scan.h"

namespace libzentadbpp {

namespace {

bool is_in_order(std::span<const TreeRevision> revisions) {
    const auto misplaced = [](const TreeRevision& a, const TreeRevision& b) { return !precedes(a, b); };
    return std::adjacent_find(revisions.begin(), revisions.end(), misplaced) == revisions.end();
}

// Whether an ordered tree has no branches: then the last generation is as high as the revisions are many.
bool is_chain(std::span<const TreeRevision> revisions) {
    return !revisions.empty() && revisions.back().index == revisions.size();
}

std::vector<std::uint32_t> leaves_of(std::span<const TreeRevision> revisions) {
    const std::vector<bool> has_child = which_have_children(revisions);
    std::vector<std::uint32_t> leaves;
    for (std::uint32_t at = 0; at < revisions.size(); ++at) {
        if (!has_child[at] && !revisions[at].is_resolved()) leaves.push_back(at);
    }
    return leaves;
}

std::uint32_t find_winning(std::span<const TreeRevision> revisions) {
    if (is_chain(revisions)) {
        return revisions.back().is_resolved() ? no_entry : static_cast<std::uint32_t>(revisions.size() - 1);
    }
    std::uint32_t winning = no_entry;
    for (const std::uint32_t leaf : leaves_of(revisions)) {
        if (winning == no_entry || revisions[leaf].index > revisions[winning].index) winning = leaf;
    }
    return winning;
}

void write_history(std::span<const TreeRevision> revisions, TextBuffer& out) {
    if (is_chain(revisions)) {  // as nearly every document is: nothing to be folded
        ListSeparator separator("[");
        for (const TreeRevision& revision : revisions) {
            separator.append_to(out);
            write_json_string(revision.text, out);
        }
        return out.push_back(']');
    }
    std::vector<HistoryEntry> entries;
    entries.reserve(revisions.size());
    for (const TreeRevision& revision : revisions) entries.push_back({revision.text, revision.parent});
    fold(entries, out);
}

// Places texts one behind the other in memory that is large enough.
class Packer {
   public:
    explicit Packer(char* memory) : at_(memory) {}
    std::string_view pack(std::string_view text) {
        char* const place = at_;
        if (!text.empty()) std::memcpy(place, text.data(), text.size());
        at_ += text.size();
        return {place, text.size()};
    }

   private:
    char* at_;
};

// A chain whose texts need no escapes is written with these very texts, so its history holds them: they are packed
// once. Each comes with quotes and ", ", the last one with quotes, "[" and "]".
constexpr std::size_t chain_entry_extra = 4;

bool is_plain_chain(std::span<const TreeRevision> revisions) {
    return is_chain(revisions) && std::ranges::all_of(revisions, [](const TreeRevision& revision) {
               const char* const end = revision.text.data() + revision.text.size();
               return find_stop<StopAt::escape>(revision.text.data(), end) == end;
           });
}

std::string_view pack_plain_chain(std::span<TreeRevision> revisions, Packer& packer) {
    const char* const begin = packer.pack("[").data();
    std::string_view separator = "\"";
    for (TreeRevision& revision : revisions) {
        packer.pack(separator);
        revision.text = packer.pack(revision.text);
        separator = "\", \"";
    }
    const std::string_view last = packer.pack("\"]");
    return {begin, static_cast<std::size_t>(last.data() + last.size() - begin)};
}

}  // namespace

DocumentRef MultiVersionDocument::make(std::string_view id, std::span<const TreeRevision> given) {
    SharedMemory memory = SharedMemory::unshared();
    return make(id, given, memory);
}

DocumentRef MultiVersionDocument::make(std::string_view id, std::span<const TreeRevision> given, SharedMemory& memory) {
    if (id.empty()) {
        raise<InvalidDocumentException>(source::multiversiondocument, "MultiVersionDocument",
                                        "cannot_push_new_revision_if_document_is_missing_identifier");
    }
    std::vector<TreeRevision> sorted;
    if (!is_in_order(given)) given = sorted = in_order(given);
    const bool plain = is_plain_chain(given);
    TextBuffer folded;
    if (!plain) write_history(given, folded);

    std::size_t texts = id.size() + folded.size();
    for (const TreeRevision& revision : given) texts += revision.text.size() + (plain ? chain_entry_extra : 0);
    const std::size_t head = sizeof(MultiVersionDocument) + given.size() * sizeof(TreeRevision);
    static_assert(alignof(MultiVersionDocument) <= alignof(std::uint64_t));
    static_assert(sizeof(MultiVersionDocument) % alignof(TreeRevision) == 0);
    auto [bytes, owner] = memory.allocate(head + texts);

    Packer packer(bytes + head);
    auto* const tree = reinterpret_cast<TreeRevision*>(bytes + sizeof(MultiVersionDocument));
    std::uninitialized_copy(given.begin(), given.end(), tree);
    auto* const document = new (bytes) MultiVersionDocument;
    document->id_ = packer.pack(id);
    if (plain) {
        document->history_ = pack_plain_chain({tree, given.size()}, packer);
    } else {
        for (std::size_t at = 0; at < given.size(); ++at) tree[at].text = packer.pack(given[at].text);
        document->history_ = packer.pack(folded.view());
    }
    document->set_revisions({tree, given.size()});
    return DocumentRef(std::move(owner), document);
}

DocumentRef MultiVersionDocument::make_in(Arena& arena, const std::shared_ptr<const void>& owner, std::string_view id,
                                          std::span<const TreeRevision> given, std::string_view history) {
    if (id.empty()) return make(id, given);  // which reports the failure
    const std::span<const TreeRevision> tree =
        is_in_order(given) ? arena.copy(given) : arena.copy(std::span<const TreeRevision>(in_order(given)));
    auto* const document =
        new (arena.allocate(sizeof(MultiVersionDocument), alignof(MultiVersionDocument))) MultiVersionDocument;
    document->id_ = id;
    document->set_revisions(tree);
    if (history.empty()) {
        TextBuffer folded;
        write_history(tree, folded);
        history = arena.copy(folded.view());
    }
    document->history_ = history;
    return DocumentRef(owner, document);
}

// One whose hash is a name: it needs no escapes, and with its suffix it is a revision.
DocumentRef MultiVersionDocument::plain_first(std::string_view id, std::string_view datahash, SharedMemory& memory) {
    const std::size_t head = sizeof(MultiVersionDocument) + sizeof(TreeRevision);
    const std::size_t text_size = datahash.size() + 1 + first_suffix.size();
    auto [bytes, owner] = memory.allocate(head + id.size() + text_size + chain_entry_extra);
    Packer packer(bytes + head);
    auto* const document = new (bytes) MultiVersionDocument;
    document->id_ = packer.pack(id);
    const char* const history = packer.pack("[\"").data();
    const char* const text = packer.pack(datahash).data();
    packer.pack("_");
    packer.pack(first_suffix);
    packer.pack("\"]");
    document->history_ = {history, text_size + chain_entry_extra};
    document->revisions_ =
        new (bytes + sizeof(MultiVersionDocument)) TreeRevision{{text, text_size}, datahash.size(), 1, no_entry};
    document->count_ = 1;
    document->winning_ = datahash == resolved_hash ? no_entry : 0;
    return DocumentRef(std::move(owner), document);
}

void MultiVersionDocument::set_revisions(std::span<const TreeRevision> revisions) {
    if (revisions.size() >= no_entry) throw std::length_error("too many revisions");
    revisions_ = revisions.data();
    count_ = static_cast<std::uint32_t>(revisions.size());
    winning_ = find_winning(revisions);
}

DocumentRef MultiVersionDocument::first(std::string_view id, std::string_view datahash, SharedMemory& memory) {
    const char* const hash_end = datahash.data() + datahash.size();
    const bool is_name = !datahash.empty() && find_stop<StopAt::name>(datahash.data(), hash_end) == hash_end;
    if (is_name && !id.empty()) return plain_first(id, datahash, memory);
    constexpr std::size_t longest_hash = 64;
    std::array<char, longest_hash + 1 + first_suffix.size()> near;
    std::string far;
    if (datahash.size() > longest_hash) far.resize(datahash.size() + 1 + first_suffix.size());
    char* const text = far.empty() ? near.data() : far.data();
    char* end = std::ranges::copy(datahash, text).out;
    *end++ = '_';
    end = std::ranges::copy(first_suffix, end).out;
    const TreeRevision revision = TreeRevision::make({text, static_cast<std::size_t>(end - text)}, 1, no_entry);
    return make(id, {&revision, 1}, memory);
}

DocumentRef MultiVersionDocument::first(std::string_view id, std::string_view datahash) {
    SharedMemory memory = SharedMemory::unshared();
    return first(id, datahash, memory);
}

DocumentRef MultiVersionDocument::with_child(std::uint32_t parent, std::string_view datahash) const {
    SharedMemory memory = SharedMemory::unshared();
    return with_chain(parent, {&datahash, 1}, memory);
}

DocumentRef MultiVersionDocument::with_chain(std::uint32_t parent, std::span<const std::string_view> datahashes,
                                             SharedMemory& memory) const {
    GrowingTree tree(*this, datahashes.size());
    for (const std::string_view datahash : datahashes) {
        const auto child = tree.add_child(parent, datahash);
        if (!child) {
            raise<InvalidParentRevisionException>(source::multiversiondocument, "ancestor",
                                                  "invalid_parent_revision_in_ancestor");
        }
        parent = *child;
    }
    return make(id_, tree.revisions(), memory);
}

DocumentRef MultiVersionDocument::with_resolved(std::span<const std::uint32_t> leaves, SharedMemory& memory) const {
    GrowingTree tree(*this, leaves.size());
    for (const std::uint32_t leaf : leaves) (void)tree.add_child(leaf, resolved_hash);
    return make(id_, tree.revisions(), memory);
}

std::optional<std::uint32_t> MultiVersionDocument::find(std::uint32_t index, std::string_view text) const {
    const auto all = revisions();
    const TreeRevision wanted{text, 0, index, no_entry};
    const auto at = std::lower_bound(all.begin(), all.end(), wanted, precedes);
    if (at == all.end() || at->index != index || at->text != text) return std::nullopt;
    return static_cast<std::uint32_t>(at - all.begin());
}

std::optional<std::uint32_t> MultiVersionDocument::find(const Revision& revision) const {
    // Revisions are distinguished by their strings, so one that was given as "03-a_b" is not the tree's "3-a_b".
    const std::string& wanted = revision.revision_string();
    const std::string prefix = std::to_string(revision.index()).append("-");
    if (!wanted.starts_with(prefix)) return std::nullopt;
    return find(revision.index(), std::string_view(wanted).substr(prefix.size()));
}

std::uint32_t MultiVersionDocument::winning_position() const {
    if (winning_ != no_entry) return winning_;
    if (count_ == 0) {
        raise<RevisionNotFoundException>(source::multiversiondocument, "get_winning", "no_revisions_in_winning", id_);
    }
    raise<InvalidStorageTypeException>(source::multiversiondocument, "leafs", "no_revision_in_document");
}

std::vector<std::uint32_t> MultiVersionDocument::leaves_or_none() const { return leaves_of(revisions()); }

std::vector<std::uint32_t> MultiVersionDocument::leaves() const {
    std::vector<std::uint32_t> leaves = leaves_or_none();
    if (leaves.empty()) {
        raise<InvalidStorageTypeException>(source::multiversiondocument, "leafs", "no_revision_in_document");
    }
    return leaves;
}

std::vector<TreeRevision> read_history(std::string_view history_array, Arena& arena) {
    struct Reader final : HistoryVisitor {
        std::vector<TreeRevision> revisions;

        std::uint32_t visit(std::string_view entry, std::uint32_t generation, std::uint32_t parent) override {
            revisions.push_back(TreeRevision::make(entry, generation, parent));
            return static_cast<std::uint32_t>(revisions.size() - 1);
        }
    };

    JsonScanner scanner(history_array, arena);
    scanner.next_token();
    const char first = scanner.next_token();
    if (first == ']') return {};
    std::string_view entry;
    if (first == '"') {
        entry = scanner.read_string();
    } else {
        scanner.put_back();
        scanner.skip_value(0, no_depth_limit);
    }
    // A lone entry is judged by the parser of revisions, also where it is alone only because the rest means nothing: as
    // such it will be written, and has to be read again.
    const auto judge_lone = [](std::string_view lone) { (void)Revision(std::string("1-").append(lone)); };
    if (scanner.next_token() == ']') {
        judge_lone(entry);
        return {TreeRevision::make(entry, 1, no_entry)};
    }
    Reader reader;
    unfold(history_array, arena, reader);
    if (reader.revisions.size() == 1) judge_lone(reader.revisions.front().text);
    return is_in_order(reader.revisions) ? std::move(reader.revisions) : in_order(reader.revisions);
}

}  // namespace libzentadbpp
