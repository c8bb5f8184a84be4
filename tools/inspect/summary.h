#pragma once

#include <string>
#include <zentadbpp.hpp>

namespace zentadb {

// What happened between two states: "1 created, 2 updated", or "nothing new".
[[nodiscard]] std::string summary(const zentadbpp::Handle& before, const zentadbpp::Handle& after);

// Says that several instances wrote the state, if that is new: "written by 2 instances: ...", or nothing.
[[nodiscard]] std::string instance_notice(const zentadbpp::Handle& before, const zentadbpp::Handle& after);

// What remains to be resolved: "1 document in conflict; zentadb conflicts STORE shows it", or nothing.
[[nodiscard]] std::string conflict_notice(const zentadbpp::Handle& handle, const std::string& store);

}  // namespace zentadb
