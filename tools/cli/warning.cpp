#include "cli/warning.h"

#include <iostream>

#include "cli/table.h"
#include "cli/terminal.h"

namespace zentadb {

void warn(const std::string& what) {
    std::cerr << painted(Paint::yellow, "zentadb: warning: ", std::cerr) << printable(what) << '\n';
}

void Warning::print() const {
    if (documents_.empty()) return;
    constexpr std::size_t enough = 5;
    warn(std::to_string(documents_.size()) + " " + (documents_.size() == 1 ? one_ : more_) + ": " +
         comma_list(documents_, enough));
}

}  // namespace zentadb
