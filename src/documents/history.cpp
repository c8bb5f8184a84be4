#include "documents/history.h"

#include <utility>
#include <vector>

#include "json/error.h"
#include "json/scanner.h"
#include "json/writer.h"
#include "memory/small_stack.h"

namespace libzentadbpp {

namespace {

// Where the branches of one entry belong. Arrays alternate with depth: one at an even level, counted from 0, is a
// chain, strings under one another up to an array of branches; one at an odd level holds such branches. Those that
// nothing but brackets lie between belong to one entry, so that any depth of brackets takes no memory.
struct Branches {
    std::uint32_t parent;
    std::uint32_t generation;
    std::size_t level;  // of the outermost array of them
};

}  // namespace

void unfold(std::string_view history_array, Arena& arena, HistoryVisitor& visitor) {
    JsonScanner scanner(history_array, arena);
    SmallStack<Branches, 16> branches;
    std::size_t level = 0;  // of the innermost open array
    std::uint32_t parent = no_entry;
    std::uint32_t generation = 1;
    bool ended = false;  // of a chain: what follows in it is ignored
    scanner.next_token();
    for (;;) {
        char token = scanner.next_token();
        if (token == ',') token = scanner.next_token();
        const bool is_chain = level % 2 == 0;
        if (token == ']') {
            if (level == 0) return;
            --level;
            ended = true;
            if (!is_chain) continue;
            while (branches.top().level > level) branches.pop();
            parent = branches.top().parent;
            generation = branches.top().generation;
            continue;
        }
        if (parent == no_entry && token != '"') {
            raise<InvalidRevisionException>(source::utils, "unfold", "revision_not_a_string");
        }
        if (token == '"' && !(is_chain && ended)) {
            const std::string_view entry = scanner.read_string();
            if (parent == no_entry && entry.empty()) {
                raise<InvalidRevisionException>(source::utils, "unfold", "empty_revstring");
            }
            const std::uint32_t visited = visitor.visit(entry, generation, parent);
            if (!is_chain) continue;
            parent = visited;
            ++generation;
        } else if (token == '[' && !(is_chain && ended)) {
            ++level;
            ended = false;
            if (is_chain && (branches.empty() || branches.top().parent != parent)) {
                branches.push({parent, generation, level});
            }
        } else {
            ended = true;
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
    std::vector<std::uint32_t> first_child(entries.size(), no_entry);
    std::vector<std::uint32_t> next_sibling(entries.size(), no_entry);
    for (std::size_t i = entries.size(); i-- > 1;) {
        next_sibling[i] = std::exchange(first_child[entries[i].parent], static_cast<std::uint32_t>(i));
    }

    // The next branch of every array of branches that is being written. Each ends the chain that contains it.
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
