#include "json/value.h"

#include <algorithm>

namespace libzentadbpp {

const JsonValue* JsonValue::find(std::string_view key) const {
    const auto all = members();
    constexpr std::size_t few = 16;
    if (all.size() <= few) {  // lengths distinguish most keys
        const auto at = std::ranges::find(all, key, &JsonMember::key);
        return at != all.end() ? &at->value : nullptr;
    }
    const auto at = std::lower_bound(all.begin(), all.end(), key,
                                     [](const JsonMember& member, std::string_view k) { return member.key < k; });
    return at != all.end() && at->key == key ? &at->value : nullptr;
}

}  // namespace libzentadbpp
