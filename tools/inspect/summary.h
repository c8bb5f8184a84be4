#pragma once

#include <string>
#include <zentadbpp.hpp>

namespace zentadb {

// What happened between two states: "1 created, 2 updated", or "nothing new".
[[nodiscard]] std::string summary(const zentadbpp::Handle& before, const zentadbpp::Handle& after);

// That the state was written by several instances, where it was not before: "written by 2 instances: ...", or nothing.
[[nodiscard]] std::string instance_notice(const zentadbpp::Handle& before, const zentadbpp::Handle& after);

// What of the state is to be settled: "1 document in conflict; zentadb conflicts STORE shows it", or nothing.
[[nodiscard]] std::string conflict_notice(const zentadbpp::Handle& handle, const std::string& store);

}  // namespace zentadb
