#include "inspect/explain_data.h"

#include "cli/explain.h"
#include "cli/table.h"
#include "inspect/data_shape.h"
#include "store/json_text.h"

namespace zentadb {

using nlohmann::json;

Failure explained(const zentadbpp::Error& error, const std::string& path, const std::string& data, const json& config) {
    if (const auto problem = json_problem(path, data)) return {ExitCode::input, *problem};
    const Failure failure = explained(error);
    std::string what = failure.what();
    const json parsed = json::parse(data, nullptr, false);
    if (error.key().starts_with("duplicate_") && !error.args().empty() && parsed.is_object()) {
        const std::string places = comma_list(DataShape(parsed, config).places_of(std::string(error.args())));
        const std::size_t at = what.find(error.args());
        if (!places.empty() && at != std::string::npos) what.replace(at, error.args().size(), places);
    }
    return {failure.exit_code(), input_name(path) + ": " + what, failure.advice()};
}

}  // namespace zentadb
