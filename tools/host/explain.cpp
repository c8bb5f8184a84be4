#include "host/explain.h"

namespace zentadb {

Failure explained(const zentadbpp::Error& error) { return {Outcome::input, error.what()}; }

}  // namespace zentadb
