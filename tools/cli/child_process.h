#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zentadb {

// What another program prints for an input. Throws Failure (system) where it is not there (`advice` then tells what to
// do) or fails.
[[nodiscard]] std::string output_of(const std::vector<std::string>& command, std::string_view input,
                                    const std::string& advice);

}  // namespace zentadb
