#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace libzentadbpp {

// The files that errors are reported from. These names are part of the error record and are fixed: they
// carry no directory of the build machine and do not follow the source tree when it is rearranged.
namespace source {
inline constexpr std::string_view revision = "src/documents/revision";
inline constexpr std::string_view multiversiondocument = "src/documents/multiversiondocument";
inline constexpr std::string_view documentstorage = "src/documents/documentstorage";
inline constexpr std::string_view datastorage = "src/data/datastorage";
inline constexpr std::string_view replicator = "src/replication/replicator";
inline constexpr std::string_view flattener = "src/transformation/flattener";
inline constexpr std::string_view unflattener = "src/transformation/unflattener";
inline constexpr std::string_view utils = "src/common/utils";
inline constexpr std::string_view interface = "src/libzentadbpp";
}  // namespace source

// The one-line JSON text that carries a failure to the host. No value in it is escaped, but for NUL bytes.
[[nodiscard]] std::string error_record(std::string_view filename, int line, std::string_view function,
                                       std::string_view error, std::optional<std::string_view> args = std::nullopt);

struct FlattenerException : std::runtime_error {
    using std::runtime_error::runtime_error;
};
struct InvalidDocumentException : std::runtime_error {
    using std::runtime_error::runtime_error;
};
struct InvalidParentRevisionException : std::runtime_error {
    using std::runtime_error::runtime_error;
};
struct InvalidRevisionException : std::runtime_error {
    using std::runtime_error::runtime_error;
};
struct InvalidStorageTypeException : std::runtime_error {
    using std::runtime_error::runtime_error;
};
struct ObjectNotFoundException : std::runtime_error {
    using std::runtime_error::runtime_error;
};
struct ReplicationException : std::runtime_error {
    using std::runtime_error::runtime_error;
};
struct RevisionNotFoundException : std::runtime_error {
    using std::runtime_error::runtime_error;
};
struct UnflattenerException : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A malformed text. Its message is the parser's own, without a record around it.
struct ParseError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A document would get a second first revision, which cannot be distinguished from data loss. On purpose not a standard
// exception: only the interface frame, which knows the export's name, can report it.
struct SecondFirstRevision {
    std::string document_id;
};

// Throws E with an error record that has the line of the call.
template <class E>
[[noreturn]] void raise(std::string_view filename, std::string_view function, std::string_view error,
                        std::optional<std::string_view> args = std::nullopt, int line = __builtin_LINE()) {
    throw E(error_record(filename, line, function, error, args));
}

}  // namespace libzentadbpp
