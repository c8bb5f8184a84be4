#include <array>

#include "cli/child_process.h"
#include "cli/table.h"
#include "commands.h"
#include "inspect/revision_marks.h"
#include "inspect/shown_content.h"
#include "store/json_text.h"
#include "store/store.h"

namespace zentadb {

namespace {

struct Options {
    std::string store;
    std::string id;
    std::string format = "dot";
    std::string output = "-";
};

// A node: its label in lines, and what it is.
struct Node {
    std::string name;
    std::string content;
    std::string words;
    Mark mark;
    std::size_t parent;
    bool is_quiet;
};

std::vector<Node> nodes_of(const Options& options) {
    constexpr std::size_t label = 60;
    const Store store = open_store(options.store);
    const SyncJson sync_json(store.handle, input_name(store.path));
    const RevisionTree tree = sync_json.tree(options.id);
    const RevisionMarks marks(store, options.id, tree);
    const std::vector<std::string> names = tree.short_names();
    std::vector<Node> nodes;
    for (std::size_t index = 0; index < tree.revisions().size(); ++index) {
        nodes.push_back({printable(names[index]), cut(printable(change_line(sync_json, tree, index)), label),
                         marks.words(index), marks.of(index), tree[index].parent, marks.is_quiet(index)});
    }
    return nodes;
}

std::string replaced(std::string_view text, std::initializer_list<std::pair<char, const char*>> pairs) {
    std::string result;
    for (const char character : text) {
        const char* other = nullptr;
        for (const auto& [from, to] : pairs) {
            if (character == from) other = to;
        }
        if (other != nullptr) {
            result += other;
        } else {
            result += character;
        }
    }
    return result;
}

std::string label_of(const Node& node, const std::string& line_break,
                     std::initializer_list<std::pair<char, const char*>> pairs) {
    std::string label = replaced(node.name, pairs);
    if (!node.content.empty()) label += line_break + replaced(node.content, pairs);
    if (!node.words.empty()) label += line_break + node.words;
    return label;
}

// In the order of the marks.
constexpr std::array dot_styles = {"",
                                   ", penwidth=2, fillcolor=palegreen",
                                   ", fillcolor=khaki",
                                   ", fillcolor=lightpink",
                                   ", style=\"rounded,filled,dashed\", fillcolor=whitesmoke",
                                   ", style=\"rounded,filled,dashed\", fillcolor=whitesmoke"};

std::string dot_text(const std::string& id, const std::vector<Node>& nodes) {
    std::string text = "digraph \"" + replaced(printable(id), {{'"', "\\\""}, {'\\', "\\\\"}}) + "\" {\n";
    text +=
        "    rankdir=LR;\n    node [shape=box, style=\"rounded,filled\", fillcolor=white, fontname=\"sans-serif\"];\n";
    for (std::size_t index = 0; index < nodes.size(); ++index) {
        if (nodes[index].is_quiet) continue;
        const std::string label = label_of(nodes[index], "\\n", {{'"', "\\\""}, {'\\', "\\\\"}});
        text += "    r" + std::to_string(index) + " [label=\"" + label + "\"" +
                dot_styles[static_cast<std::size_t>(nodes[index].mark)] + "];\n";
        if (nodes[index].parent != Revision::none) {
            text += "    r" + std::to_string(nodes[index].parent) + " -> r" + std::to_string(index) + ";\n";
        }
    }
    return text + "}\n";
}

std::string mermaid_text(const std::vector<Node>& nodes) {
    const auto escapes = {std::pair('"', "#quot;"), {'<', "#lt;"}, {'>', "#gt;"}, {'#', "#35;"},
                          {'&', "#amp;"},           {'`', "#96;"}};
    std::string text = "flowchart LR\n";
    for (std::size_t index = 0; index < nodes.size(); ++index) {
        const Node& node = nodes[index];
        if (node.is_quiet) continue;
        text += "    r" + std::to_string(index) + "[\"" + label_of(node, "<br>", escapes) + "\"]";
        if (node.mark == Mark::wins) text += ":::wins";
        if (node.mark == Mark::conflict) text += ":::conflict";
        text += '\n';
        if (node.parent != Revision::none) {
            text += "    r" + std::to_string(node.parent) + " --> r" + std::to_string(index) + "\n";
        }
    }
    return text + "    classDef wins stroke-width:3px\n    classDef conflict stroke-dasharray:4\n";
}

ExitCode graph(const Options& options) {
    const std::vector<Node> nodes = nodes_of(options);
    if (options.format == "mermaid") {
        write_output(options.output, mermaid_text(nodes));
    } else if (options.format == "dot") {
        write_output(options.output, dot_text(options.id, nodes));
    } else {
        write_output(options.output,
                     output_of({"dot", "-Tsvg"}, dot_text(options.id, nodes),
                               "Install Graphviz (apt-get install graphviz), or use --format mermaid."));
    }
    return ExitCode::done;
}

}  // namespace

void add_graph(Program& program) {
    auto [arguments, options] = program.command("graph", graph, looking, "Draw the history of a document as a graph",
                                                "zentadb graph trip.sync t1 --format svg -o t1.svg\n"
                                                "zentadb graph trip.sync t1 | dot -Tpng > t1.png\n"
                                                "zentadb graph trip.sync t1 --format mermaid");
    arguments.required("STORE", options.store, "The store");
    arguments.required("ID", options.id, "Id of the document");
    arguments.choice("--format", options.format, {"dot", "svg", "mermaid"},
                     "dot (the default), svg (through Graphviz's dot) or mermaid");
    arguments.optional("-o,--output", options.output, "Write the drawing to this file");
}

}  // namespace zentadb
