#include "json/environment.h"

#include <cstdlib>

namespace libzentadbpp {

// "USE_FAST_INT" promises the same text faster; there is only one integer writer, the fast one, so it has nothing to
// switch.
bool fast_float_enabled() {
    static const bool enabled = std::getenv("USE_FAST_FLOAT") != nullptr;
    return enabled;
}

bool compact_form_enabled() {
    static const bool enabled = std::getenv("USE_BEL_FORMAT") != nullptr;
    return enabled;
}

}  // namespace libzentadbpp
