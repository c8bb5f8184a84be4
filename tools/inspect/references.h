#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace zentadb {

// What a content leads to.
struct References {
    std::vector<std::string> documents;  // ids
    std::vector<std::string> lists;      // domains of arrays, whose elements are in ordering documents
};

[[nodiscard]] References references_in(const nlohmann::json& content);

// The content of an ordering document: the elements of an array in the order that an instance gave them.
struct ListContent {
    std::string domain;
    std::string instance;
    std::vector<std::string> elements;  // ids
};

// Nothing if the content is not a list.
[[nodiscard]] std::optional<ListContent> list_in(const nlohmann::json& content);

}  // namespace zentadb
