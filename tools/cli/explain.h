#pragma once

#include <zentadbpp.hpp>

#include "cli/failure.h"

namespace zentadb {

// An error of the library for people: what is wrong, and what can be done about it.
[[nodiscard]] Failure explained(const zentadbpp::Error& error);

}  // namespace zentadb
