// What all ways to call the library share: its functions, their arguments, and failures.

// A failed call.
export class ZentadbError extends Error {
  static #record =
    /^\{ "filename" : "([^"]*)", "line": (\d+), "function" : "([^"]*)", "error" : "([^"]*)"(?:, "args" : "(.*)")? \}$/s;

  constructor(text, options) {
    super(text, options);
    const record = ZentadbError.#record.exec(text);
    this.name = 'ZentadbError';
    this.key = record ? record[4] : text;
    this.function = record?.[3];
    this.filename = record?.[1];
    this.line = record ? Number(record[2]) : undefined;
    this.args = record?.[5];
  }
}

// What a function returns: a result with a text or a handle, or the named type. Its arguments: a plain (t)ext; (j)SON, as a
// text or an object; a (c)onfiguration, as a text or an object; a (h)andle; a (n)umber; a (b)oolean; or a record of the
// named type.
export const exported = {
  dump_sync_json_ptr: ['text', 'h'],
  free_flatten_result: ['void', { record: 'flattenResult' }],
  free_sync_json_ptr: ['void', 'h'],
  free_sync_json_ptr_result: ['void', { record: 'handleResult' }],
  free_sync_json_ptr_result_all: ['void', { record: 'handleResult' }],
  free_sync_json_query_result: ['void', { record: 'queryResult' }],
  free_sync_json_result: ['void', { record: 'result' }],
  json_array_unflatten: ['flattenResult', 'jct'],
  json_object_flatten: ['flattenResult', 'jc'],
  new_sync_json_ptr: ['handleResult', 'j'],
  read_sync_json: ['result', 'jc'],
  read_sync_json_ptr: ['result', 'hc'],
  replicate_sync_json: ['result', 'jjc'],
  replicate_sync_json_ptr: ['handleResult', 'hhc'],
  sync_json_all_docs: ['result', 'j'],
  sync_json_all_winning: ['result', 'j'],
  sync_json_ancestor: ['result', 'jtt'],
  sync_json_available: ['result', 'jt'],
  sync_json_compress: ['result', 'j'],
  sync_json_conflicting: ['result', 'jt'],
  sync_json_created: ['result', 'jj'],
  sync_json_data: ['result', 'jttc'],
  sync_json_deleted: ['result', 'jj'],
  sync_json_diff: ['result', 'jjc'],
  sync_json_from_bulk_get: ['result', 'jc'],
  sync_json_history: ['result', 'jtt'],
  sync_json_instances: ['result', 'j'],
  sync_json_leafs: ['result', 'jt'],
  sync_json_lib_version: ['constant', ''],
  sync_json_patch: ['result', 'jj'],
  sync_json_prune: ['result', 'jnb'],
  sync_json_prune_ids: ['result', 'jjnb'],
  sync_json_ptr_all_docs: ['result', 'h'],
  sync_json_ptr_all_winning: ['handleResult', 'h'],
  sync_json_ptr_ancestor: ['result', 'htt'],
  sync_json_ptr_available: ['result', 'ht'],
  sync_json_ptr_conflicting: ['result', 'ht'],
  sync_json_ptr_created: ['result', 'hh'],
  sync_json_ptr_data: ['result', 'httc'],
  sync_json_ptr_deleted: ['result', 'hh'],
  sync_json_ptr_from_bulk_get: ['handleResult', 'jc'],
  sync_json_ptr_history: ['result', 'htt'],
  sync_json_ptr_instances: ['result', 'h'],
  sync_json_ptr_leafs: ['result', 'ht'],
  sync_json_ptr_prune: ['handleResult', 'hnb'],
  sync_json_ptr_prune_ids: ['handleResult', 'hjnb'],
  sync_json_ptr_resolve: ['handleResult', 'htt'],
  sync_json_ptr_root: ['result', 'h'],
  sync_json_ptr_siblings: ['result', 'htt'],
  sync_json_ptr_to_bulk_docs: ['result', 'h'],
  sync_json_ptr_unresolved: ['result', 'h'],
  sync_json_ptr_updated: ['result', 'hh'],
  sync_json_ptr_winning: ['result', 'ht'],
  sync_json_resolve: ['result', 'jtt'],
  sync_json_root: ['result', 'j'],
  sync_json_siblings: ['result', 'jtt'],
  sync_json_to_bulk_docs: ['result', 'j'],
  sync_json_uncompress: ['result', 'j'],
  sync_json_unresolved: ['result', 'j'],
  sync_json_updated: ['result', 'jj'],
  sync_json_winning: ['result', 'jt'],
  update_sync_json: ['result', 'jjc'],
  update_sync_json_ptr: ['handleResult', 'jhc'],
};

// Functions that make several calls; natively they are in a separate library.
export const added = {
  zentadbpp_check: ['result', 'jcj'],
  zentadbpp_three_way: ['result', 'jtc'],
  zentadbpp_verify: ['result', 'jj'],
};

// Keys that the library silently ignores, such as a misspelled one.
const settings = new Set([
  'instance_id', 'id_generation_rules', 'indexed_array_paths', 'flatten_objects', 'discard_id', 'preserve_old_ordering',
  'compressed', 'force_fast_hash_only', 'include_full_data_hash',
]);
const lookedAt = new Set(['{}']);

function warn(message) {
  if (globalThis.process?.emitWarning) globalThis.process.emitWarning(message, 'ZentadbWarning');
  else console.warn(`ZentadbWarning: ${message}`);
}

function lookAtSettings(config) {
  if (typeof config !== 'string' || lookedAt.has(config)) return;
  if (lookedAt.size > 64) lookedAt.clear();
  lookedAt.add(config);
  let parsed;
  try {
    parsed = JSON.parse(config);
  } catch {
    return; // the library reports it
  }
  if (typeof parsed !== 'object' || parsed === null || Array.isArray(parsed)) return;
  const unknown = Object.keys(parsed).filter((key) => !settings.has(key));
  if (unknown.length > 0) warn(`the library does not know these configuration keys: ${unknown.join(', ')}`);
}

// Older browsers have no such method.
const isWellFormed = (text) => (text.isWellFormed ? text.isWellFormed() : !/\p{Surrogate}/u.test(text));

// A value of another type would be used as an address, or truncated, so each is checked here.
export const given = {
  t(value) {
    if (value === null || value === undefined) return null;
    if (typeof value !== 'string') throw new TypeError(`expected a string, got ${typeof value}`);
    if (value.includes('\0')) throw new ZentadbError('text_contains_nul');
    if (!isWellFormed(value)) throw new TypeError('the text contains half a surrogate pair');
    return value;
  },
  j(value) {
    return given.t(value !== null && typeof value === 'object' ? JSON.stringify(value) : value);
  },
  c(value) {
    const config = given.j(value);
    lookAtSettings(config);
    return config;
  },
  n(value) {
    if (!Number.isInteger(value) || value < 0 || value > 0xffffffff) {
      throw new RangeError(`${value} is not a whole number between 0 and ${0xffffffff}`);
    }
    return value;
  },
  b: Boolean,
};

export const isTrue = (text) => ['true', '@T'].includes(text); // in either form of JSON
export const itemsOf = (joined) => (joined === '' ? [] : joined.split(','));
