#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <zentadbpp.hpp>

#include "cli/failure.h"

namespace zentadb {

// An error of the library about data from a file, with places in that file.
[[nodiscard]] Failure explained(const zentadbpp::Error& error, const std::string& path, const std::string& data,
                                const nlohmann::json& config);

}  // namespace zentadb
