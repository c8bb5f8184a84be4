#include "json/error.h"

namespace libzentadbpp {

std::string error_record(std::string_view filename, int line, std::string_view function, std::string_view error,
                         std::optional<std::string_view> args) {
    std::string record = R"({ "filename" : ")";
    record.append(filename).append(R"(", "line": )").append(std::to_string(line));
    record.append(R"(, "function" : ")").append(function);
    record.append(R"(", "error" : ")").append(error);
    if (args) {
        record.append(R"(", "args" : ")");
        for (std::string_view rest = *args;;) {  // a C text would end at a NUL byte
            const std::size_t nul = rest.find('\0');
            record.append(rest.substr(0, nul));
            if (nul == std::string_view::npos) break;
            record.append("\\u0000");
            rest.remove_prefix(nul + 1);
        }
    }
    return record.append(R"(" })");
}

}  // namespace libzentadbpp
