// zentadbpp keeps a host's JSON data as a set of versioned documents, so that copies of the same data, changed apart,
// can be merged again without losing a change. All of the library is reached through the plain C functions below.
//
// Read this first part once: it holds for every function. What stands at a function is only what differs.
//
// ---------------------------------------------------------------------------------------------------------------------
// The model
//
// Host data        A JSON object of any shape. The library flattens it into documents: the root object, every element
//                  of an array of objects, and the objects that are to stand alone (see "flatten_objects" below).
// Document         Has an id, unique in its set, and a tree of revisions. The id is the object's own "_id" where that
//                  is a string, else it comes from the configured rules, else from the place of the object in the
//                  data. Give ids that cannot collide: two objects made apart under one id cannot be merged.
// Revision         One version of one document, named by a revision string: "3-<data hash>_<suffix>", its generation,
//                  the hash of its content, and what tells it from the same content under another parent. The words
//                  "deleted", "resolved" and "empty" in the place of the hash stand for a deletion, for the closing
//                  of a conflicting branch, and for a content without members.
// Leaf             A revision without children, except one that is "resolved": a branch that was closed has no leaf.
// Winning          The leaf with the longest history; of several the lowest in revision order, which is generation
//                  first and then the bytes of the string. Copies that know the same revisions agree on it.
// Conflicting      A leaf that is neither the winning one nor deleted.
// Ordering         A document that the library adds for every array of objects, to keep the list of the elements. Its
//   document       id begins with "ord-"; hosts must not use such ids. Each instance ("instance_id") writes its own.
// Merging lists    If copies changed one list independently, its ordering document has several leaves. That is not a
//                  conflict: whatever one copy did to the list, and no other copy undid, shows after every merge:
//                  additions, removals, moves within the list and to another one. An element that two copies move to
//                  different lists shows in both; one that is moved by one copy and removed by another is removed.
//                  docs/merging.md has the rule and the few cases in which a move cannot be recognized.
// Sync JSON        All of it as one JSON object: "d" the documents with their revision trees, "o" the contents by
//                  data hash, "r" the id of the root document; {} is the empty set. This is what a host stores and
//                  sends. The library keeps no files and opens no connections.
// Compressed       {"compressed": true, "data": Base64 of a zlib stream, "uncompressed_size": bytes}: any object made
//   object         small. Every function that takes a sync JSON text takes a compressed one as well.
// Handle           A sync JSON that was opened once, so that many calls can use it without reading the text again.
//
// ---------------------------------------------------------------------------------------------------------------------
// Texts
//
// Every text is NUL-terminated UTF-8 and is only read during the call; the library never keeps a pointer to it. JSON
// texts are standard JSON without comments; a text that begins with '@' is read as the compact form (USE_BEL_FORMAT
// below), whatever the environment says. Of members with one key the last counts. UTF-8 is not checked: bytes from
// 0x80 up come back as they were given. Ids and revision strings are plain texts, not JSON.
//
// A null pointer for a text fails with "null input", for a handle with an error record, unless the function says
// otherwise. Arguments are looked at from left to right, unless the function names an order; the first one that fails
// decides the error. A sync JSON is opened, and what it holds is judged, when all arguments were found in order.
//
// A sync JSON text that is well-formed but no object counts as the empty set, except where an error is listed for it.
//
// ---------------------------------------------------------------------------------------------------------------------
// Results, and who frees them
//
// A function returns its record by value. On success `error` is null and `value` (or `ptr`) is not; on failure it is
// the other way round. `reserved` is always null. All texts in a record, and the handle, belong to the caller from
// then on. Release a record with the function named after its type, never field by field with free(). The one text that
// comes without a record, that of dump_sync_json_ptr, is released with free().
//
// A result is one of three kinds, told at each function:
//   plain   an id or a revision string as it stands; may be the empty text
//   list    ids or revision strings in ascending byte order ("10-" before "9-"), joined by a single ','; the empty
//           text for none. Nothing is escaped, so keep ',' and NUL bytes out of ids
//   JSON    a JSON text: ", " between elements and members, ": " after a key, keys in ascending byte order
//
// Where memory runs out, the call fails as a whole: nothing is changed, nothing stays allocated, and no part of a
// result is passed off as all of it. `error` is then "std::bad_alloc", or what is told of zlib and libcrypto below;
// where there is no memory even for that text, `value` (or `ptr`) and `error` are both null. As a success always has a
// value or a handle, test for it and not for `error`:
//
//     sync_json_result result = read_sync_json(text, "{}");
//     if (result.value == NULL) report(result.error != NULL ? result.error : "out of memory");
//     free_sync_json_result(&result);
//
// Only sync_json_from_bulk_get and its twin can have both: the set of what was taken, and the first failure of what was
// not. There, test both.
//
// ---------------------------------------------------------------------------------------------------------------------
// Error texts
//
// `error` holds one of four kinds of text. docs/errors.md lists every one of them.
//
//   parser message    "null input", or what is wrong with a JSON text, such as "unexpected end of input" or
//                     "expected value, got 'x' (120)".
//   bare key          A key alone: "failed_to_uncompress_obj", the three of the flatten functions, and
//                     "invalid_revision_state_uuid_empty" where a sync JSON to be written has a revision without
//                     suffix.
//   error record      One line of text that usually parses as JSON (nothing in it is escaped). Exactly:
//       { "filename" : "<file>", "line": <line>, "function" : "<function>", "error" : "<key>" }
//                     or, where there is something to tell about the case,
//       { "filename" : "<file>", "line": <line>, "function" : "<function>", "error" : "<key>", "args" : "<args>" }
//                     <file> is one of a few fixed names without directory of a machine, "src/libzentadbpp" for what
//                     a function of this header finds itself; <function> is then the name of that function. Rely on
//                     <key>, <function> and the layout; <line> changes with every release.
//   standard text     Of a failure of the C++ library: "std::bad_alloc"; "invalid string_view position" for an empty
//                     JSON text; "invalid map<K, T> key" for a member that must be there; "invalid stoi argument" and
//                     "stoi argument out of range" for the generation of a revision string. Of one of libcrypto:
//                     "SHA-256 failed", "SHA-256 is not available".
//
// Three groups are named once here and referred to below. All but the marked ones are error records.
//
//   [sync]   What is wrong inside a sync JSON, from "deserialize" unless told otherwise:
//            "invalid_syncdata_data_node", "invalid_data_object" (args: data hash),
//            "expecting_revision_history_array", "missing_documents",
//            "missing_root_identifier_in_non_empty_syncjson", "root_document_id_not_a_string",
//            "root_is_missing_in_documents"; from "MultiVersionDocument",
//            "cannot_push_new_revision_if_document_is_missing_identifier" (an empty id); from "unfold",
//            "revision_not_a_string" and "empty_revstring"; from "Revision", "invalid_revision_string_format"; and
//            [rev] for a history of one entry.
//   [rev]    A revision string that is none: "empty_revision" (from "Revision"), "invalid_revision_format" (from
//            "parse_revision", args: the text), or the standard texts of a generation.
//   [data]   A compressed object that cannot be opened, from "uncompress_object": "failed_to_uncompress_data",
//            "failed_to_allocate_memory_for_uncompressed_data", "uncompressed_data_is_not_an_object"; or the parser
//            message for what was inside. Functions that do not list [data] pass this over and go on with the empty
//            set, except where it was for want of memory, which is "std::bad_alloc" there.
//
// Besides, every function that looks at a document's winning revision or leaves can fail with
// "no_revision_in_document" (from "leafs") or, for an empty tree, "no_revisions_in_winning" (from "get_winning",
// args: id). No function of the library leaves a document in that state, but a text from elsewhere may.
//
// ---------------------------------------------------------------------------------------------------------------------
// Threads
//
// Every function may be called on any thread, at the same time as any other, also with the same texts. The library
// has no settings that outlive a call, starts no threads, calls nothing back and makes no call wait for another.
//
// Any number of threads may use one handle at once, with two exceptions: freeing it, and read_sync_json_ptr without
// "preserve_old_ordering", which writes to it. During these no other call may use that handle. Handles never see each
// other: one that was made from another may be used and freed independently of it, on any thread.
//
// No function depends on the C locale or on the floating-point state of the thread (rounding mode, flushing to zero,
// traps), nor changes them; errno may change. None may be called from a signal handler. A
// stack of 256 KiB is enough for any input.
//
// ---------------------------------------------------------------------------------------------------------------------
// Limits
//
// Nesting    Values may lie at most 200 levels below the outermost one, in texts that are read and in data that is
//            rebuilt; else "exceeded maximum nesting depth". In a sync JSON, member "d" is not limited, and each
//            content in "o" may nest 256 levels of its own, so that whatever the library wrote it also reads.
// Numbers    Whole numbers of up to nine characters, the sign counted, are integers. All others are read as double,
//            so whole numbers beyond 2^53 lose digits; what is too large for a double is written as null. The kind of
//            a number is told by its text in a content: 1.0 is written as 1 (without USE_FAST_FLOAT) and so is an
//            integer, as is any whole number of 32 bits. The compact form has these as integers.
// Strings    A NUL byte inside a string ("\u0000") is kept in standard JSON. The compact form cannot tell it: writing
//            one fails with "text_contains_nul" (error record of the function that was called), and so does a result
//            that is not JSON, such as a list of ids. In the args of an error record it is written as \u0000.
// Sizes      64-bit: texts may be larger than 4 GiB. Documents that refer to each other many times over could make
//            rebuilt data grow without bound; beyond 64 times the size of the contents and 256 MiB, read or written,
//            that fails with the standard text "exceeded maximum result size".
// Hostile    No text, however malformed, makes the library crash, hang or read memory that it should not; no claimed
//   input    size is trusted. A pointer that is neither null nor what it should be cannot be recognised.
//
// ---------------------------------------------------------------------------------------------------------------------
// Cost
//
//   n  bytes of the texts given        d  documents        r  revisions of the document asked for
//   m  bytes of the result             R  revisions of all documents
//
// A function that takes texts reads each once, in O(n) time and memory, O(n log n) where members do not stand in
// ascending order. What is told below comes on top of that; with a handle it is all there is. Nothing is worse than
// O(x log x) in the size of what it reads and writes.
//
// ---------------------------------------------------------------------------------------------------------------------
// The configuration
//
// A JSON object. A member counts only where it is of the given kind; any other is ignored without an error, as are
// unknown keys. {} is a good configuration for a start. Something other than an object fails with
// "config_is_not_an_object".
//
//   Key                      Kind     Default     Read by
//   "instance_id"            string   "default"   flatten, unflatten, update, read, data
//       Who writes: names the writer of ordering documents. Copies of one user's data share one id, as moves and
//       reorderings by another instance do not reach a copy that keeps an order of its own.
//   "flatten_objects"        boolean  false       flatten, update
//       true: every object that is a member of an object becomes a document. false: only the object members of an
//       object with a member "#df" do. An object with a member "#nf" always stays inside its parent, as it stands.
//   "id_generation_rules"    string   ""          flatten, update
//       How ids are made for objects without "_id". Rules are separated by ';', the first that yields an id counts;
//       its key paths by ',', their values are joined; keys of a path by '.'. Values are strings that are not empty,
//       and numbers, cut to whole ones. "user.id;name,version" is two rules. Nothing can be escaped.
//   "indexed_array_paths"    string   ""          flatten, update
//       Array domains separated by ','. Elements of these arrays are told apart by their position, so that several
//       without an id of their own do not share one. The domain of an array follows the letter "A" in its parent's
//       content.
//   "discard_id"             boolean  false       unflatten, read, data
//       true: rebuilt objects carry no "_id".
//   "force_fast_hash_only"   boolean  false       flatten, update
//       true: data hashes are "x" and 32 bits of XXH64 in decimal instead of SHA-256. For small sets that one trusted
//       host writes: different contents with one hash are taken for equal.
//   "include_full_data_hash" boolean  false       flatten, unflatten
//       Accepted, without effect.
//   "preserve_old_ordering"  boolean  false       read
//       true: the lists that the read merged are not stored in the handle.
//   "compressed"             boolean  false       update, replicate, from_bulk_get, diff (by value only)
//       true: the result is a compressed object.
//
// replicate and from_bulk_get read nothing else, and their handle twins nothing at all; it must be an object all the
// same.
//
// ---------------------------------------------------------------------------------------------------------------------
// The environment
//
// Each variable is read once in a process, when it first matters; it is on when it exists, whatever its value. Set
// them before the first call, and do not call setenv() while one runs.
//
//   USE_FAST_FLOAT   Numbers that are no integers are written in the shortest form that reads back as the same value
//                    ("0.1", "1.0", "1e21") instead of with 17 digits. As contents are told by the hash of their
//                    text, all copies of the data must agree on this.
//   USE_BEL_FORMAT   JSON results are written in the compact form, in which every string stands with its length. Both
//                    forms are always read.
//   USE_FAST_INT     Accepted, without effect: integers are always written the fast way.
//
// ---------------------------------------------------------------------------------------------------------------------
// Stability
//
// Functions, their arguments, the records, error keys with their "function", the sync JSON and every text described
// here stay as they are for all releases with one major version (libzentadbpp.so.1). A release may add functions,
// configuration keys, and error keys for what failed otherwise before. Not part of the contract: line numbers in
// error records, the messages for malformed compact form, and the symbols of the library that this header does not
// declare.

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

// A handle: an opened sync JSON. Null is no handle; what it points to is the library's business.
typedef struct zentadbpp_document_storage* sync_json_ptr;

// The result of most functions.
typedef struct sync_json_result {
    char* value;
    char* error;
    char* reserved;
} sync_json_result;

// The result of the functions that make a handle.
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

// No function returns this one; it and its free function are kept for hosts that were built against them.
typedef struct sync_json_query_result {
    char* value;
    char* error;
} sync_json_query_result;

// =====================================================================================================================
// Version and release
// =====================================================================================================================

// The version of the interface and of the formats, "2019-06-07". Always the same pointer, not to be freed.
ZENTADBPP_EXPORT const char* sync_json_lib_version(void);

// Each releases what its record points to and sets those fields to null, so that freeing a record twice, or one that
// holds nothing but null, does no harm. The record itself is the caller's. `record` must not be null.
ZENTADBPP_EXPORT void free_sync_json_result(sync_json_result* record);
ZENTADBPP_EXPORT void free_sync_json_query_result(sync_json_query_result* record);
ZENTADBPP_EXPORT void free_flatten_result(flatten_result* record);

// Releases the texts of the record and leaves the handle in `ptr` alone: it stays in use, and is to be freed with
// free_sync_json_ptr. `record` must not be null.
ZENTADBPP_EXPORT void free_sync_json_ptr_result(sync_json_ptr_result* record);

// Releases the texts of the record and its handle. `record` may be null. `ptr` is not set to null and dangles
// afterwards, so this one must not be called twice for one record.
ZENTADBPP_EXPORT void free_sync_json_ptr_result_all(sync_json_ptr_result* record);

// Frees a handle; null does nothing. What it shares with handles that were made from it, or it from, stays until the
// last of them is freed. O(what is not shared).
ZENTADBPP_EXPORT void free_sync_json_ptr(sync_json_ptr handle);

// =====================================================================================================================
// Handles
// =====================================================================================================================
//
// Nearly every function on a sync JSON text has a twin that takes a handle in its place: sync_json_winning and
// sync_json_ptr_winning. Twins are described together; both give the same results. A twin differs in this only:
//   - a null handle fails with "invalid_sync_json_ptr", an error record of the function, unless another key is listed;
//   - it never compresses a result;
//   - where the result would be a sync JSON, it is a new handle (sync_json_ptr_result), and the given one stays as it
//     was. Both are the caller's then. The new one shares everything that did not change with the old one, which
//     makes it cheap; neither ever shows what happens to the other.

// Opens a sync JSON.
//   sync_json   text, may be a compressed object
// Errors: [sync]; bare "failed_to_uncompress_obj" for a compressed object that cannot be opened.
// The handle keeps a copy of the text in memory, as do the handles made from it, also after contents were pruned from
// them; to give that memory back, dump the handle and open it again.
ZENTADBPP_EXPORT sync_json_ptr_result new_sync_json_ptr(const char* sync_json);

// The sync JSON of a handle as JSON, never compressed. Null for a null handle, and where the text cannot be made (no
// memory, or a NUL byte in the compact form). Release the text with free().
// O(m + R log R).
ZENTADBPP_EXPORT char* dump_sync_json_ptr(sync_json_ptr handle);

// =====================================================================================================================
// Host data in and out
// =====================================================================================================================

// Brings a sync JSON up to date with the host's data. A document whose content changed gets a revision after its
// winning one, a new one a first revision; one that the data no longer holds gets a deleted revision. A document whose
// winning revision is deleted stays deleted, even if the data holds it again. Equal data changes nothing. The root is
// then the root document of `input`; keep its id, as changing it away and back names a deleted document. A change whose
// revision string is taken under another parent gets an "empty" revision in between.
// The list of every array that is not empty is stored, and all other leaves of its ordering document are closed. An
// array that is empty or gone keeps its list, except for elements that `input` has in another array. Documents that
// only a conflicting revision leads to are not deleted, so that settling the conflict for it brings them back. If
// `input` has an element twice with different contents, one that no revision has counts; of two such, the last.
//   input       JSON object, the host's data
//   sync_json   what was there before; {} for a first version
//   config      configuration
// Result: JSON, the new sync JSON; compressed where the configuration says so. Twin: a new handle.
// Checked in the order input, config, sync_json.
// Errors: "input_is_not_an_object", "config_is_not_an_object", "synchronizable_json_is_not_an_object" (a text that is
//   no object), [data], [sync]; "duplicate_array_domain_key" (from "flatten", args: path) for two arrays of objects
//   in one place, "duplicate_objects_domain_key" (from "operator ()", args: path, empty for elements) for two objects
//   that become documents under one id: two that are split off, an element and one that is split off, any and the
//   root, or an element and one that it lies in;
//   "cannot_push_new_revision_if_document_is_missing_identifier" for an object whose "_id" is the empty text.
// O(n + d + revisions of what changed); another O(contents + R) if documents are deleted while a conflict is open, or
// lists of other arrays may change. Only what changed is hashed.
ZENTADBPP_EXPORT sync_json_result update_sync_json(const char* input, const char* sync_json, const char* config);
ZENTADBPP_EXPORT sync_json_ptr_result update_sync_json_ptr(const char* input, sync_json_ptr handle, const char* config);

// Rebuilds the host's data from the winning revisions. Objects that were documents carry their id as "_id", unless
// discarded. What refers to a deleted document is left out. Each array has the merged list of the configured instance;
// what only other instances placed is added next to its neighbours. What is not deleted and nothing shows comes back
// where it was: elements of lists in an object that another copy moved, an element that was removed on one copy and
// edited on another, objects that two copies moved into each other. Not so what was added inside something that another
// copy removed, and what only a conflicting revision refers to.
// A document that a member refers to, and any document that leads to such a one, shows once: at the first place in
// ascending order of keys and in the order of lists. No document shows inside itself. Other elements show as often as
// lists have them.
//   sync_json   text or handle; the empty set gives {}
//   config      configuration
// Result: JSON, an object.
// Checked in the order config, sync_json.
// Errors: "config_is_not_an_object"; by value "synchronizable_json_is_not_an_object", [data], [sync]; from
//   "operator ()", "missing_root_document_data" (args: revision) where the root's content was pruned,
//   "missing_document" (args: id) for a member that refers to a document that does not exist; "cannot_find_object"
//   (from "read_object", args: data hash) where any other content was pruned; "exceeded maximum nesting depth" (parser
//   message), "exceeded maximum result size".
// O(m + contents + R), a logarithm more for lists with branches; by handle O(m + d) after the first read for one
// instance, which keeps an index in the handle until lists are stored.
//
// read_sync_json_ptr WRITES TO THE HANDLE unless the configuration has "preserve_old_ordering": it stores the merged
// lists of the configured instance, each in a new revision, and closes all other leaves of their ordering documents.
// Other calls, and a dump, see that from then on. No other call may use the handle meanwhile. After a merge, read and
// store, or update, before pruning, so that no list is dropped unread. On failure the handle is as it was.
ZENTADBPP_EXPORT sync_json_result read_sync_json(const char* sync_json, const char* config);
ZENTADBPP_EXPORT sync_json_result read_sync_json_ptr(sync_json_ptr handle, const char* config);

// The content of one revision of one document, rebuilt as by read_sync_json; documents that it refers to come at
// their winning revisions. An array that the data does not show, as only this revision refers to it, has the stored
// list of the configured instance, or else that of another one.
//   sync_json   text or handle
//   id          id of the document
//   rev         revision string
//   config      configuration
// Result: JSON, an object. A deleted revision gives {"_deleted": true}, a resolved one {}, each with "_id" unless
//   discarded.
// Errors: "config_is_not_an_object", by value [data], [sync]; "document_not_found" (args: id); [rev]; from
//   "operator ()", "invalid_root_document_revision" (args: rev) for a revision that the document does not have,
//   "missing_root_document_data" (args: rev) for one whose content was pruned; and those of read_sync_json about
//   references.
// O(m + contents + R), a logarithm more for lists with branches; by handle O(m + d) after the first read for one
// instance, which keeps an index in the handle until lists are stored.
ZENTADBPP_EXPORT sync_json_result sync_json_data(const char* sync_json, const char* id, const char* rev,
                                                 const char* config);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_data(sync_json_ptr handle, const char* id, const char* rev,
                                                     const char* config);

// Flattens data on its own, without revisions.
//   input    JSON object
//   config   configuration
// Result: JSON, an array of the documents, ordering documents among them, ascending by id, each an object with its
//   "_id". In a document a string stands with "!" before it, "A" and a domain stand for an array of objects, "O" and
//   an id for an object that became a document.
// Errors: bare "expecting_object_as_input_to_flatten", bare "expecting_object_as_configuration_to_flatten"; the three
//   about places and ids of update_sync_json.
// O(n log n).
ZENTADBPP_EXPORT flatten_result json_object_flatten(const char* input, const char* config);

// Rebuilds data from such documents, in any order.
//   input     JSON array; each element an object with a string "_id". Of two with one id the later counts
//   config    configuration
//   root_id   id of the document to start from. Null or empty: the document "root" if there is one, else the one
//             document that is no ordering document and that no other refers to
// Result: JSON, an object; {} for an empty array.
// Errors: bare "expecting_array_as_input_to_unflatten", bare "expecting_object_as_configuration_to_flatten";
//   "invalid map<K, T> key" for an element without a string "_id", for an empty one
//   "cannot_push_new_revision_if_document_is_missing_identifier"; "missing_root_document" (from "operator ()", args:
//   the id, or nothing if there is not exactly one candidate); "cyclic_document_reference" (from "operator ()", args:
//   id) for a document inside itself; and those of read_sync_json about references. A document that several places
//   refer to is rebuilt at each of them.
// O(n log n + m).
ZENTADBPP_EXPORT flatten_result json_array_unflatten(const char* input, const char* config, const char* root_id);

// =====================================================================================================================
// Merging
// =====================================================================================================================

// Merges the source into the target: the result knows every revision and content that either knows. Branches that
// were made apart become branches of one tree; nothing is dropped, and the winner is the same on every copy that
// knows the same revisions, in whichever order they were merged. Where two copies settled one conflict in opposite
// ways, the result is open again with one of the two contents. Replicating again changes nothing. The source stays as
// it is: for a copy to learn what the other knows, replicate both ways.
//   source, target   texts or handles of sets with the same root id; the target may be empty
//   config           configuration
// Result: JSON, the new target as a sync JSON; compressed where the configuration says so. Twin: a new handle for it,
//   which does not depend on the source's.
// Checked in the order config, source, target.
// Errors: "config_is_not_an_object"; for a null text "null_source_syncjson" or "null_target_syncjson", for one that
//   is no object "source_synchronizable_json_is_not_an_object" or "target_synchronizable_json_is_not_an_object", for
//   a null handle "invalid_source_sync_json_ptr" or "invalid_target_sync_json_ptr"; [data], [sync];
//   "mismatching_root_document_identifiers" (from "operator ()"), also for an empty source and a target that is not;
//   "cannot_replace_first_revision" (args: id), an error record of the function that was called, where both made a
//   document of that id, each with a content of its own. This last one also prints four lines to standard error, the
//   only thing that the library ever prints.
// O(documents of both + revisions of those that differ + contents that are new); where the target lacks contents of
// documents that do not differ, all revisions of the source as well.
ZENTADBPP_EXPORT sync_json_result replicate_sync_json(const char* source, const char* target, const char* config);
ZENTADBPP_EXPORT sync_json_ptr_result replicate_sync_json_ptr(sync_json_ptr source, sync_json_ptr target,
                                                              const char* config);

// Settles a conflict of a document: closes the branch that ends in `rev`. A host that keeps the winner resolves every
// conflicting revision; one that prefers another leaf resolves the winner, also a deleted one: so an edit can be kept
// against a deletion that won. Nothing changes if the branch is closed already, if `rev` is the only leaf, as a
// document must keep one, and if it is deleted and all other leaves are deleted too.
//   sync_json   text or handle
//   id          id of the document
//   rev         revision string of a leaf
// Result: JSON, the new sync JSON, never compressed. Twin: a new handle.
// Errors: [sync]; "document_not_found" (args: id); [rev]; from "resolve", args the revision: "revision_not_found",
//   "revision_is_not_a_leaf".
// O(r + log d), and writing the result.
ZENTADBPP_EXPORT sync_json_result sync_json_resolve(const char* sync_json, const char* id, const char* rev);
ZENTADBPP_EXPORT sync_json_ptr_result sync_json_ptr_resolve(sync_json_ptr handle, const char* id, const char* rev);

// =====================================================================================================================
// Questions about one document
// =====================================================================================================================
//
//   sync_json   text or handle
//   id          id of the document; one that is not in the set: "document_not_found" (args: id), an error record of
//               the function
//   rev         revision string, exactly as the library gave it: "03-a_b" is not "3-a_b"
// Errors of all, by value: [sync], and [data] where it is listed. With `rev`: [rev].

// The winning revision. Plain. Errors: [data]. O(log d).
ZENTADBPP_EXPORT sync_json_result sync_json_winning(const char* sync_json, const char* id);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_winning(sync_json_ptr handle, const char* id);

// All leaves, deleted ones among them. List of revision strings, never empty. Errors: [data]. O(r log r).
ZENTADBPP_EXPORT sync_json_result sync_json_leafs(const char* sync_json, const char* id);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_leafs(sync_json_ptr handle, const char* id);

// The conflicting revisions. List. O(r log r).
ZENTADBPP_EXPORT sync_json_result sync_json_conflicting(const char* sync_json, const char* id);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_conflicting(sync_json_ptr handle, const char* id);

// The parent of a revision. Plain; the empty text for a first revision.
// Errors: [data], "revision_not_found_in_ancestor" (from "ancestor_of"). O(log d + log r).
ZENTADBPP_EXPORT sync_json_result sync_json_ancestor(const char* sync_json, const char* id, const char* rev);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_ancestor(sync_json_ptr handle, const char* id, const char* rev);

// The other children of the revision's parent. List.
// Errors: [data], "revision_not_found" (from "siblings", args: rev). O(r).
ZENTADBPP_EXPORT sync_json_result sync_json_siblings(const char* sync_json, const char* id, const char* rev);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_siblings(sync_json_ptr handle, const char* id, const char* rev);

// The revision and all its ancestors, newest first. JSON, an array of revision strings.
// Errors: "revision_not_found_in_ancestor" (from "ancestor_of"). O(m + log d + log r).
ZENTADBPP_EXPORT sync_json_result sync_json_history(const char* sync_json, const char* id, const char* rev);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_history(sync_json_ptr handle, const char* id, const char* rev);

// Whether the content of a revision is stored: pruning takes contents away. What a reserved word stands for always is.
//   rev_or_id   a revision string; or the id of a document, to ask for its winning revision
// JSON, true or false. A revision string that no document has is answered for its data hash. Errors: [data]; [rev]
// for a text that is neither. O(log d).
ZENTADBPP_EXPORT sync_json_result sync_json_available(const char* sync_json, const char* rev_or_id);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_available(sync_json_ptr handle, const char* rev_or_id);

// =====================================================================================================================
// Questions about a document set
// =====================================================================================================================
//
//   sync_json   text or handle
// Errors of all, by value: [sync].

// The id of the root document. Plain.
// Errors: "root_id_cannot_be_empty" (from "root") for the empty set. O(1).
ZENTADBPP_EXPORT sync_json_result sync_json_root(const char* sync_json);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_root(sync_json_ptr handle);

// The ids of all documents, deleted and ordering ones too, ascending. JSON, an array of strings. O(m).
ZENTADBPP_EXPORT sync_json_result sync_json_all_docs(const char* sync_json);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_all_docs(sync_json_ptr handle);

// The set cut down to what won: each document keeps the path from its first revision to its winning one, and the
// contents of those. What lost is gone from the result, conflicts with it.
// Result: JSON, a sync JSON, never compressed. Twin: a new handle.
// O(R log R), and writing the result.
ZENTADBPP_EXPORT sync_json_result sync_json_all_winning(const char* sync_json);
ZENTADBPP_EXPORT sync_json_ptr_result sync_json_ptr_all_winning(sync_json_ptr handle);

// The instances that wrote ordering documents whose winning content is there. List of instance ids.
// O(d + contents of ordering documents).
ZENTADBPP_EXPORT sync_json_result sync_json_instances(const char* sync_json);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_instances(sync_json_ptr handle);

// The documents that have a conflicting revision. List of ids. Ordering documents are left out: the library
// reconciles those itself. O(R).
ZENTADBPP_EXPORT sync_json_result sync_json_unresolved(const char* sync_json);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_unresolved(sync_json_ptr handle);

// Comparisons with an older state of the same data.
//   sync_json, handle           the newer state
//   old_sync_json, old_handle   the older one; a null handle: "invalid_old_sync_json_ptr"
// List of ids of documents of the newer state, ordering documents among them:
//   created   those that the older one does not have
//   updated   those that both have, with different winning contents; a deletion is an update as well
//   deleted   those that both have, whose winning revision is deleted in the newer one only
// O(documents of both).
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
// Drops contents that are no longer wanted. The revision trees stay whole, so merging works as before; only the
// content of an older revision can no longer be read (sync_json_available tells). Content that a losing leaf alone
// has goes too: settle conflicts first.
//   sync_json      text or handle
//   depth          how many revisions of each winning history keep their content, counted from the winning one; 0:
//                  none; UINT32_MAX: all
//   skip_winning   true: the winning revision is not among those kept, though it counts
// The winning contents of ordering documents always stay, and so does what several revisions share, if one keeps it.
// Result: JSON, the new sync JSON; compressed where the given one was. Twin: a new handle.
// Errors, by value: [sync]. O(R + contents), and writing the result; for k ids another O((d + k) log k).

// All documents: what no document keeps goes.
ZENTADBPP_EXPORT sync_json_result sync_json_prune(const char* sync_json, uint32_t depth, bool skip_winning);
ZENTADBPP_EXPORT sync_json_ptr_result sync_json_ptr_prune(sync_json_ptr handle, uint32_t depth, bool skip_winning);

// Only the given documents; content that any other document has in any revision stays.
//   ids   a JSON array of ids, or else one id: a JSON string, or the text as it stands. Those of no document are
//         passed over; the empty text names none
ZENTADBPP_EXPORT sync_json_result sync_json_prune_ids(const char* sync_json, const char* ids, uint32_t depth,
                                                      bool skip_winning);
ZENTADBPP_EXPORT sync_json_ptr_result sync_json_ptr_prune_ids(sync_json_ptr handle, const char* ids, uint32_t depth,
                                                              bool skip_winning);

// =====================================================================================================================
// Exchange with servers that speak the CouchDB replication protocol
// =====================================================================================================================

// The body of a _bulk_docs request: {"docs": [...], "new_edits": false}, in ascending order of id. Each element is
// the winning content of a document with "_id" and "_revisions" set: {"ids": data hashes from the winning revision to
// the first, "start": generation of the winning one}.
//   sync_json   text or handle
// Result: JSON; compressed where the given text was.
// Errors: by value [sync]; "cannot_find_object" (from "read_object", args: data hash) for a winning content that was
//   pruned.
// O(m + d).
ZENTADBPP_EXPORT sync_json_result sync_json_to_bulk_docs(const char* sync_json);
ZENTADBPP_EXPORT sync_json_result sync_json_ptr_to_bulk_docs(sync_json_ptr handle);

// A new document set from the answer to a _bulk_get request: {"results": [{"docs": [{"ok": document}, ...]}, ...]}.
// Each "ok" has "_id", "_revisions" as above (the ids bare hashes or hash and suffix), and may have "_rev", a
// revision string or what such a server makes of a bare hash, "start-hash"; the rest is its content. What has another
// shape is passed over, as is a history that does not reach back to the first revision. Of several contents with one
// hash the first one stays. The root is chosen among the documents that are neither deleted nor ordering documents, if
// there are any: "root", else the smallest id that no other document refers to or lists, else the smallest id.
// Host data should have no member "_rev" where it is exchanged: a server refuses it or takes it for its own.
//
// An "ok" that is refused is left out, and so is a document whose history is; all others are taken. `error` has the
// first failure, beside the result, or alone where nothing was taken.
//   bulk_get   JSON text, may be a compressed object; something other than an object counts as {}
//   config     configuration
// Result: JSON, a sync JSON, {} where nothing was imported; compressed where the configuration says so. Twin: a new
//   handle.
// Errors: "config_is_not_an_object", [data]; [rev] for a "_rev" that is none; "invalid_revision_string_format" (from
//   "Revision", args: the id of a revision); "cannot_push_new_revision_if_document_is_missing_identifier" for an
//   empty "_id"; from "ancestor", "cannot_replace_first_revision" (args: id) and
//   "invalid_parent_revision_in_ancestor" for histories of one document that contradict each other.
// O(n log n).
ZENTADBPP_EXPORT sync_json_result sync_json_from_bulk_get(const char* bulk_get, const char* config);
ZENTADBPP_EXPORT sync_json_ptr_result sync_json_ptr_from_bulk_get(const char* bulk_get, const char* config);

// =====================================================================================================================
// Diff and patch
// =====================================================================================================================
//
// These compare and change sync JSONs entry by entry, as they stand, without looking at what they mean. A member "d"
// or "o" that is missing, or no object, counts as {}; other members are neither compared nor kept.

// What makes `after` of `before`: {"d": [...], "o": [...]}, each a list of operations, ascending by key, added last:
//   {"key": k, "op": "remove", "value": old}
//   {"before": old, "key": k, "op": "replace", "value": new}
//   {"key": k, "op": "add", "value": new}
// Entries are compared by their written text; what is no array in "d", or no object in "o", as an empty one.
//   before, after   texts, may be compressed objects; something other than an object counts as {}
//   config          configuration
// Result: JSON; compressed where the configuration says so.
// Checked in the order config, before, after. Errors: "config_is_not_an_object", [data]. O(n + m).
ZENTADBPP_EXPORT sync_json_result sync_json_diff(const char* before, const char* after, const char* config);

// Applies such operations, in their order: "remove" takes the key away, any other "op" sets it to "value". Keys that
// are not there, or there already, are no failure, and "before" is not looked at.
//   before, patch   texts, may be compressed objects; something other than an object counts as {}
// Result: JSON, {"d": {...}, "o": {...}}, without "r"; compressed where `before` was.
// Errors: [data]; "invalid map<K, T> key" for an operation without "op", "key" or, if it is no "remove", "value".
// O(n log n).
ZENTADBPP_EXPORT sync_json_result sync_json_patch(const char* before, const char* patch);

// =====================================================================================================================
// Compressed objects
// =====================================================================================================================
//
//   object   JSON text of any object, not only a sync JSON; something other than an object counts as {}

// Result: JSON, the compressed object; one that is compressed already comes back as it is.
// Errors: "failed_to_uncompress_data" (from "compress_object") if zlib fails. O(n).
ZENTADBPP_EXPORT sync_json_result sync_json_compress(const char* object);

// Result: JSON, the object that was compressed; one that is not compressed comes back as it is.
// Errors: [data]. O(n + m).
ZENTADBPP_EXPORT sync_json_result sync_json_uncompress(const char* object);

#ifdef __cplusplus
}
#endif

#endif
