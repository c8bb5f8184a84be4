#include "cli/warning.h"

#include <iostream>

#include "cli/terminal.h"

namespace zentadb {

void warn(const std::string& what) {
    std::cerr << painted(Paint::yellow, "zentadb: warning: ", std::cerr) << printable(what) << '\n';
}

void Warning::add(const std::string& id) {
    constexpr std::size_t enough = 5;
    if (count_++ < enough) examples_.push_back(id);
}

void Warning::tell() const {
    if (count_ == 0) return;
    std::string text = std::to_string(count_) + " " + (count_ == 1 ? one_ : more_) + ": ";
    for (std::size_t at = 0; at < examples_.size(); ++at) text.append(at == 0 ? "" : ", ").append(examples_[at]);
    warn(text + (count_ > examples_.size() ? ", ..." : ""));
}

}  // namespace zentadb
