// zentadbpp_host.h: the additional functions of zentadbpp.hpp as C functions, for other languages. They are in
// libzentadbpp_host.so.1, which needs libzentadbpp.so.1. Texts, results, ownership, errors and threads are as in
// zentadbpp.h; zentadbpp_check.hpp, zentadbpp_three_way.hpp and zentadbpp_verify.hpp describe the functions. Results
// are always standard JSON.

#ifndef ZENTADBPP_HOST_H
#define ZENTADBPP_HOST_H

#include <zentadbpp.h>

#ifdef __cplusplus
extern "C" {
#endif

// The places of the data that a read would not return unchanged if the store were updated with it.
//   data        JSON object, the host's data
//   config      configuration, as for update_sync_json
//   sync_json   the store; {} for a first version
// Result: JSON, an array of {"id": id, "place": place, "reason": reason}, empty if there are none. "id" is the empty
//   text if the reason is not an id.
// Errors: those of update_sync_json and read_sync_json by handle.
ZENTADBPP_EXPORT sync_json_result zentadbpp_check(const char* data, const char* config, const char* sync_json);

// The versions of a document in conflict, and their merge.
//   sync_json   the store
//   id          id of the document
//   config      configuration, as for sync_json_data
// Result: JSON, an object with
//   "id"         the id
//   "common"     the last common version: {"content": object, "deleted": bool, "revision": revision}; "content" is
//                null if it is deleted or was pruned
//   "versions"   the winning version, then the conflicting ones, in the same form
//   "merged"     their merge; at a clash the value of the winner; null if the winner has no content
//   "clashes"    the places that more than one version changed: {"common": value, "place": place, "versions": [value,
//                ...]}; a value is {"value": JSON}, or {} if that version has no such member
// Errors: those of sync_json_winning, sync_json_history and sync_json_data by handle.
ZENTADBPP_EXPORT sync_json_result zentadbpp_three_way(const char* sync_json, const char* id, const char* config);

// The contents that do not hash to their names. The library does not verify names, so call this before you merge a text
// from an untrusted source.
//   sync_json   the text
//   known       the store to merge into; contents that it has are not verified
// Result: JSON, an array of names, ascending. Other kinds of names, such as those of servers, are not verified.
// Errors: those of new_sync_json_ptr, and "verify_needs_the_standard_form" if USE_BEL_FORMAT is set.
ZENTADBPP_EXPORT sync_json_result zentadbpp_verify(const char* sync_json, const char* known);

#ifdef __cplusplus
}
#endif

#endif
