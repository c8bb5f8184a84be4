#pragma once

#include <string>
#include <zentadbpp.hpp>

namespace zentadb {

// A content as versions are merged: strings as the host gave them, and what leads to other documents as references.
[[nodiscard]] zentadbpp::Json content_from(std::string_view stored);
// The same as it is stored.
[[nodiscard]] std::string stored_from(const zentadbpp::Json& content);

// The value of a content for people: what leads to an array is "[...]", what leads to an object its id.
[[nodiscard]] std::string line_from(const zentadbpp::Json& value);

}  // namespace zentadb
