#include "cli/table.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace zentadb {

namespace {

bool begins_character(char byte) { return (static_cast<unsigned char>(byte) & 0xc0U) != 0x80U; }

}  // namespace

std::size_t width_of(std::string_view text) {
    return static_cast<std::size_t>(std::ranges::count_if(text, begins_character));
}

std::string cut(std::string_view text, std::size_t width) {
    if (width_of(text) <= width) return std::string(text);
    std::size_t end = 0;
    for (std::size_t count = 0; end < text.size(); ++end) {
        if (begins_character(text[end]) && ++count >= std::max<std::size_t>(width, 1)) break;
    }
    return std::string(text.substr(0, end)) + "…";
}

void Table::print(std::ostream& out, std::string_view indent) const {
    std::vector<std::vector<Cell>> lines;
    if (!headlines_.empty()) {
        std::vector<Cell>& line = lines.emplace_back();
        for (const std::string& headline : headlines_) line.push_back({headline, Paint::bold});
    }
    for (const auto& row : rows_) {
        std::vector<Cell>& line = lines.emplace_back();
        for (const Cell& cell : row) line.push_back({printable(cell.text), cell.paint});
    }
    std::vector<std::size_t> widths;
    for (const auto& line : lines) {
        widths.resize(std::max(widths.size(), line.size()));
        for (std::size_t at = 0; at < line.size(); ++at) widths[at] = std::max(widths[at], width_of(line[at].text));
    }
    for (const auto& line : lines) {
        std::size_t last = line.size();
        while (last > 0 && line[last - 1].text.empty()) --last;
        out << indent;
        for (std::size_t at = 0; at < last; ++at) {
            const auto& [text, paint] = line[at];
            out << (paint ? painted(*paint, text, out) : text);
            if (at + 1 < last) out << std::string(widths[at] - width_of(text) + 2, ' ');
        }
        out << '\n';
    }
}

std::string readable_size(std::size_t bytes) {
    constexpr std::array units = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    if (bytes < 10000) return std::to_string(bytes) + " bytes";
    auto size = static_cast<double>(bytes);
    std::size_t unit = 0;
    for (; size >= 1024 && unit + 1 < units.size(); ++unit) size /= 1024;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f %s", size, units[unit]);
    return text.data();
}

std::string counted(std::size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace zentadb
