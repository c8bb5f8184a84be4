// The shared libraries: every function that they export, and how their results become JavaScript values and are freed.

import { dirname, join } from 'node:path';
import process from 'node:process';

const { default: koffi } = await import('koffi').catch((failure) => {
  throw new Error('koffi is not installed beside zentadbpp; install a folder with npm install --install-links', { cause: failure });
});

// What the library says about a failed call.
export class ZentadbError extends Error {
  static #record =
    /^\{ "filename" : "([^"]*)", "line": (\d+), "function" : "([^"]*)", "error" : "([^"]*)"(?:, "args" : "(.*)")? \}$/s;

  constructor(text) {
    super(text);
    const record = ZentadbError.#record.exec(text);
    this.name = 'ZentadbError';
    this.key = record ? record[4] : text;
    this.function = record?.[3];
    this.filename = record?.[1];
    this.line = record ? Number(record[2]) : undefined;
    this.args = record?.[5];
  }
}

// The texts of a record stay pointers, so that the library can free them.
const Result = koffi.struct({ value: 'void *', error: 'void *', reserved: 'void *' });
const HandleResult = koffi.struct({ value: 'void *', error: 'void *', reserved: 'void *' });
const FlattenResult = koffi.struct({ value: 'void *', error: 'void *' });
const QueryResult = koffi.struct({ value: 'void *', error: 'void *' });

// What a function returns, and what it takes: a (t)ext, a (c)onfiguration, a (h)andle, a (n)umber, a (b)oolean, or a record.
const exported = {
  dump_sync_json_ptr: ['void *', 'h'],
  free_flatten_result: ['void', FlattenResult],
  free_sync_json_ptr: ['void', 'h'],
  free_sync_json_ptr_result: ['void', HandleResult],
  free_sync_json_ptr_result_all: ['void', HandleResult],
  free_sync_json_query_result: ['void', QueryResult],
  free_sync_json_result: ['void', Result],
  json_array_unflatten: [FlattenResult, 'tct'],
  json_object_flatten: [FlattenResult, 'tc'],
  new_sync_json_ptr: [HandleResult, 't'],
  read_sync_json: [Result, 'tc'],
  read_sync_json_ptr: [Result, 'hc'],
  replicate_sync_json: [Result, 'ttc'],
  replicate_sync_json_ptr: [HandleResult, 'hhc'],
  sync_json_all_docs: [Result, 't'],
  sync_json_all_winning: [Result, 't'],
  sync_json_ancestor: [Result, 'ttt'],
  sync_json_available: [Result, 'tt'],
  sync_json_compress: [Result, 't'],
  sync_json_conflicting: [Result, 'tt'],
  sync_json_created: [Result, 'tt'],
  sync_json_data: [Result, 'tttc'],
  sync_json_deleted: [Result, 'tt'],
  sync_json_diff: [Result, 'ttc'],
  sync_json_from_bulk_get: [Result, 'tc'],
  sync_json_history: [Result, 'ttt'],
  sync_json_instances: [Result, 't'],
  sync_json_leafs: [Result, 'tt'],
  sync_json_lib_version: ['const char *', ''],
  sync_json_patch: [Result, 'tt'],
  sync_json_prune: [Result, 'tnb'],
  sync_json_prune_ids: [Result, 'ttnb'],
  sync_json_ptr_all_docs: [Result, 'h'],
  sync_json_ptr_all_winning: [HandleResult, 'h'],
  sync_json_ptr_ancestor: [Result, 'htt'],
  sync_json_ptr_available: [Result, 'ht'],
  sync_json_ptr_conflicting: [Result, 'ht'],
  sync_json_ptr_created: [Result, 'hh'],
  sync_json_ptr_data: [Result, 'httc'],
  sync_json_ptr_deleted: [Result, 'hh'],
  sync_json_ptr_from_bulk_get: [HandleResult, 'tc'],
  sync_json_ptr_history: [Result, 'htt'],
  sync_json_ptr_instances: [Result, 'h'],
  sync_json_ptr_leafs: [Result, 'ht'],
  sync_json_ptr_prune: [HandleResult, 'hnb'],
  sync_json_ptr_prune_ids: [HandleResult, 'htnb'],
  sync_json_ptr_resolve: [HandleResult, 'htt'],
  sync_json_ptr_root: [Result, 'h'],
  sync_json_ptr_siblings: [Result, 'htt'],
  sync_json_ptr_to_bulk_docs: [Result, 'h'],
  sync_json_ptr_unresolved: [Result, 'h'],
  sync_json_ptr_updated: [Result, 'hh'],
  sync_json_ptr_winning: [Result, 'ht'],
  sync_json_resolve: [Result, 'ttt'],
  sync_json_root: [Result, 't'],
  sync_json_siblings: [Result, 'ttt'],
  sync_json_to_bulk_docs: [Result, 't'],
  sync_json_uncompress: [Result, 't'],
  sync_json_unresolved: [Result, 't'],
  sync_json_updated: [Result, 'tt'],
  sync_json_winning: [Result, 'tt'],
  update_sync_json: [Result, 'ttc'],
  update_sync_json_ptr: [HandleResult, 'thc'],
};

// What the library would pass over without a word, such as a key with a slip of the pen.
const settings = new Set([
  'instance_id', 'id_generation_rules', 'indexed_array_paths', 'flatten_objects', 'discard_id', 'preserve_old_ordering',
  'compressed', 'force_fast_hash_only', 'include_full_data_hash',
]);
const lookedAt = new Set(['{}']);

function lookAtSettings(config) {
  if (typeof config !== 'string' || lookedAt.has(config)) return;
  if (lookedAt.size > 64) lookedAt.clear();
  lookedAt.add(config);
  let parsed;
  try {
    parsed = JSON.parse(config);
  } catch {
    return; // which the library refuses
  }
  if (typeof parsed !== 'object' || parsed === null || Array.isArray(parsed)) return;
  const unknown = Object.keys(parsed).filter((key) => !settings.has(key));
  if (unknown.length > 0) {
    process.emitWarning(`the library does not know these configuration keys: ${unknown.join(', ')}`, 'ZentadbWarning');
  }
}

// A value of another kind would be taken for an address, or cut, so each is looked at here.
const given = {
  t(value) {
    if (value === null || value === undefined) return null;
    if (typeof value !== 'string') throw new TypeError(`expected a string, got ${typeof value}`);
    if (value.includes('\0')) throw new ZentadbError('text_contains_nul');
    if (!value.isWellFormed()) throw new TypeError('half a surrogate pair is no text');
    return value;
  },
  c(value) {
    lookAtSettings(value);
    return given.t(value);
  },
  h(value) {
    if (value !== null && typeof value !== 'bigint') throw new TypeError('expected a Handle');
    return value;
  },
  n(value) {
    if (!Number.isInteger(value) || value < 0 || value > 0xffffffff) {
      throw new RangeError(`${value} is no whole number between 0 and ${0xffffffff}`);
    }
    return value;
  },
  b: Boolean,
};

// What libzentadbpp_host adds, loaded when it is first called.
const hostExported = {
  zentadbpp_check: [Result, 'tct'],
  zentadbpp_three_way: [Result, 'ttc'],
};

const fileOf = (name) => (process.platform === 'darwin' ? `lib${name}.1.dylib` : `lib${name}.so.1`);

function load(path) {
  try {
    return koffi.load(path);
  } catch (failure) {
    const advice = 'Install the library, or let ZENTADBPP_LIBRARY name its file.';
    throw new Error(`${failure.message}. ${advice}`, { cause: failure });
  }
}

const kinds = { t: 'str', c: 'str', h: 'void *', n: 'uint32_t', b: 'bool' };
const functions = {};
function bind(library, exports) {
  for (const [name, [returns, takes]] of Object.entries(exports)) {
    const types = typeof takes === 'string' ? [...takes].map((kind) => kinds[kind]) : [koffi.pointer(takes)];
    functions[name] = library.func(name, returns, types);
  }
}
const path = process.env.ZENTADBPP_LIBRARY || fileOf('zentadbpp');
bind(load(path), exported);
const release = new Map([
  [Result, functions.free_sync_json_result],
  [HandleResult, functions.free_sync_json_ptr_result],
  [FlattenResult, functions.free_flatten_result],
]);
const free = koffi.load(null).func('free', 'void', ['void *']);

export const freeHandle = functions.free_sync_json_ptr;
export const version = functions.sync_json_lib_version;

// The error of an import that refused a part, with what it took all the same.
function inPart(returns, record) {
  const error = new ZentadbError(koffi.decode.string(record.error));
  if (returns === HandleResult) {
    try {
      error.imported = dump(record.value);
    } finally {
      freeHandle(record.value);
    }
  } else {
    error.imported = koffi.decode.string(record.value);
  }
  return error;
}

// Calls the function of that name and hands what it gives to `take`.
function call(name, values, take) {
  if (!(name in functions)) {
    const beside = fileOf('zentadbpp_host');
    bind(load(path.includes('/') ? join(dirname(path), beside) : beside), hostExported);
  }
  const [returns, takes] = exported[name] ?? hostExported[name];
  const record = functions[name](...[...takes].map((kind, at) => given[kind](values[at])));
  try {
    if (record.value !== null && record.error === null) return take(record.value);
    if (record.value !== null) throw inPart(returns, record);
    throw new ZentadbError(record.error !== null ? koffi.decode.string(record.error) : 'std::bad_alloc');
  } finally {
    release.get(returns)(record);
  }
}

export const text = (name, ...values) => call(name, values, (value) => koffi.decode.string(value));

export function list(name, ...values) {
  const joined = text(name, ...values);
  return joined === '' ? [] : joined.split(',');
}

// In either form of JSON.
export const truth = (name, ...values) => ['true', '@T'].includes(text(name, ...values));

// The caller frees the handle.
export const handle = (name, ...values) => call(name, values, (value) => value);

export function dump(pointer) {
  const value = functions.dump_sync_json_ptr(pointer);
  if (value === null) throw new ZentadbError('dump_sync_json_ptr gave no text');
  try {
    return koffi.decode.string(value);
  } finally {
    free(value);
  }
}
