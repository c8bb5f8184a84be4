#include "inspect/forgery.h"

#include <unordered_set>
#include <zentadbpp_verify.hpp>

#include "cli/failure.h"
#include "cli/table.h"
#include "inspect/sync_json.h"

namespace zentadb {

namespace {

// The documents that have some contents, as "t1 2-8b3e4a5", the first few of them.
std::string documents_with(const zentadbpp::Handle& source, const std::vector<std::string>& hashes) {
    constexpr std::size_t enough = 5;
    const std::unordered_set<std::string_view> wanted(hashes.begin(), hashes.end());
    std::string names;
    std::size_t count = 0;
    const SyncJson sync_json(source);
    for (const Entry& document : sync_json.documents()) {
        const RevisionTree tree(document.value);
        for (std::size_t index = 0; index < tree.revisions().size(); ++index) {
            if (!wanted.contains(tree[index].hash())) continue;
            if (++count > enough) return names + ", ...";
            names.append(names.empty() ? "" : ", ").append(document.key).append(" ").append(tree.short_names()[index]);
        }
    }
    return names;
}

}  // namespace

void refuse_forged(const zentadbpp::Handle& source, const zentadbpp::Handle& store, const zentadbpp::Text& given,
                   const std::string& name) {
    const std::vector<std::string> wrong = zentadbpp::verify(source, store, given);
    if (wrong.empty()) return;
    throw Failure(ExitCode::damaged,
                  name + ": " + counted(wrong.size(), "content") + (wrong.size() == 1 ? " does" : " do") +
                      (wrong.size() == 1 ? " not hash to its name: " : " not hash to their names: ") +
                      documents_with(source, wrong),
                  "It is damaged or forged. Nothing was changed. --force merges it anyway.");
}

}  // namespace zentadb
