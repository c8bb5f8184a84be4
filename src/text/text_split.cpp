#include "text/text_split.h"

namespace libzentadbpp {

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    std::size_t begin = 0;
    for (std::size_t at = text.find(separator, 1); at != std::string_view::npos; at = text.find(separator, begin)) {
        pieces.push_back(text.substr(begin, at - begin));
        begin = at + 1;
    }
    pieces.push_back(text.substr(begin));
    return pieces;
}

}  // namespace libzentadbpp
