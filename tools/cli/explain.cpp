#include "cli/explain.h"

#include <array>
#include <string>
#include <string_view>

namespace zentadb {

namespace {

// What the library's errors mean to a user of this program; docs/errors.md describes what leads to them. "%" is what
// the error is about.
struct Explanation {
    std::string_view key;
    ExitCode exit_code;
    std::string_view what;
    std::string_view advice;
};

constexpr std::array explanations = {
    Explanation{"mismatching_root_document_identifiers", ExitCode::unmergeable,
                "not copies of one store: their root documents have different ids",
                "For a first copy, copy the file, or merge into a new file."},
    Explanation{
        "cannot_replace_first_revision", ExitCode::unmergeable,
        "both stores created document % independently, with different contents",
        "Copies have to descend from one first version: update on one side, merge that into the others, and go on "
        "from there. If it is one element of a list, give it another id on one side."},
    Explanation{"duplicate_array_domain_key", ExitCode::input, "two arrays of objects are at one place: %",
                "The objects around them probably share an id. zentadb arrays DATA shows where, and what to do."},
    Explanation{"duplicate_objects_domain_key", ExitCode::input, "two objects would be one document: %",
                "Give them different \"_id\"s, or rules that distinguish them (--ids)."},
    Explanation{"input_is_not_an_object", ExitCode::input, "the data is not a JSON object", "Wrap it: {\"list\": ...}"},
    Explanation{"expecting_object_as_input_to_flatten", ExitCode::input, "the data is not a JSON object",
                "Wrap it: {\"list\": ...}"},
    Explanation{"cannot_push_new_revision_if_document_is_missing_identifier", ExitCode::input,
                "an object has an empty \"_id\"", "Give it another one, or none."},
    Explanation{"document_not_found", ExitCode::input, "no document % in the store",
                "zentadb docs STORE lists the documents."},
    Explanation{"revision_is_not_a_leaf", ExitCode::input, "% is not a leaf",
                "zentadb log STORE ID shows the branches."},
    Explanation{"missing_root_document_data", ExitCode::input, "the content of % was pruned",
                "Merge a copy that still has it."},
    Explanation{"cannot_find_object", ExitCode::input, "the content % was pruned", "Merge a copy that still has it."},
    Explanation{"missing_document", ExitCode::damaged, "the data refers to document %, which is missing",
                "Merge a copy that has it."},
    Explanation{"cyclic_document_reference", ExitCode::damaged, "documents refer to each other in a cycle: %", ""},
    Explanation{"failed_to_uncompress_obj", ExitCode::damaged, "the compressed object is damaged", ""},
    Explanation{"failed_to_uncompress_data", ExitCode::damaged, "the compressed object is damaged", ""},
    Explanation{"failed_to_allocate_memory_for_uncompressed_data", ExitCode::damaged,
                "the compressed object claims an impossible size", ""},
    Explanation{"uncompressed_data_is_not_an_object", ExitCode::damaged, "the uncompressed data is not a JSON object",
                ""},
    Explanation{"missing_root_identifier_in_non_empty_syncjson", ExitCode::damaged,
                "the id of the root document is missing", ""},
    Explanation{"root_is_missing_in_documents", ExitCode::damaged, "the root document is missing", ""},
    Explanation{"missing_documents", ExitCode::damaged, "there are no documents", ""},
    Explanation{"invalid_data_object", ExitCode::damaged, "content % is not an object", ""},
    Explanation{"expecting_revision_history_array", ExitCode::damaged, "the history of a document is not an array", ""},
    Explanation{"invalid_syncdata_data_node", ExitCode::damaged, "\"d\" or \"o\" is not an object", ""},
    Explanation{"no_revision_in_document", ExitCode::damaged, "a document has no open branch",
                "Merge the store into a new one, which reopens such documents: zentadb merge NEW STORE"},
};

}  // namespace

Failure explained(const zentadbpp::Error& error) {
    for (const Explanation& known : explanations) {
        if (known.key != error.key()) continue;
        std::string what(known.what);
        if (const std::size_t place = what.find('%'); place != std::string::npos) what.replace(place, 1, error.args());
        return {known.exit_code, what, std::string(known.advice)};
    }
    if (!error.is_record()) return {ExitCode::input, error.what()};
    std::string what(error.key());
    if (error.has_args()) what.append(": ").append(error.args());
    return {ExitCode::input, what};
}

}  // namespace zentadb
