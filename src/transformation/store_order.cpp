#include "transformation/store_order.h"

#include <vector>

#include "common/text_order.h"
#include "data/data_hash.h"
#include "transformation/document_changes.h"
#include "transformation/document_path.h"
#include "transformation/flattener.h"

namespace libzentadbpp {

DocumentStorage store_order(const ReadIndex& index) {
    DocumentStorage result = index.storage();
    Arena arena;
    SharedMemory memory;
    OrderingIds ids(index.instance_id());
    // Data written with the fast hash keeps its form.
    for (const HashKind kind : {HashKind::sha256, HashKind::fast}) {
        DataHasher hasher(kind);
        std::vector<FlattenedDocument> documents;
        for (const auto& [domain, document] : index.order().outdated()) {
            const std::string_view form =
                document != nullptr && document->has_winning() ? document->winning().datahash() : domain;
            if (is_hash_of_kind(form, HashKind::fast) != (kind == HashKind::fast)) continue;
            std::vector<std::string_view> element_ids;
            for (const std::uint32_t number : index.order().elements(domain))
                element_ids.push_back(index.documents().id(number));
            TextBuffer content;
            write_ordering_content(index.instance_id(), domain, element_ids, content);
            const std::string_view id = document != nullptr ? document->id() : ids.id(domain, hasher, arena);
            documents.push_back({id, arena.copy(content.view())});
        }
        if (documents.empty()) continue;
        sort_by_text(documents, [](const FlattenedDocument& produced) { return produced.id; });
        result = store_documents(result, documents, Unproduced::keep, hasher, memory);
    }
    return result;
}

}  // namespace libzentadbpp
