#include "libzentadbpp/text_sets.h"

#include "json/writer.h"
#include "libzentadbpp/frame.h"

namespace libzentadbpp {

CText joined(const std::vector<std::string>& set) {
    TextBuffer text;
    const char* separator = "";
    for (const std::string& element : set) {
        text.append(separator);
        separator = ",";
        text.append(element);
    }
    return Call::plain(std::move(text));
}

CText json_list(const std::vector<std::string>& list) {
    TextBuffer text;
    const char* separator = "";
    text.push_back('[');
    for (const std::string& element : list) {
        text.append(separator);
        separator = ", ";
        write_json_string(element, text);
    }
    text.push_back(']');
    return Call::rendered(std::move(text));
}

}  // namespace libzentadbpp
