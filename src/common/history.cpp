#include "common/history.h"

#include <utility>
#include <vector>

#include "common/error.h"
#include "common/json_scanner.h"
#include "common/json_writer.h"
#include "common/small_stack.h"

namespace libzentadbpp {

namespace {

enum class Reading : std::uint8_t {
    chain,     // strings under one another, up to an array of branches
    branches,  // alternatives under one parent
    rest,      // what follows the end of a chain and tells nothing
};

// An array that is being read, and where its next entry belongs.
struct OpenArray {
    std::uint32_t parent;
    std::uint32_t generation;
    Reading reading;
};

bool is_chain(std::span<const HistoryEntry> entries) {
    for (std::size_t i = 1; i < entries.size(); ++i) {
        if (entries[i].parent != i - 1) return false;
    }
    return true;
}

void fold_chain(std::span<const HistoryEntry> entries, TextBuffer& out) {
    std::string_view separator = "[";
    for (const HistoryEntry& entry : entries) {
        out.append(separator);
        write_json_string(entry.text, out);
        separator = ", ";
    }
    out.push_back(']');
}

}  // namespace

void unfold(std::string_view history_array, Arena& arena, HistoryVisitor& visitor) {
    JsonScanner scanner(history_array, arena);
    SmallStack<OpenArray, 16> open;
    scanner.next_token();
    open.push({no_entry, 1, Reading::chain});
    while (!open.empty()) {
        char token = scanner.next_token();
        if (token == ',') token = scanner.next_token();
        if (token == ']') {
            open.pop();
            continue;
        }
        OpenArray& array = open.top();
        if (array.parent == no_entry && token != '"') {
            raise<InvalidRevisionException>(source::utils, "unfold", "revision_not_a_string");
        }
        if (token == '"' && array.reading != Reading::rest) {
            const std::string_view entry = scanner.read_string();
            if (array.parent == no_entry && entry.empty()) {
                raise<InvalidRevisionException>(source::utils, "unfold", "empty_revstring");
            }
            const std::uint32_t visited = visitor.visit(entry, array.generation, array.parent);
            if (array.reading == Reading::chain) array = {visited, array.generation + 1, Reading::chain};
        } else if (token == '[' && array.reading == Reading::chain) {
            array.reading = Reading::rest;
            open.push({array.parent, array.generation, Reading::branches});
        } else if (token == '[' && array.reading == Reading::branches) {
            open.push({array.parent, array.generation, Reading::chain});
        } else {
            if (array.reading == Reading::chain) array.reading = Reading::rest;
            scanner.put_back();
            scanner.skip_value(0, no_depth_limit);
        }
    }
}

void fold(std::span<const HistoryEntry> entries, TextBuffer& out) {
    if (entries.empty()) {
        out.append("[]");
        return;
    }
    if (is_chain(entries)) {
        fold_chain(entries, out);
        return;
    }

    std::vector<std::uint32_t> first_child(entries.size(), no_entry);
    std::vector<std::uint32_t> next_sibling(entries.size(), no_entry);
    for (std::size_t i = entries.size(); i-- > 1;) {
        next_sibling[i] = std::exchange(first_child[entries[i].parent], static_cast<std::uint32_t>(i));
    }

    // The next branch of every array of branches that is being written. Each ends the chain that it stands in.
    SmallStack<std::uint32_t, 32> branches;
    std::uint32_t entry = 0;
    out.push_back('[');
    for (;;) {
        write_json_string(entries[entry].text, out);
        const std::uint32_t child = first_child[entry];
        std::string_view separator = ", ";
        if (child == no_entry) {
            out.push_back(']');
        } else if (next_sibling[child] == no_entry) {
            out.append(separator);
            entry = child;
            continue;
        } else {
            branches.push(child);
            out.append(", [");
            separator = "";
        }
        // Up to the next branch that is a chain.
        for (bool chain = false; !chain;) {
            if (branches.empty()) return;
            if (branches.top() == no_entry) {
                branches.pop();
                out.append("]]");
                continue;
            }
            entry = std::exchange(branches.top(), next_sibling[branches.top()]);
            out.append(separator);
            separator = ", ";
            chain = first_child[entry] != no_entry;
            if (chain) {
                out.push_back('[');
            } else {
                write_json_string(entries[entry].text, out);
            }
        }
    }
}

}  // namespace libzentadbpp
