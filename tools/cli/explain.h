#pragma once

#include <zentadbpp.hpp>

#include "cli/failure.h"

namespace zentadb {

// An error of the library as a message for users: what is wrong, and what to do about it.
[[nodiscard]] Failure explained(const zentadbpp::Error& error);

}  // namespace zentadb
