#include "json/value.h"

#include <algorithm>

namespace libzentadbpp {

const JsonValue* JsonValue::find(std::string_view key) const {
    const auto all = members();
    const auto at = std::lower_bound(all.begin(), all.end(), key,
                                     [](const JsonMember& member, std::string_view k) { return member.key < k; });
    return at != all.end() && at->key == key ? &at->value : nullptr;
}

}  // namespace libzentadbpp
