#include "inspect/summary.h"

#include <algorithm>

#include "cli/table.h"
#include "cli/terminal.h"
#include "inspect/names.h"

namespace zentadb {

std::string summary(const zentadbpp::Handle& before, const zentadbpp::Handle& after) {
    const auto count = [](const zentadbpp::List& ids) {
        return ids.size() - static_cast<std::size_t>(std::ranges::count_if(ids, is_ordering));
    };
    std::string text;
    const auto add = [&](std::size_t number, const char* what) {
        if (number > 0) text.append(text.empty() ? "" : ", ").append(std::to_string(number)).append(what);
    };
    const std::size_t deleted = count(after.deleted(before));
    add(count(after.created(before)), " created");
    add(count(after.updated(before)) - deleted, " updated");  // a deletion is an update as well
    add(deleted, " deleted");
    return text.empty() ? "nothing new" : text;
}

std::string instance_notice(const zentadbpp::Handle& before, const zentadbpp::Handle& after) {
    const zentadbpp::List instances = after.instances();
    if (instances.size() < 2 || before.instances().size() == instances.size()) return {};
    return "written by " + counted(instances.size(), "instance") +
           ", each with its own order of arrays: " + printable(comma_list(instances));
}

std::string conflict_notice(const zentadbpp::Handle& handle, const std::string& store) {
    const std::size_t count = handle.unresolved().size();
    if (count == 0) return {};
    return counted(count, "document") + " in conflict; zentadb conflicts " + printable(store) + " shows " +
           (count == 1 ? "it" : "them");
}

}  // namespace zentadb
