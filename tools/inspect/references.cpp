#include "inspect/references.h"

namespace zentadb {

using nlohmann::json;

References references_in(const json& content) {
    References found;
    std::vector<const json*> left{&content};
    while (!left.empty()) {
        const json& value = *left.back();
        left.pop_back();
        if (value.is_string()) {
            const auto& text = value.get_ref<const std::string&>();
            if (text.starts_with('O')) found.documents.push_back(text.substr(1));
            if (text.starts_with('A')) found.lists.push_back(text.substr(1));
        }
        if (!value.is_structured() || (value.is_object() && value.contains("#nf"))) continue;
        for (const json& inner : value) left.push_back(&inner);
    }
    return found;
}

std::optional<ListContent> list_in(const json& content) {
    if (!content.is_object() || !content.contains("d") || !content.contains("i") || !content.contains("s")) return {};
    if (!content["d"].is_string() || !content["i"].is_string() || !content["s"].is_array()) return {};
    ListContent list{content["d"], content["i"], {}};
    for (const json& id : content["s"]) {
        if (id.is_string()) list.elements.push_back(id);
    }
    return list;
}

}  // namespace zentadb
