#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zentadb {

// What another program prints for an input. Throws Failure (system), with `advice`, if the program is missing; also if
// it fails.
[[nodiscard]] std::string output_of(const std::vector<std::string>& command, std::string_view input,
                                    const std::string& advice);

}  // namespace zentadb
