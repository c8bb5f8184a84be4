#pragma once

#include <set>
#include <string>
#include <zentadbpp.hpp>

namespace zentadb {

// The documents that are not deleted and that the data, as it was read from the handle, does not show anywhere.
[[nodiscard]] std::set<std::string> homeless(const zentadbpp::Handle& handle, const zentadbpp::Value& data);

}  // namespace zentadb
