#include <algorithm>
#include <filesystem>
#include <iostream>

#include "cli/explain.h"
#include "cli/table.h"
#include "commands.h"
#include "inspect/integrity.h"
#include "inspect/salvage.h"
#include "store/files.h"
#include "store/json_text.h"

namespace zentadb {

namespace {

struct Options {
    std::string store;
    std::string salvage;
    bool quiet = false;
    bool json = false;
};

constexpr std::size_t most_lines = 20;

void print_lines(const std::string& headline, const std::vector<std::string>& lines, Paint paint, bool all) {
    if (lines.empty()) return;
    std::cout << painted(paint, headline, std::cout) << '\n';
    const std::size_t shown = all ? lines.size() : std::min(lines.size(), most_lines);
    for (std::size_t at = 0; at < shown; ++at) std::cout << "  " << printable(lines[at]) << '\n';
    if (shown < lines.size()) std::cout << "  and " << lines.size() - shown << " more; --json lists all\n";
}

// The text of the store, uncompressed if possible.
std::string inner_text(const std::string& text) {
    try {
        return zentadbpp::uncompress(text).str();
    } catch (const zentadbpp::Error&) {
        return text;
    }
}

ExitCode verify(const Options& options) {
    const std::string text = read_file(options.store);
    const std::string name = input_name(options.store);
    if (text.empty()) throw Failure(ExitCode::damaged, name + ": the file is empty");
    if (is_nested_deeper(inner_text(text), deepest_text))
        throw Failure(ExitCode::damaged, name + ": the uncompressed text is nested too deeply");
    const IntegrityReport report = check_integrity(text);
    const bool damaged = report.is_damaged();
    Salvage saved;
    if (damaged) saved = salvage(inner_text(text));

    std::vector<std::string> damages;
    std::vector<std::string> notes;
    for (const Finding& finding : report.findings)
        (is_damage(finding.trouble) ? damages : notes).push_back(describe(finding));
    if (!report.refused.empty()) {
        damages.emplace_back(explained(zentadbpp::Error(report.refused)).what());
        if (saved.stopped_at > 0)
            damages.push_back("the text ends or becomes invalid at byte " +
                              std::to_string(std::min(saved.stopped_at, text.size())) + " of " +
                              std::to_string(text.size()));
        damages.insert(damages.end(), saved.damaged.begin(), saved.damaged.end());
    }
    const std::size_t histories = damaged ? saved.histories : report.documents;
    const std::size_t contents = damaged ? saved.contents : report.contents;
    if (options.json) {
        nlohmann::ordered_json result{{"damaged", damaged},
                                      {"damages", damages},
                                      {"notes", notes},
                                      {"whole_histories", histories},
                                      {"whole_contents", contents}};
        std::cout << pretty(result) << '\n';
    } else if (!options.quiet) {
        print_lines("damaged:", damages, Paint::red, false);
        print_lines("notes:", notes, Paint::yellow, false);
        std::cout << "undamaged: the histories of " << counted(histories, "document") << ", "
                  << counted(contents, "content");
        if (!damaged) std::cout << ", " << report.checked_contents << " of them checked by their hash";
        std::cout << '\n';
    }
    if (!damaged) return ExitCode::done;
    if (options.salvage.empty()) {
        if (!options.json && !options.quiet) {
            std::cerr
                << "Restore a copy of the file, or save the undamaged parts with --salvage FILE and merge another "
                   "copy into them.\n";
        }
        return ExitCode::damaged;
    }
    std::error_code ignored;
    if (std::filesystem::equivalent(options.salvage, options.store, ignored))
        throw Failure(ExitCode::usage, options.salvage + ": this is the damaged store",
                      "Nothing was changed. Save to another file: more may be recovered from this one.");
    if (saved.sync_json.empty())
        throw Failure(ExitCode::damaged, name + ": nothing can be recovered", "Restore a copy of the file.");
    write_output(options.salvage, zentadbpp::Handle(saved.sync_json).dump().view());
    return ExitCode::damaged;
}

}  // namespace

void add_verify(Program& program) {
    auto [arguments, options] =
        program.command("verify", verify, maintenance, "Check the structure and the hashes of a store for damage",
                        "zentadb verify trip.sync\n"
                        "zentadb verify trip.sync --salvage saved.sync; zentadb merge saved.sync phone.sync");
    arguments.required("STORE", options.store, "The store");
    arguments.optional("--salvage", options.salvage, "Write a store of the undamaged parts to this file");
    arguments.flag("-q,--quiet", options.quiet, "Print nothing; exit with 4 if there is damage");
    arguments.flag("--json", options.json, "Print JSON");
}

}  // namespace zentadb
