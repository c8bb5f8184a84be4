#pragma once

#include <string>
#include <zentadbpp.hpp>

namespace zentadb {

// Throws Failure (damaged) if the source has contents that the store lacks and that do not hash to their names, because
// they would pass for what somebody else writes. `name` is the source's name for people, `given` the text it was opened
// from, or null.
void refuse_forged(const zentadbpp::Handle& source, const zentadbpp::Handle& store, const zentadbpp::Text& given,
                   const std::string& name);

}  // namespace zentadb
