#include "libzentadbpp/text_sets.h"

#include "json/writer.h"
#include "libzentadbpp/frame.h"

namespace libzentadbpp {

CText joined(const std::vector<std::string>& set) {
    TextBuffer text;
    ListSeparator separator({}, ",");
    for (const std::string& element : set) {
        separator.append_to(text);
        text.append(element);
    }
    return Call::plain(std::move(text));
}

CText json_list(const std::vector<std::string>& list) {
    TextBuffer text;
    ListSeparator separator;
    text.push_back('[');
    for (const std::string& element : list) {
        separator.append_to(text);
        write_json_string(element, text);
    }
    text.push_back(']');
    return Call::rendered(std::move(text));
}

}  // namespace libzentadbpp
