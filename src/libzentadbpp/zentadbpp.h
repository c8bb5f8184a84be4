// zentadbpp stores a host's JSON data as versioned documents. Copies of the same data can be edited independently and
// merged again without losing a change. The functions below are the whole interface of the library.
//
// Read this introduction once; it applies to every function. Each function documents only how it differs.
//
// ---------------------------------------------------------------------------------------------------------------------
// The model
//
// Host             The program that uses the library.
// Host data        A JSON object of any shape. The library flattens it into documents: the root object, every element
//                  of an array of objects, and every object that is split off (see "flatten_objects" below).
// Document         Has an id, unique in its set, and a tree of revisions. The id is the object's own "_id" if that is
//                  a string. Otherwise it comes from the configured rules, or from the object's place in the data.
//                  Choose ids that cannot collide: two objects created independently under one id cannot be merged.
// Revision         One version of one document. Its revision string, "3-<data hash>_<suffix>", consists of the
//                  generation, the hash of the content, and a suffix that distinguishes it from the same content under
//                  another parent. Three reserved words can take the place of the hash: "deleted" marks a deletion,
//                  "resolved" closes a conflicting branch, "empty" is a content without members.
// Leaf             A revision without children, unless it is "resolved": a closed branch has no leaf.
// Winning          The leaf with the longest history; of equally long ones, the lowest in revision order. That order
//                  compares generations first, then the bytes of the string. Copies that know the same revisions agree
//                  on the winner.
// Conflicting      A leaf that is neither winning nor deleted.
// Ordering         A document that the library adds for every array of objects to store the order of its elements. Its
//   document       id begins with "ord-"; hosts must not use such ids. Each instance ("instance_id") writes its own.
// Merging lists    If copies changed one list independently, its ordering document has several leaves. That is not a
//                  conflict. After a merge the list shows what any copy did to it and no other copy undid: additions,
//                  removals, and moves within the list or to another list. An element that two copies move to
//                  different lists shows in both. An element that one copy moves and another removes is removed.
//                  docs/merging.md has the rule and the few cases in which it does not recognize a move.
// Sync JSON        The whole set as one JSON object: "d" contains the documents with their revision trees, "o" the
//                  contents by data hash, "r" the id of the root document. {} is the empty set. This is what a host
//                  stores and sends. The library keeps no files and opens no connections.
// Compressed       {"compressed": true, "data": Base64 of a zlib stream, "uncompressed_size": bytes}, made from any
//   object         object. Every function that takes a sync JSON text also takes a compressed one.
// Handle           A sync JSON that was parsed once, so that many calls can use it without parsing it again.
//
// ---------------------------------------------------------------------------------------------------------------------
// Texts
//
// Every text is NUL-terminated UTF-8. The library reads it during the call only and never keeps a pointer to it. JSON
// texts are standard JSON without comments. A text that begins with '@' is read as the compact form (USE_BEL_FORMAT
// below), whatever the environment says. If an object has a key several times, the last member counts. UTF-8 is not
// validated: bytes from 0x80 up are returned unchanged. Ids and revision strings are plain texts, not JSON.
//
// Unless a function says otherwise, a null pointer fails with "null input" for a text, and with an error record for a
// handle. Arguments are checked from left to right unless the function names another order; the first invalid one
// determines the error. The content of a sync JSON is checked after all arguments.
//
// A sync JSON text that is well-formed JSON but not an object counts as the empty set, unless the function lists an
// error for it.
//
// ---------------------------------------------------------------------------------------------------------------------
// Results and ownership
//
// Functions return their record by value. On success `error` is null and `value` (or `ptr`) is not; on failure it is
// the reverse. `reserved` is always null. The caller owns the handle and all texts in a record. Release a record with
// the function named after its type, never field by field with free(). Only the text of dump_sync_json_ptr comes
// without a record; release it with free().
//
// A `value` has one of three forms:
//   plain   an id or a revision string; may be the empty text
//   list    ids or revision strings in ascending byte order ("10-" before "9-"), separated by ','; the empty text if
//           there are none. Nothing is escaped, so keep ',' and NUL bytes out of ids
//   JSON    a JSON text: ", " between elements and members, ": " after a key, keys in ascending byte order
//
// If memory runs out, the call fails as a whole: nothing changes, nothing leaks, and no partial result is returned.
// `error` is then "std::bad_alloc", or an error of compressed objects listed below. If there is not even memory for
// that text, `value` (or `ptr`) and `error` are both null. A success always has a value or a handle, so test for that
// and not for `error`:
//
//     sync_json_result result = read_sync_json(text, "{}");
//     if (result.value == NULL) report(result.error != NULL ? result.error : "out of memory");
//     free_sync_json_result(&result);
//
// Only sync_json_from_bulk_get and its twin can return both: the set of all imported documents, and the first failure
// among the rejected ones. Test both there.
//
// ---------------------------------------------------------------------------------------------------------------------
// Error texts
//
// `error` contains one of four kinds of text. docs/errors.md lists all of them.
//
//   parser message    "null input", or what is wrong with a JSON text, such as "unexpected end of input" or
//                     "expected value, got 'x' (120)".
//   bare key          Only a key: "failed_to_uncompress_obj", the three of the flatten functions, and
//                     "invalid_revision_state_uuid_empty" if a sync JSON to be written has a revision without suffix.
//   error record      One line that usually parses as JSON, although nothing in it is escaped. Its exact form is
//       { "filename" : "<file>", "line": <line>, "function" : "<function>", "error" : "<key>" }
//                     or, with details,
//       { "filename" : "<file>", "line": <line>, "function" : "<function>", "error" : "<key>", "args" : "<args>" }
//                     <file> is one of a few fixed names that contain no directory of a machine. For failures that a
//                     function of this header detects itself, <file> is "src/libzentadbpp" and <function> is the name
//                     of that function. Rely on <key>, <function> and the layout; <line> changes with every release.
//   standard text     From the C++ library: "std::bad_alloc"; "invalid string_view position" for an empty JSON text;
//                     "invalid map<K, T> key" for a missing member; "invalid stoi argument" and "stoi argument out of
//                     range" for the generation of a revision string.
//
// Functions refer to three groups of errors by name. All of them are error records unless marked otherwise.
//
//   [sync]   An invalid sync JSON. From "deserialize": "invalid_syncdata_data_node", "invalid_data_object" (args: data
//            hash), "expecting_revision_history_array", "missing_documents",
//            "missing_root_identifier_in_non_empty_syncjson", "root_document_id_not_a_string",
//            "root_is_missing_in_documents". From "MultiVersionDocument":
//            "cannot_push_new_revision_if_document_is_missing_identifier" (an empty id). From "unfold":
//            "revision_not_a_string", "empty_revstring". From "Revision": "invalid_revision_string_format". For a
//            history of one entry: [rev].
//   [rev]    An invalid revision string: "empty_revision" (from "Revision"), "invalid_revision_format" (from
//            "parse_revision", args: the text), or a standard text for its generation.
//   [data]   A compressed object that cannot be inflated. From "uncompress_object": "failed_to_uncompress_data",
//            "failed_to_allocate_memory_for_uncompressed_data", "uncompressed_data_is_not_an_object". If it inflates
//            to invalid JSON: the parser message. Functions that do not list [data] ignore these failures and continue
//            with the empty set; if memory ran out, they fail with "std::bad_alloc".
//
// In addition, every function that needs a document's winning revision or leaves can fail with
// "no_revision_in_document" (from "leafs") or, for an empty tree, "no_revisions_in_winning" (from "get_winning", args:
// id). The library never writes such a document, but a text from elsewhere may contain one. Such a text may also use up
// all names that a new revision could have: update, resolve and read_sync_json_ptr then fail with
// "invalid_parent_revision_in_ancestor" (from "ancestor").
//
// ---------------------------------------------------------------------------------------------------------------------
// Threads
//
// Every function may be called on any thread, at the same time as any other, also with the same texts. The library has
// no settings that outlive a call, starts no threads, has no callbacks, and no call waits for the work of another.
//
// Any number of threads may use one handle at the same time, with two exceptions: freeing it, and read_sync_json_ptr
// without "preserve_old_ordering", which writes to it. While one of these runs, no other call may use that handle.
// Handles are independent: a handle made from another one may be used and freed on any thread, whatever happens to the
// other one.
//
// No function depends on the C locale or on the floating-point state of the thread (rounding mode, flushing to zero,
// traps), or changes them. errno may change. No function may be called from a signal handler. A stack of 256 KiB is
// enough for any input.
//
// ---------------------------------------------------------------------------------------------------------------------
// Limits
//
// Nesting    Input texts and rebuilt data may nest 200 levels below the outermost value; beyond that a call fails with
//            "exceeded maximum nesting depth". In a sync JSON, member "d" has no limit and each content in "o" may nest
//            256 levels of its own, so the library can read everything that it wrote.
// Numbers    Whole numbers of up to nine characters, sign included, are integers. All others are read as double: whole
//            numbers beyond 2^53 lose digits, and numbers too large for a double are written as null. A content does
//            not record the kind of a number: 1.0 is written as 1 (without USE_FAST_FLOAT) and is then an integer, as
//            is any whole number of 32 bits. The compact form writes these as integers.
// Strings    Standard JSON keeps a NUL byte inside a string ("\u0000"). The compact form and results that are not
//            JSON, such as a list of ids, cannot represent one: writing it fails with "text_contains_nul" (an error
//            record of the function that was called). The args of an error record show it as \u0000.
// Sizes      64-bit: texts may be larger than 4 GiB. Documents that refer to each other many times could make rebuilt
//            data grow without bound. Reading or writing more than 256 MiB plus 64 times the size of the contents fails
//            with the standard text "exceeded maximum result size".
// Hostile    No text, however malformed, makes the library crash, hang, or access memory out of bounds. It trusts no
//   input    size that a text claims. It cannot detect an invalid pointer that is not null.
//
// ---------------------------------------------------------------------------------------------------------------------
// Cost
//
//   n   bytes of the input texts
//   m   bytes of the result
//   d   documents
//   r   revisions of the document in question
//   R   revisions of all documents
//
// A function that takes texts reads each of them once, in O(n) time and memory, or O(n log n) if members are not in
// ascending order. The cost given for a function comes on top of that; with a handle it is the whole cost. No function
// takes more than O(x log x) in the size x of what it reads and writes.
//
// ---------------------------------------------------------------------------------------------------------------------
// The configuration
//
// A JSON object. A member counts only if its value is of the given kind; other kinds and unknown keys are ignored
// without an error. {} is a good start. A value that is not an object fails with "config_is_not_an_object".
//
//   Key                      Kind     Default     Read by
//   "instance_id"            string   "default"   flatten, unflatten, update, read, data
//       Names the writer of ordering documents. Use one id for all copies of one user's data: a copy that has an order
//       of its own does not follow the moves and reorderings of another instance.
//   "flatten_objects"        boolean  false       flatten, update
//       true: every object that is a member of an object becomes a document. false: only the object members of an
//       object with a member "#df" do. An object with a member "#nf" always stays inside its parent, unchanged.
//   "id_generation_rules"    string   ""          flatten, update
//       How ids are made for objects without "_id". Rules are separated by ';', and the first that yields an id counts.
//       The key paths of a rule are separated by ',', and their values are joined. The keys of a path are separated by
//       '.'. Values are non-empty strings, or numbers, truncated to whole ones. "user.id;name,version" has two rules.
//       Nothing can be escaped.
//   "indexed_array_paths"    string   ""          flatten, update
//       Array domains separated by ','. Elements of these arrays are distinguished by their position, so elements
//       without an id do not share one. The domain of an array follows the letter "A" in its parent's content.
//   "discard_id"             boolean  false       unflatten, read, data
//       true: rebuilt objects have no "_id".
//   "force_fast_hash_only"   boolean  false       flatten, update
//       true: data hashes are "x" and 32 bits of XXH64 in decimal instead of SHA-256. For small sets that one trusted
//       host writes: different contents with the same hash count as equal.
//   "include_full_data_hash" boolean  false       flatten, unflatten
//       Accepted, without effect.
//   "preserve_old_ordering"  boolean  false       read
//       true: the read does not store the merged lists in the handle.
//   "compressed"             boolean  false       update, replicate, from_bulk_get, diff (by value only)
//       true: the result is a compressed object.
//
// replicate and from_bulk_get read no other key, and their handle twins read none; the configuration must be an object
// all the same.
//
// ---------------------------------------------------------------------------------------------------------------------
// The environment
//
// Each variable is read once per process, when it first matters. It is on if it exists, whatever its value. Set it
// before the first call, and do not call setenv() during a call.
//
//   USE_FAST_FLOAT   Writes numbers that are not integers in the shortest form that reads back as the same value
//                    ("0.1", "1.0", "1e21") instead of with 17 digits. Contents are compared by the hash of their
//                    text, so all copies of the data must agree on this variable.
//   USE_BEL_FORMAT   Writes JSON results in the compact form, which gives every string with its length. Both forms are
//                    always read.
//   USE_FAST_INT     Accepted, without effect: integers are always written the fast way.
//
// ---------------------------------------------------------------------------------------------------------------------
// Stability
//
// Within one major version (libzentadbpp.so.1) functions, their arguments, the records, error keys with their
// "function", the sync JSON and every text described here stay as they are. A release may add functions, configuration
// keys, and error keys for what failed otherwise before. Not part of the contract: line numbers in error records, the
// messages for malformed compact form, and symbols of the library that this header does not declare.

#ifndef ZENTADBPP_H
#define ZENTADBPP_H

#include <stdbool.h>
#include <stdint.h>

#if defined(__GNUC__)
#define ZENTADBPP_EXPORT __attribute__((visibility("default")))
#else
#define ZENTADBPP_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

// A handle: a parsed sync JSON. Null is not a handle. The type it points to is opaque.
typedef struct zentadbpp_document_storage* sync_json_ptr;

// The result of most functions.
typedef struct sync_json_result {
    char* value;
    char* error;
    char* reserved;
} sync_json_result;

// The result of functions that make a handle.
typedef struct sync_json_ptr_result {
    sync_json_ptr ptr;
    char* error;
    char* reserved;
} sync_json_ptr_result;

// The result of the flatten functions.
typedef struct flatten_result {
    char* value;
    char* error;
} flatten_result;

// No function returns this record. It and its free function remain for hosts that were built against them.
typedef struct sync_json_query_result {
    char* value;
    char* error;
} sync_json_query_result;

// =====================================================================================================================
// Version and release
// =====================================================================================================================

// Returns the version of the interface and of the formats, "2019-06-07". Always the same pointer; do not free it.
ZENTADBPP_EXPORT const char* sync_json_lib_version(void);

// Each of these frees what its record points to and sets those fields to null, so freeing a record twice, or a record
// of nulls, is harmless. The caller owns the record itself. `record` must not be null.
ZENTADBPP_EXPORT void free_sync_json_result(sync_json_result* record);
ZENTADBPP_EXPORT void free_sync_json_query_result(sync_json_query_result* record);
ZENTADBPP_EXPORT void free_flatten_result(flatten_result* record);

// Frees the texts of the record but not the handle in `ptr`, which stays valid; free that with free_sync_json_ptr.
// `record` must not be null.
ZENTADBPP_EXPORT void free_sync_json_ptr_result(sync_json_ptr_result* record);

// Frees the texts of the record and its handle. `record` may be null. `ptr` is not set to null and dangles afterwards,
// so do not call this twice for one record.
ZENTADBPP_EXPORT void free_sync_json_ptr_result_all(sync_json_ptr_result* record);

// Frees a handle; null does nothing. What it shares with related handles stays until the last of them is freed.
// Cost: O(what is not shared).
ZENTADBPP_EXPORT void free_sync_json_ptr(sync_json_ptr handle);

// =====================================================================================================================
// Handles
// =====================================================================================================================
//
// Nearly every function on a sync JSON text has a twin that takes a handle instead: sync_json_winning and
// sync_json_ptr_winning. Twins are documented together and give the same results. A twin differs as follows:
//   - A null handle fails with "invalid_sync_json_ptr", an error record of the function, unless it lists another key.
//   - It never compresses a result.
//   - If the result is a sync JSON, it returns a new handle (sync_json_ptr_result). The given handle does not change,
//     and the caller owns both. They share everything that did not change, so a new handle is cheap. No later call on
//     one affects the other.

// Parses a sync JSON.
//   sync_json   text, may be a compressed object
// Errors: [sync]; bare "failed_to_uncompress_obj" for a compressed object that cannot be inflated.
// The handle and all handles made from it keep a copy of the text in memory, even after contents were pruned. To give
// that memory back, dump the handle and parse the dump.
ZENTADBPP_EXPORT sync_json_ptr_result new_sync_json_ptr(const char* sync_json);

// Returns the sync JSON of a handle as JSON, never compressed. Returns null for a null handle, and if the text cannot
// be made (no memory, or a NUL byte in the compact form). Release the text with free().
// Cost: O(m + R log R).
ZENTADBPP_EXPORT char* dump_sync_json_ptr(sync_json_ptr handle);

// =====================================================================================================================
// Host data in and out
// =====================================================================================================================

// Updates a sync JSON to match the host's data.
// - A changed document gets a revision after its winning one, a new document a first revision, and a document that the
//   data no longer contains a deleted revision. A document with equal content does not change.
// - A document whose winning revision is deleted stays deleted, even if the data contains it again.
// - The root document of `input` becomes the root. Keep its id: changing it and changing it back names a deleted
//   document.
// - If the new revision string already exists under another parent, an "empty" revision is inserted in between.
// - The list of every array that is not empty is stored, and all other leaves of its ordering document are closed. An
//   array that is empty or missing keeps its list, except for elements that `input` has in another array.
// - Documents that only a conflicting revision leads to are not deleted, so resolving the conflict in favour of that
//   revision restores them.
// - If `input` contains an element twice with different contents, the content that no revision has counts; of two
//   such contents, the last.
//   input       JSON object, the host's data
//   sync_json   the previous sync JSON; {} for a first version
//   config      configuration
// Result: JSON, the new sync JSON; compressed if the configuration says so. Twin: a new handle.
// Checked in the order input, config, sync_json.
// Errors: "input_is_not_an_object", "config_is_not_an_object", "synchronizable_json_is_not_an_object" (a text that
//   is not an object), [data], [sync]; "duplicate_array_domain_key" (from "flatten", args: path) for two arrays of
//   objects in one place; "duplicate_objects_domain_key" (from "operator ()", args: path, empty for elements) for two
//   objects that become documents under one id: two split-off objects, a split-off object and an element, any object
//   and the root, or an element and another element that contains it;
//   "cannot_push_new_revision_if_document_is_missing_identifier" for an object whose "_id" is the empty text.
// Cost: O(n + d + revisions of changed documents); another O(contents + R) if documents are deleted while a conflict is
//   open, or if lists of other arrays may change. Only changed contents are hashed.
ZENTADBPP_EXPORT sync_json_result update_sync_json(const char* input, const char* sync_json, const char* config);
ZENTADBPP_EXPORT sync_json_ptr_result update_sync_json_ptr(const char* input, sync_json_ptr handle, const char* config);

// Rebuilds the host's data from the winning revisions.
// - Objects that were documents have their id as "_id" unless the configuration discards it. References to deleted
//   documents are left out.
// - Each array has the merged list of the configured instance. Elements that only other instances placed are added
//   next to their neighbours.
// - A document that is not deleted and that nothing shows returns to its former place: an element of a list in an
//   object that another copy moved, an element that one copy removed and another edited, objects that two copies moved
//   into each other. Two kinds do not return: what was added inside something that another copy removed, and what only
//   a conflicting revision refers to.
// - A document that a member refers to, and any document that leads to such a document, shows once: at the first place
//   in ascending order of keys and in list order. No document shows inside itself. Other elements show as often as
//   lists contain them.
//   sync_json   text or handle; the empty set gives {}
//   config      configuration
// Result: JSON, an object.
// Checked in the order config, sync_json.
// Errors: "config_is_not_an_object"; by value "synchronizable_json_is_not_an_object", [data], [sync];
//   "missing_root_document_data" (from "operator ()", args: revision) if the root's content was pruned;
//   "missing_document" (from "operator ()", args: id) for a member that refers to a document that does not exist;
//   "cannot_find_object" (from "read_object", args: data hash) if any other content was pruned; "exceeded maximum
//   nesting depth" (parser message), "exceeded maximum result size".
// Cost: O(m + contents + R), a logarithm more for lists with branches. By handle O(m + d) after the first read for an
//   instance, which keeps an index in the handle until lists are stored. The first read of a handle that an update,
//   replicate or resolve made of one that was read: O(m + d + changed contents).
//
// read_sync_json_ptr WRITES TO THE HANDLE unless the configuration has "preserve_old_ordering". It stores the merged
// lists of the configured instance, each in a new revision, and closes all other leaves of their ordering documents.
// Later calls and dumps include that. No other call may use the handle at the same time. If the read fails, the handle
// does not change. After a merge, read and store, or update, before pruning, so that no list is dropped unread.
ZENTADBPP_EXPORT sync_json_result read_sync_json(const char* sync_json, const char* config);
ZENTADBPP_EXPORT sync_json_result read_sync_json_ptr(sync_json_ptr handle, const char* config);

// Rebuilds the content of one revision of one document, as read_sync_json does. Documents that it refers to appear at
// their winning revisions. An array that only this revision refers to, and the data therefore does not show, has the
// stored list of the configured instance, or else that of another instance.
//   sync_json   text or handle
//   id          id of the document
//   rev         revision string
//   config      configuration
// Result: JSON, an object. A deleted revision gives {"_deleted": true}, a resolved one {}, each with "_id" unless the
//   configuration discards it.
// Errors: "config_is_not_an_object"; by value [data], [sync]; "document_not_found" (args: id); [rev];
//   "invalid_root_document_revision" (from "operator ()", args: rev) if the document does not have the revision;
//   "missing_root_document_data" (from "operator ()", args: rev) if its content was pruned; those of read_sync_json
//   about references.
// Cost: as for read_sync_json, index included.
ZENTADBPP_EXPORT sync_json_result sync_json_data(const char* sync_json, const char* id, const char* rev,
                                                 const char* config);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_data(sync_json_ptr handle, const char* id, const char* rev,
                                                     const char* config);

// Flattens data without storing it.
//   input    JSON object
//   config   configuration
// Result: JSON, an array of the documents, ordering documents included, ascending by id, each an object with its
//   "_id". In a document "!" precedes every string; "A" and a domain represent an array of objects, "O" and an id an
//   object that became a document.
// Errors: bare "expecting_object_as_input_to_flatten", bare "expecting_object_as_configuration_to_flatten"; the three
//   of update_sync_json about places and ids.
// Cost: O(n log n).
ZENTADBPP_EXPORT flatten_result json_object_flatten(const char* input, const char* config);

// Rebuilds data from such documents, in any order. A document that several places refer to is rebuilt at each of them.
//   input     JSON array; each element an object with a string "_id". Of two with one id the later counts
//   config    configuration
//   root_id   id of the document to start from. Null or empty: the document "root" if there is one, else the only
//             document that is not an ordering document and that no other document refers to
// Result: JSON, an object; {} for an empty array.
// Errors: bare "expecting_array_as_input_to_unflatten", bare "expecting_object_as_configuration_to_flatten"; "invalid
//   map<K, T> key" for an element without a string "_id"; "cannot_push_new_revision_if_document_is_missing_identifier"
//   for an empty "_id"; "missing_root_document" (from "operator ()", args: the id, or nothing if there is not exactly
//   one candidate); "cyclic_document_reference" (from "operator ()", args: id) for a document inside itself;
//   "missing_document", "exceeded maximum nesting depth" and "exceeded maximum result size" as for read_sync_json.
// Cost: O(n log n + m).
ZENTADBPP_EXPORT flatten_result json_array_unflatten(const char* input, const char* config, const char* root_id);

// =====================================================================================================================
// Merging
// =====================================================================================================================

// Merges the source into the target. The result contains every revision and every content of both. Branches that were
// made independently become branches of one tree. Nothing is dropped. Copies that know the same revisions have the same
// winner, in whatever order they merged. If two copies resolved one conflict in opposite ways, the merged document is
// open again, with one of the two contents. Replicating again changes nothing. The source does not change: replicate
// both ways for both copies to know the same.
//   source, target   texts or handles of sets with the same root id; the target may be empty
//   config           configuration
// Result: JSON, the new target as a sync JSON; compressed if the configuration says so. Twin: a new handle, which is
//   independent of the source's.
// Checked in the order config, source, target.
// Errors: "config_is_not_an_object"; for a null text "null_source_syncjson" or "null_target_syncjson"; for a text that
//   is not an object "source_synchronizable_json_is_not_an_object" or "target_synchronizable_json_is_not_an_object";
//   for a null handle "invalid_source_sync_json_ptr" or "invalid_target_sync_json_ptr"; [data], [sync];
//   "mismatching_root_document_identifiers" (from "operator ()"), also for an empty source with a target that is not
//   empty; "cannot_replace_first_revision" (args: id), an error record of the function that was called, if both sets
//   created a document of that id with different contents. This last error also prints four lines to standard error,
//   the only output that the library ever prints.
// Cost: O(documents of both + revisions of documents that differ + new contents); if the target lacks contents of
//   documents that do not differ, also all revisions of the source.
ZENTADBPP_EXPORT sync_json_result replicate_sync_json(const char* source, const char* target, const char* config);
ZENTADBPP_EXPORT sync_json_ptr_result replicate_sync_json_ptr(sync_json_ptr source, sync_json_ptr target,
                                                              const char* config);

// Resolves a conflict of a document: closes the branch that ends in `rev`. To keep the winner, resolve every
// conflicting revision. To prefer another leaf, resolve the winner, even if it is deleted: that keeps an edit although
// a deletion won. Nothing changes if the branch is already closed, if `rev` is the only leaf, since a document must
// keep one, or if `rev` and all other leaves are deleted.
//   sync_json   text or handle
//   id          id of the document
//   rev         revision string of a leaf
// Result: JSON, the new sync JSON, never compressed. Twin: a new handle.
// Errors: [sync]; "document_not_found" (args: id); [rev]; from "resolve" with the revision as args:
//   "revision_not_found", "revision_is_not_a_leaf".
// Cost: O(r log r + log d), and writing the result.
ZENTADBPP_EXPORT sync_json_result sync_json_resolve(const char* sync_json, const char* id, const char* rev);
ZENTADBPP_EXPORT sync_json_ptr_result sync_json_ptr_resolve(sync_json_ptr handle, const char* id, const char* rev);

// =====================================================================================================================
// Queries about one document
// =====================================================================================================================
//
//   sync_json   text or handle
//   id          id of the document. If the set does not contain it: "document_not_found" (args: id), an error record of
//               the function
//   rev         revision string, exactly as the library returned it: "03-a_b" is not "3-a_b"
// Errors of all, by value: [sync], and [data] if listed. With `rev`: [rev].

// The winning revision.
// Result: plain.
// Errors: [data].
// Cost: O(log d).
ZENTADBPP_EXPORT sync_json_result sync_json_winning(const char* sync_json, const char* id);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_winning(sync_json_ptr handle, const char* id);

// All leaves, deleted ones included.
// Result: list of revision strings, never empty.
// Errors: [data].
// Cost: O(r log r).
ZENTADBPP_EXPORT sync_json_result sync_json_leafs(const char* sync_json, const char* id);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_leafs(sync_json_ptr handle, const char* id);

// The conflicting revisions.
// Result: list of revision strings.
// Cost: O(r log r).
ZENTADBPP_EXPORT sync_json_result sync_json_conflicting(const char* sync_json, const char* id);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_conflicting(sync_json_ptr handle, const char* id);

// The parent of a revision.
// Result: plain; the empty text for a first revision.
// Errors: [data]; "revision_not_found_in_ancestor" (from "ancestor_of").
// Cost: O(log d + log r).
ZENTADBPP_EXPORT sync_json_result sync_json_ancestor(const char* sync_json, const char* id, const char* rev);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_ancestor(sync_json_ptr handle, const char* id, const char* rev);

// The other children of the revision's parent.
// Result: list of revision strings.
// Errors: [data]; "revision_not_found" (from "siblings", args: rev).
// Cost: O(r).
ZENTADBPP_EXPORT sync_json_result sync_json_siblings(const char* sync_json, const char* id, const char* rev);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_siblings(sync_json_ptr handle, const char* id, const char* rev);

// The revision and all its ancestors, newest first.
// Result: JSON, an array of revision strings.
// Errors: "revision_not_found_in_ancestor" (from "ancestor_of").
// Cost: O(m + log d + log r).
ZENTADBPP_EXPORT sync_json_result sync_json_history(const char* sync_json, const char* id, const char* rev);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_history(sync_json_ptr handle, const char* id, const char* rev);

// Whether the content of a revision is stored. Pruning removes contents; the content of a reserved word is always
// available.
//   rev_or_id   a revision string; or the id of a document, for its winning revision. For a revision string that no
//               document has, its data hash decides
// Result: JSON, true or false.
// Errors: [data]; [rev] for a text that is neither.
// Cost: O(log d).
ZENTADBPP_EXPORT sync_json_result sync_json_available(const char* sync_json, const char* rev_or_id);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_available(sync_json_ptr handle, const char* rev_or_id);

// =====================================================================================================================
// Queries about a document set
// =====================================================================================================================
//
//   sync_json   text or handle
// Errors of all, by value: [sync].

// The id of the root document.
// Result: plain.
// Errors: "root_id_cannot_be_empty" (from "root") for the empty set.
// Cost: O(1).
ZENTADBPP_EXPORT sync_json_result sync_json_root(const char* sync_json);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_root(sync_json_ptr handle);

// The ids of all documents, deleted and ordering documents included, ascending.
// Result: JSON, an array of strings.
// Cost: O(m).
ZENTADBPP_EXPORT sync_json_result sync_json_all_docs(const char* sync_json);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_all_docs(sync_json_ptr handle);

// The set reduced to its winners: each document keeps the path from its first revision to its winning one, and the
// contents of these. All other branches, and with them all conflicts, are missing from the result. Where two copies
// began a list, a resolved revision keeps the first of them closed if anything followed it.
// Result: JSON, a sync JSON, never compressed. Twin: a new handle.
// Cost: O(R log R), and writing the result.
ZENTADBPP_EXPORT sync_json_result sync_json_all_winning(const char* sync_json);
ZENTADBPP_EXPORT sync_json_ptr_result sync_json_ptr_all_winning(sync_json_ptr handle);

// The instances that wrote ordering documents whose winning content is available.
// Result: list of instance ids.
// Cost: O(d + contents of ordering documents).
ZENTADBPP_EXPORT sync_json_result sync_json_instances(const char* sync_json);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_instances(sync_json_ptr handle);

// The documents that have a conflicting revision. Ordering documents are left out: the library merges those itself.
// Result: list of ids.
// Cost: O(R).
ZENTADBPP_EXPORT sync_json_result sync_json_unresolved(const char* sync_json);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_unresolved(sync_json_ptr handle);

// Compare a set with an older state of the same data. They return ids of documents of the newer state, ordering
// documents included:
//   created   documents that the older state does not have
//   updated   documents of both with different winning contents; a deletion is an update as well
//   deleted   documents of both whose winning revision is deleted in the newer state only
// Arguments:
//   sync_json, handle           the newer state
//   old_sync_json, old_handle   the older state; a null handle: "invalid_old_sync_json_ptr"
// Result: list of ids.
// Cost: O(documents of both).
ZENTADBPP_EXPORT sync_json_result sync_json_created(const char* sync_json, const char* old_sync_json);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_created(sync_json_ptr handle, sync_json_ptr old_handle);
ZENTADBPP_EXPORT sync_json_result sync_json_updated(const char* sync_json, const char* old_sync_json);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_updated(sync_json_ptr handle, sync_json_ptr old_handle);
ZENTADBPP_EXPORT sync_json_result sync_json_deleted(const char* sync_json, const char* old_sync_json);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_deleted(sync_json_ptr handle, sync_json_ptr old_handle);

// =====================================================================================================================
// Pruning
// =====================================================================================================================
//
// Drops contents that are no longer needed. The revision trees stay complete, so merging works as before; only the
// contents of older revisions can no longer be read (see sync_json_available). A content that only a losing leaf has
// is dropped as well, so resolve conflicts first.
//   sync_json      text or handle
//   depth          how many revisions of each winning history keep their content, counted from the winning one; 0:
//                  none; UINT32_MAX: all
//   skip_winning   true: the winning revision counts, but does not keep its content
// The winning contents of ordering documents always stay. A content that several revisions share stays if one of them
// keeps it.
// Result: JSON, the new sync JSON; compressed if the input was. Twin: a new handle.
// Errors, by value: [sync].
// Cost: O(R + contents), and writing the result; for k ids another O((d + k) log k).

// Prunes all documents. Contents that no document keeps are dropped.
ZENTADBPP_EXPORT sync_json_result sync_json_prune(const char* sync_json, uint32_t depth, bool skip_winning);
ZENTADBPP_EXPORT sync_json_ptr_result sync_json_ptr_prune(sync_json_ptr handle, uint32_t depth, bool skip_winning);

// Prunes the given documents only. A content that any other document has in any revision stays.
//   ids   a JSON array of ids, or one id: a JSON string, or the bare text. Unknown ids are ignored; the empty text
//         names none
ZENTADBPP_EXPORT sync_json_result sync_json_prune_ids(const char* sync_json, const char* ids, uint32_t depth,
                                                      bool skip_winning);
ZENTADBPP_EXPORT sync_json_ptr_result sync_json_ptr_prune_ids(sync_json_ptr handle, const char* ids, uint32_t depth,
                                                              bool skip_winning);

// =====================================================================================================================
// Exchange with servers that speak the CouchDB replication protocol
// =====================================================================================================================

// The body of a _bulk_docs request: {"docs": [...], "new_edits": false}, in ascending order of id. Each element is the
// winning content of a document with "_id" and "_revisions" added: {"ids": data hashes from the winning revision to the
// first, "start": generation of the winning one}.
//   sync_json   text or handle
// Result: JSON; compressed if the input text was.
// Errors: by value [sync]; "cannot_find_object" (from "read_object", args: data hash) if a winning content was pruned;
//   "exceeded maximum result size".
// Cost: O(m + d).
ZENTADBPP_EXPORT sync_json_result sync_json_to_bulk_docs(const char* sync_json);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_to_bulk_docs(sync_json_ptr handle);

// Makes a new document set from the response to a _bulk_get request:
// {"results": [{"docs": [{"ok": document}, ...]}, ...]}.
// - Each "ok" has "_id" and "_revisions" as above; its ids are bare hashes, or hash and suffix. It may have "_rev": a
//   revision string, or "start-hash", which such a server makes of a bare hash. All other members are its content.
// - Entries of another shape are ignored, and so are histories that do not reach back to the first revision. Of several
//   contents with one hash the first counts.
// - The root is chosen among the documents that are neither deleted nor ordering documents, if there are any: "root",
//   else the smallest id that no other document refers to or lists, else the smallest id.
// - Do not use a member "_rev" in data that is exchanged: a server rejects it or takes it for its own.
// - An "ok" that is rejected is left out, and so is a document whose history is rejected; all others are imported.
//   `error` then has the first failure, beside the result, or alone if nothing was imported.
//   bulk_get   JSON text, may be a compressed object; a value that is not an object counts as {}
//   config     configuration
// Result: JSON, a sync JSON, {} if nothing was imported; compressed if the configuration says so. Twin: a new handle.
// Errors: "config_is_not_an_object", [data]; [rev] for an invalid "_rev"; "invalid_revision_string_format" (from
//   "Revision", args: the id of a revision); "cannot_push_new_revision_if_document_is_missing_identifier" for an empty
//   "_id"; from "ancestor", "cannot_replace_first_revision" (args: id) and "invalid_parent_revision_in_ancestor" for
//   contradicting histories of one document.
// Cost: O(n log n).
ZENTADBPP_EXPORT sync_json_result sync_json_from_bulk_get(const char* bulk_get, const char* config);
ZENTADBPP_EXPORT sync_json_ptr_result sync_json_ptr_from_bulk_get(const char* bulk_get, const char* config);

// =====================================================================================================================
// Diff and patch
// =====================================================================================================================
//
// These compare and change sync JSONs entry by entry, as plain JSON. A member "d" or "o" that is missing or not an
// object counts as {}; other members are neither compared nor kept.

// The operations that turn `before` into `after`: {"d": [...], "o": [...]}, each a list of operations, ascending by
// key, additions last:
//   {"key": k, "op": "remove", "value": old}
//   {"before": old, "key": k, "op": "replace", "value": new}
//   {"key": k, "op": "add", "value": new}
// Entries are compared by their written text. There an entry of "d" that is not an array, or of "o" that is not an
// object, counts as an empty one.
// Arguments:
//   before, after   texts, may be compressed objects; a value that is not an object counts as {}
//   config          configuration
// Result: JSON; compressed if the configuration says so.
// Checked in the order config, before, after.
// Errors: "config_is_not_an_object", [data].
// Cost: O(n + m).
ZENTADBPP_EXPORT sync_json_result sync_json_diff(const char* before, const char* after, const char* config);

// Applies such operations in their order: "remove" removes the key, any other "op" sets it to "value". Keys that are
// missing, or already present, are not an error, and "before" is ignored.
//   before, patch   texts, may be compressed objects; a value that is not an object counts as {}
// Result: JSON, {"d": {...}, "o": {...}}, without "r"; compressed if `before` was.
// Errors: [data]; "invalid map<K, T> key" for an operation without "op", without "key" or, unless it is "remove",
//   without "value".
// Cost: O(n log n).
ZENTADBPP_EXPORT sync_json_result sync_json_patch(const char* before, const char* patch);

// =====================================================================================================================
// Compressed objects
// =====================================================================================================================
//
//   object   JSON text of any object, not only a sync JSON; a value that is not an object counts as {}

// Compresses an object. An object that is already compressed is returned unchanged.
// Result: JSON, the compressed object.
// Errors: "failed_to_uncompress_data" (from "compress_object") if compressing fails.
// Cost: O(n).
ZENTADBPP_EXPORT sync_json_result sync_json_compress(const char* object);

// Inflates a compressed object. An object that is not compressed is returned unchanged.
// Result: JSON, the object.
// Errors: [data].
// Cost: O(n + m).
ZENTADBPP_EXPORT sync_json_result sync_json_uncompress(const char* object);

#ifdef __cplusplus
}
#endif

#endif
