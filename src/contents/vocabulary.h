#pragma once

#include <string_view>

namespace libzentadbpp {

// The fixed vocabulary of the flattened form.
namespace vocabulary {
inline constexpr std::string_view ordering_id_format = "%instanceid%-ordering-%domain%";
inline constexpr std::string_view root_name = "root";
inline constexpr std::string_view root_path = "root->";
inline constexpr std::string_view array_path_open = "a(";
inline constexpr std::string_view object_path_open = "o(";
inline constexpr std::string_view path_close = ")->";
inline constexpr std::string_view key_separator = "-";
inline constexpr char array_reference_marker = 'A';
inline constexpr char object_reference_marker = 'O';
inline constexpr char literal_string_marker = '!';
inline constexpr std::string_view ordering_ids_key = "s";
inline constexpr std::string_view ordering_instance_key = "i";
inline constexpr std::string_view ordering_domain_key = "d";
inline constexpr std::string_view no_flatten_key = "#nf";
inline constexpr std::string_view do_flatten_key = "#df";
inline constexpr std::string_view id_key = "_id";
}  // namespace vocabulary

}  // namespace libzentadbpp
