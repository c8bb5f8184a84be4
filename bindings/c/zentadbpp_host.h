// zentadbpp_host.h: what zentadbpp.hpp does for C++ with the library's functions, as C functions for other languages.
// The library libzentadbpp_host.so.1 has them; it needs libzentadbpp.so.1. Texts, results, who frees them, errors and
// threads are as zentadbpp.h describes them, and so are the functions in zentadbpp_check.hpp and
// zentadbpp_three_way.hpp. Results are always standard JSON.

#ifndef ZENTADBPP_HOST_H
#define ZENTADBPP_HOST_H

#include <zentadbpp.h>

#ifdef __cplusplus
extern "C" {
#endif

// Where data would not come back from a store as it is given, were the store updated with it.
//   data        JSON object, the host's data
//   config      configuration, as for update_sync_json
//   sync_json   the store; {} for a first version
// Result: JSON, an array of {"id": id, "place": place, "reason": reason}, empty where all comes back. "id" is the empty
//   text where the reason is not an id.
// Errors: those of update_sync_json and read_sync_json by handle.
ZENTADBPP_EXPORT sync_json_result zentadbpp_check(const char* data, const char* config, const char* sync_json);

// What is known about a document in conflict, and what can be merged of it.
//   sync_json   the store
//   id          id of the document
//   config      configuration, as for sync_json_data
// Result: JSON, an object with
//   "id"         the id
//   "common"     the last version that all have in common: {"content": object, "deleted": bool, "revision": revision};
//                "content" is null where it is deleted or was pruned
//   "versions"   the winning version, then the conflicting ones, in the same form
//   "merged"     what they come to; at a clash, of two versions, what the winner has; null where that has no content
//   "clashes"    the places that more than one changed: {"common": value, "place": place, "versions": [value, ...]},
//   where
//                a value is {"value": JSON}, or {} where that version has no such member
// Errors: those of sync_json_winning, sync_json_history and sync_json_data by handle.
ZENTADBPP_EXPORT sync_json_result zentadbpp_three_way(const char* sync_json, const char* id, const char* config);

#ifdef __cplusplus
}
#endif

#endif
