#include <algorithm>
#include <iostream>

#include "cli/table.h"
#include "commands.h"
#include "inspect/sync_json.h"
#include "store/json_text.h"
#include "store/store.h"

namespace zentadb {

namespace {

struct Options {
    std::string store;
    bool json = false;
    bool exit_code = false;
};

struct Counts {
    std::size_t documents = 0;
    std::size_t deleted = 0;
    std::size_t orderings = 0;
    std::size_t revisions = 0;
    std::size_t conflicts = 0;
    std::size_t pruned = 0;
};

Counts count(const Store& store, const SyncJson& sync_json) {
    Counts counts;
    for (const Entry& document : sync_json.documents()) {
        const RevisionTree tree(document.value);
        counts.revisions += tree.revisions().size();
        counts.pruned += static_cast<std::size_t>(std::ranges::count_if(
            tree.revisions(), [&](const Revision& revision) { return !sync_json.has_content(revision); }));
        if (is_ordering(document.key)) {
            ++counts.orderings;
            continue;
        }
        ++(is_deletion(store.handle.winning(document.key)) ? counts.deleted : counts.documents);
        if (!store.handle.conflicting(document.key).empty()) ++counts.conflicts;
    }
    return counts;
}

// The size with the fast hash, about: each SHA-256 makes room for what is on average an "x" and ten digits.
std::size_t size_with_fast_hash(std::string_view text) {
    constexpr std::size_t long_hash = 64;
    constexpr std::size_t short_hash = 11;
    std::size_t size = text.size();
    std::size_t digits = 0;
    for (const char character : text) {
        const bool is_digit = (character >= '0' && character <= '9') || (character >= 'a' && character <= 'f');
        if (!is_digit && digits == long_hash) size -= long_hash - short_hash;
        digits = is_digit ? digits + 1 : 0;
    }
    return size;
}

// Of a large text, what parts of it come to is taken for all of it.
constexpr std::size_t parts = 16;
constexpr std::size_t part_size = std::size_t{1} << 20;
constexpr std::size_t whole = parts * part_size;  // what is compressed as a whole

std::size_t size_compressed(std::string_view text) {
    constexpr auto replace = nlohmann::json::error_handler_t::replace;
    if (text.size() <= whole) return zentadbpp::compress(text).size();
    std::string sample;
    for (std::size_t part = 0; part < parts; ++part) sample.append(text, text.size() / parts * part, part_size);
    const nlohmann::json object{{"sample", sample}};
    const auto size = static_cast<double>(zentadbpp::compress(object.dump(-1, ' ', false, replace)).size());
    return static_cast<std::size_t>(size / static_cast<double>(sample.size()) * static_cast<double>(text.size()));
}

std::string compared(std::size_t size, std::size_t with) {
    const auto percent = with == 0 || size >= with ? 0 : 100 - size * 100 / with;
    return readable_size(size) + (percent > 0 ? ", " + std::to_string(percent) + " % less" : ", no smaller");
}

ExitCode status(const Options& options) {
    const Store store = open_store(options.store);
    const SyncJson sync_json(store.handle);
    const Counts counts = count(store, sync_json);
    const bool empty = sync_json.documents().empty();
    const std::string root = empty ? "" : store.handle.root().str();
    const zentadbpp::List instances = store.handle.instances();
    const std::size_t compressed = size_compressed(sync_json.text());
    const std::size_t fast = size_with_fast_hash(sync_json.text());
    if (options.json) {
        nlohmann::ordered_json result{{"root", root},
                                      {"instances", std::vector<std::string>(instances.begin(), instances.end())},
                                      {"documents", counts.documents},
                                      {"deleted", counts.deleted},
                                      {"orderings", counts.orderings},
                                      {"revisions", counts.revisions},
                                      {"conflicts", counts.conflicts},
                                      {"pruned", counts.pruned},
                                      {"compressed", store.compressed},
                                      {"size", sync_json.text().size()},
                                      {"size_compressed", compressed},
                                      {"size_with_fast_hash", fast}};
        std::cout << pretty(result) << '\n';
    } else {
        Table table({});
        table.add({{"documents"},
                   {std::to_string(counts.documents) + ", and " + std::to_string(counts.deleted) + " deleted"}});
        table.add({{"revisions"},
                   {std::to_string(counts.revisions) +
                    (counts.pruned > 0 ? ", the contents of " + std::to_string(counts.pruned) + " pruned" : "")}});
        table.add(
            {{"conflicts"}, {std::to_string(counts.conflicts), counts.conflicts > 0 ? Paint::yellow : Paint::green}});
        table.add({{"arrays"}, {counted(counts.orderings, "order") + " of elements"}});
        if (!empty) table.add({{"root"}, {root}});
        if (instances.size() > 0) table.add({{"instances"}, {comma_list(instances)}});
        table.add({{"size"}, {readable_size(sync_json.text().size()) + (store.compressed ? ", kept compressed" : "")}});
        table.add(
            {{"compressed"},
             {(sync_json.text().size() > whole ? "about " : "") + compared(compressed, sync_json.text().size())}});
        if (fast < sync_json.text().size())
            table.add({{"fast hash"}, {"about " + compared(fast, sync_json.text().size())}});
        table.print(std::cout);
    }
    return options.exit_code && counts.conflicts > 0 ? ExitCode::found : ExitCode::done;
}

}  // namespace

void add_status(Program& program) {
    auto [arguments, options] =
        program.command("status", status, looking, "Show the documents, conflicts and sizes of a store",
                        "zentadb status trip.sync\n"
                        "zentadb status trip.sync --json | jq .conflicts");
    arguments.required("STORE", options.store, "The store");
    arguments.flag("--json", options.json, "Print JSON; sizes in bytes");
    arguments.flag("--exit-code", options.exit_code, "Exit with 1 if there are conflicts");
}

}  // namespace zentadb
