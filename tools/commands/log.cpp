#include <algorithm>
#include <iostream>

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
    bool full = false;
    bool ascii = false;
    bool json = false;
};

struct Line {
    std::size_t revision;
    std::size_t depth;  // columns to the left that go on
    bool begins_branch;
};

// The line of a tree in which it goes on straight: towards the winner, else to the largest part. So what is in
// columns of its own is at most half of what is left, and the drawing never gets wider than the logarithm of the
// revisions.
std::vector<Line> lines_of(const RevisionTree& tree, std::size_t winner) {
    const std::vector<std::size_t> sizes = tree.sizes();
    std::vector<bool> leads_to_winner(tree.revisions().size());
    for (std::size_t at = winner; at != Revision::none; at = tree[at].parent) leads_to_winner[at] = true;

    std::vector<Line> lines;
    std::vector<Line> open;
    if (!tree.revisions().empty()) open.push_back({0, 0, false});
    while (!open.empty()) {
        const Line line = open.back();
        open.pop_back();
        lines.push_back(line);
        const std::vector<std::size_t>& children = tree[line.revision].children;
        if (children.empty()) continue;
        const std::size_t straight = *std::ranges::max_element(children, {}, [&](std::size_t child) {
            return std::pair(static_cast<bool>(leads_to_winner[child]), sizes[child]);
        });
        open.push_back({straight, line.depth, false});
        for (auto child = children.rbegin(); child != children.rend(); ++child) {
            if (*child != straight) open.push_back({*child, line.depth + 1, true});
        }
    }
    return lines;
}

void draw(const Options& options, const SyncJson& sync_json, const RevisionTree& tree, const RevisionMarks& marks) {
    const std::vector<std::string> short_names = tree.short_names();
    std::vector<Line> lines = lines_of(tree, marks.winner());
    if (!options.full) std::erase_if(lines, [&](const Line& line) { return marks.is_quiet(line.revision); });
    const auto name_of = [&](std::size_t index) { return options.full ? tree[index].name : short_names[index]; };
    const auto indent = [](const Line& line) { return 2 * line.depth + 2; };
    std::size_t width = 0;
    for (const Line& line : lines) width = std::max(width, indent(line) + name_of(line.revision).size());

    for (const Line& line : lines) {
        const Revision& revision = tree[line.revision];
        for (std::size_t column = 1; column <= line.depth; ++column) {
            const bool forks = column == line.depth && line.begins_branch;
            std::cout << (options.ascii ? (forks ? "|-" : "| ") : forks ? "├─" : "│ ");
        }
        const Mark mark = marks.of(line.revision);
        const bool is_closing = revision.hash() == "resolved";
        const std::string dot = options.ascii ? (is_closing ? "x " : "* ") : is_closing ? "× " : "● ";
        const std::string name = printable(name_of(line.revision));
        std::cout << dot << (mark == Mark::none ? name : painted(paint_of(mark), name, std::cout));
        std::string words = marks.words(line.revision);
        if (!words.empty()) words.insert(0, "[").append("]");
        std::string change = printable(change_line(sync_json, tree, line.revision));
        constexpr std::size_t unknown_width = 100;
        const std::size_t taken = width + words.size() + 4;
        const std::size_t columns = std::max(terminal_width(std::cout).value_or(unknown_width), taken + 20);
        if (!options.full) change = cut(change, columns - taken);
        if (!words.empty() || !change.empty()) std::cout << std::string(width + 2 - indent(line) - name.size(), ' ');
        if (!words.empty()) std::cout << painted(paint_of(mark), words, std::cout) << (change.empty() ? "" : "  ");
        std::cout << change << '\n';
    }
}

ExitCode log(const Options& options) {
    const Store store = open_store(options.store);
    const SyncJson sync_json(store.handle, input_name(store.path));
    const RevisionTree tree = sync_json.tree(options.id);
    const RevisionMarks marks(store, options.id, tree);
    if (!options.json) {
        draw(options, sync_json, tree, marks);
        return ExitCode::done;
    }
    auto list = nlohmann::ordered_json::array();
    for (std::size_t index = 0; index < tree.revisions().size(); ++index) {
        const Revision& revision = tree[index];
        const auto parent = revision.parent;
        list.push_back({{"revision", revision.name},
                        {"parent", parent == Revision::none ? nlohmann::ordered_json()
                                                            : nlohmann::ordered_json(tree[parent].name)},
                        {"state", marks.words(index)},
                        {"available", sync_json.has_content(revision)}});
    }
    std::cout << pretty(list) << '\n';
    return ExitCode::done;
}

}  // namespace

void add_log(Program& program) {
    auto [arguments, options] = program.command("log", log, looking, "Draw the history of a document",
                                                "zentadb log trip.sync t1\n"
                                                "zentadb log trip.sync t1 --full | less -R");
    arguments.required("STORE", options.store, "The store");
    arguments.required("ID", options.id, "Id of the document");
    arguments.flag("--full", options.full, "Print full names and changes");
    arguments.flag("--ascii", options.ascii, "Draw with ASCII characters");
    arguments.flag("--json", options.json, "Print JSON, parents before their children");
}

}  // namespace zentadb
