#pragma once

#include <string>
#include <zentadbpp.hpp>

namespace zentadb {

// A content in the form in which versions are merged: strings as in host data, links to other documents as references.
[[nodiscard]] zentadbpp::Json content_from(std::string_view stored);
// The same as it is stored.
[[nodiscard]] std::string stored_from(const zentadbpp::Json& content);

// The value of a content for users: a reference to an array is "[...]", a reference to an object its id.
[[nodiscard]] std::string line_from(const zentadbpp::Json& value);

}  // namespace zentadb
