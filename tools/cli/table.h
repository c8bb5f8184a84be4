#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "cli/terminal.h"

namespace zentadb {

// A text in a table, made printable there.
struct Cell {
    std::string text;
    std::optional<Paint> paint{};
};

// Columns under headlines, each as wide as what it holds.
class Table {
   public:
    explicit Table(std::vector<std::string> headlines) : headlines_(std::move(headlines)) {}
    void add(std::vector<Cell> row) { rows_.push_back(std::move(row)); }
    [[nodiscard]] bool empty() const { return rows_.empty(); }
    void print(std::ostream& out, std::string_view indent = {}) const;

   private:
    std::vector<std::string> headlines_;
    std::vector<std::vector<Cell>> rows_;
};

// How many columns of a terminal a text takes, about: one for each character.
[[nodiscard]] std::size_t width_of(std::string_view text);
// The text cut to so many columns, with an ellipsis if it was longer.
[[nodiscard]] std::string cut(std::string_view text, std::size_t width);

// "1234", "12.3 KiB", "4.5 MiB"
[[nodiscard]] std::string readable_size(std::size_t bytes);
// "a, b, c", or of more than `most` words "a, b, ...".
template <class Words>
[[nodiscard]] std::string comma_list(const Words& words, std::size_t most = static_cast<std::size_t>(-1)) {
    std::string text;
    std::size_t count = 0;
    for (const auto& word : words) {
        if (count == most) return text + ", ...";
        text.append(count++ == 0 ? "" : ", ").append(word);
    }
    return text;
}

// "1 document", "2 documents"
[[nodiscard]] std::string counted(std::size_t count, const std::string& what);

}  // namespace zentadb
