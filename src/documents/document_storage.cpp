#include "documents/document_storage.h"

#include <algorithm>
#include <functional>

#include "common/error.h"
#include "common/json_writer.h"
#include "common/text_order.h"

namespace libzentadbpp {

std::vector<std::string_view> referenced_hashes(const DocumentStorage::Documents& documents) {
    std::vector<std::string_view> hashes;
    hashes.reserve(documents.size());
    for (const auto& entry : documents) {
        for (const TreeRevision& revision : entry.value->revisions()) {
            if (!DataStorage::is_reserved(revision.datahash())) hashes.push_back(revision.datahash());
        }
    }
    sort_by_text(hashes, std::identity());
    hashes.erase(std::unique(hashes.begin(), hashes.end()), hashes.end());
    return hashes;
}

const std::string& DocumentStorage::root() const {
    if (root_.empty()) raise<InvalidDocumentException>(source::documentstorage, "root", "root_id_cannot_be_empty");
    return root_;
}

void DocumentStorage::serialize(TextBuffer& out) const {
    const char* separator = "";
    const auto write_member = [&](std::string_view key) {
        out.append(separator);
        separator = ", ";
        write_json_string(key, out);
        out.append(": ");
    };

    out.push_back('{');
    if (!documents_.empty()) {
        write_member("d");
        out.push_back('{');
        separator = "";
        for (const auto& entry : documents_) {
            write_member(entry.key);
            out.append(entry.value->history());
        }
        out.push_back('}');
        separator = ", ";
    }

    const auto hashes = referenced_hashes(documents_);
    auto hash = hashes.begin();
    bool any = false;
    for (const auto& entry : data_.contents()) {
        while (hash != hashes.end() && *hash < entry.key) ++hash;
        if (hash == hashes.end()) break;
        if (*hash != entry.key) continue;
        if (!any) {
            write_member("o");
            out.push_back('{');
            separator = "";
            any = true;
        }
        write_member(entry.key);
        out.append(entry.value.text);
    }
    if (any) {
        out.push_back('}');
        separator = ", ";
    }

    if (!root_.empty()) {
        write_member("r");
        write_json_string(root_, out);
    }
    out.push_back('}');
}

DocumentStorage::Documents DocumentChanges::applied_to(const DocumentStorage::Documents& documents) && {
    if (changes_.empty()) return documents;
    sort_by_text(changes_, [](const auto& change) { return change.key; });
    return documents.with(std::move(changes_));
}

}  // namespace libzentadbpp
