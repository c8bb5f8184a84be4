#include "transformation/marked_objects.h"

#include "contents/references.h"
#include "json/canonical_object.h"

namespace libzentadbpp {

MarkedObjects::MarkedObjects(std::string_view content) {
    if (!may_hold_verbatim(content)) return;  // "#df" begins like "#nf"
    const char* const end = content.data() + content.size();
    std::vector<const char*> open;  // objects, and null for arrays
    for (const char* at = content.data(); at != end;) {
        if (*at == '"') {
            const char* const begin = at;
            at = written_string_end(at, end);
            if (at != end && *at == ':') add(open.back(), inside_quotes({begin, static_cast<std::size_t>(at - begin)}));
            continue;
        }
        if (*at == '{' || *at == '[') {
            open.push_back(*at == '{' ? at : nullptr);
        } else if (*at == '}' || *at == ']') {
            open.pop_back();
        }
        ++at;
    }
    std::ranges::sort(no_flatten_);
    std::ranges::sort(do_flatten_);
}

void MarkedObjects::add(const char* object, std::string_view key) {
    if (key == vocabulary::no_flatten_key) no_flatten_.push_back(object);
    if (key == vocabulary::do_flatten_key) do_flatten_.push_back(object);
}

}  // namespace libzentadbpp
