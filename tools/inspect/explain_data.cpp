#include "inspect/explain_data.h"

#include "cli/explain.h"
#include "cli/table.h"
#include "inspect/data_shape.h"
#include "store/json_text.h"

namespace zentadb {

using nlohmann::json;

namespace {

std::string replaced(std::string text, std::string_view old, const std::string& fresh) {
    if (const std::size_t at = text.find(old); at != std::string::npos) text.replace(at, old.size(), fresh);
    return text;
}

}  // namespace

Failure explained(const zentadbpp::Error& error, const std::string& path, const std::string& data, const json& config) {
    if (const auto problem = json_problem(path, data)) return {ExitCode::input, *problem};
    const Failure failure = explained(error);
    std::string what = failure.what();
    const json parsed = json::parse(data, nullptr, false);
    if (error.key().starts_with("duplicate_") && !error.args().empty() && parsed.is_object()) {
        const std::string places = comma_list(DataShape(parsed, config).places_of(std::string(error.args())));
        if (!places.empty()) what = replaced(what, error.args(), places);
    }
    return {failure.exit_code(), input_name(path) + ": " + what, failure.advice()};
}

}  // namespace zentadb
