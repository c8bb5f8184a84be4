#include <iostream>

#include "cli/table.h"
#include "commands.h"
#include "inspect/data_shape.h"
#include "inspect/explain_data.h"
#include "store/files.h"
#include "store/json_text.h"
#include "store/settings.h"

namespace zentadb {

namespace {

using nlohmann::ordered_json;

struct Options {
    std::string data;
    bool json = false;
    bool exit_code = false;
    Settings settings;
};

std::string ids_of(const ArrayPlace& array) {
    std::string words;
    const auto add = [&](std::size_t count, const char* source) {
        if (count == 0) return;
        words.append(words.empty() ? "" : ", ");
        if (count < array.elements.size()) words.append(std::to_string(count)).append(" ");
        words.append(source);
    };
    add(array.with_own_id, "_id");
    add(array.with_rule_id, "by rule");
    add(array.with_position, "by position");
    add(array.elements.size() - array.with_own_id - array.with_rule_id - array.with_position, "none");
    return words.empty() ? "-" : words;
}

void warn(const ArrayPlace& array) {
    const std::string begin = painted(Paint::yellow, "warning: ", std::cout) + printable(array.path) + ": ";
    if (array.lost > 0) {
        std::cout << begin << counted(array.lost, "element") << " would be lost: another element has the same id\n";
    } else if (array.shared > 0) {
        std::cout << begin << counted(array.shared, "element") << " would share a document with an equal element\n";
    } else if (!array.all_have_ids()) {
        std::cout << begin << "the elements have no ids; a second one would replace the first\n";
    }
}

// Objects and arrays that cannot be distinguished make the library refuse data, which is what is looked for here.
// Anything else that is wrong with a text ends the run.
std::string why_refused(const Options& options, const std::string& text, const nlohmann::json& config) {
    try {
        static_cast<void>(zentadbpp::flatten(text, config.dump()));
        return {};
    } catch (const zentadbpp::Error& error) {
        const Failure failure = explained(error, options.data, text, config);
        if (!error.key().starts_with("duplicate_")) throw failure;
        return failure.what();
    }
}

ExitCode arrays(const Options& options) {
    const std::string text = read_file(options.data);
    const nlohmann::json config = nlohmann::json::parse(options.settings.config());
    const std::string refused = why_refused(options, text, config);
    const nlohmann::json data = nlohmann::json::parse(text, nullptr, false);
    if (!data.is_object()) throw Failure(ExitCode::input, input_name(options.data) + ": not a JSON object in UTF-8");
    const DataShape shape(data, config);
    const bool all_well = refused.empty() && shape.is_sound();
    const auto helps = [&](const nlohmann::json& suggested) {
        return suggested != config && DataShape(data, suggested).is_sound() &&
               why_refused(options, text, suggested).empty();
    };
    nlohmann::json suggested;
    if (!all_well) suggested = shape.suggested_config();
    // A rule may give an object elsewhere the id of an element, while positions do no harm.
    if (!all_well && !helps(suggested)) suggested = shape.positional_config();
    if (all_well || !helps(suggested)) suggested = nullptr;

    if (options.json) {
        ordered_json list = ordered_json::array();
        for (const ArrayPlace& array : shape.arrays()) {
            list.push_back({{"path", array.path},
                            {"domains", array.domains},
                            {"elements", array.elements.size()},
                            {"with_own_id", array.with_own_id},
                            {"with_rule_id", array.with_rule_id},
                            {"with_position", array.with_position},
                            {"lost", array.lost},
                            {"shared", array.shared}});
        }
        std::cout << pretty({{"arrays", list}, {"refused", refused}, {"configuration", suggested}}) << '\n';
        return options.exit_code && !all_well ? ExitCode::found : ExitCode::done;
    }
    Table table({"PATH", "ELEMENTS", "IDS", "DOMAIN"});
    for (const ArrayPlace& array : shape.arrays()) {
        const std::size_t more = array.domains.size() - 1;
        table.add({{array.path, Paint::cyan},
                   {std::to_string(array.elements.size())},
                   {ids_of(array)},
                   {array.domains.front() + (more > 0 ? " and " + std::to_string(more) + " more" : "")}});
    }
    if (table.empty()) {
        std::cout << "no arrays of objects\n";
    } else {
        table.print(std::cout);
    }
    for (const ArrayPlace& array : shape.arrays()) warn(array);
    if (!refused.empty()) {
        std::cout << painted(Paint::yellow, "warning: ", std::cout) << "update refuses this: " << refused << '\n';
    }
    constexpr std::size_t longest_line = 2000;
    if (const std::string line = one_line(suggested); !suggested.is_null() && line.size() <= longest_line) {
        std::cout << "This configuration gives stable ids:\n  " << line << '\n';
    } else if (!suggested.is_null()) {
        std::cout << "A configuration gives stable ids; --json prints it under \"configuration\"\n";
    } else if (!all_well) {
        std::cout << "No configuration gives stable ids; the elements need an \"_id\" of their own\n";
    }
    return options.exit_code && !all_well ? ExitCode::found : ExitCode::done;
}

}  // namespace

void add_arrays(Program& program) {
    auto [arguments, options] =
        program.command("arrays", arrays, looking, "Show the arrays in data and whether their elements have ids",
                        "zentadb arrays trip.json\n"
                        "zentadb arrays trip.json --ids 'code;name,year'\n"
                        "zentadb arrays trip.json --json | jq .configuration > config.json");
    arguments.required("DATA", options.data, "A JSON object, - for standard input");
    arguments.flag("--json", options.json, "Print JSON");
    arguments.flag("--exit-code", options.exit_code, "Exit with 1 if an element has no id of its own");
    options.settings.declare_writing(arguments);
}

}  // namespace zentadb
