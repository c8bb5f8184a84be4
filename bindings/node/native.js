// The shared library, called through koffi: how its results become JavaScript values and are freed.

import process from 'node:process';
import koffi from 'koffi';
import { exported, given, isTrue, itemsOf, ZentadbError } from './library.js';

export { ZentadbError };

// The texts of a record stay pointers, so that the library can free them.
const Result = koffi.struct({ value: 'void *', error: 'void *', reserved: 'void *' });
const HandleResult = koffi.struct({ value: 'void *', error: 'void *', reserved: 'void *' });
const FlattenResult = koffi.struct({ value: 'void *', error: 'void *' });
const QueryResult = koffi.struct({ value: 'void *', error: 'void *' });

// The library is in place as soon as this module is.
export const load = async () => {};

function opened() {
  const name = process.platform === 'darwin' ? 'libzentadbpp.1.dylib' : 'libzentadbpp.so.1';
  try {
    return koffi.load(process.env.ZENTADBPP_LIBRARY || name);
  } catch (failure) {
    const advice = 'Install the library, or let ZENTADBPP_LIBRARY name its file.';
    throw new Error(`${failure.message}. ${advice}`, { cause: failure });
  }
}

const library = opened();
const records = { result: Result, handleResult: HandleResult, flattenResult: FlattenResult, queryResult: QueryResult };
const returned = { void: 'void', text: 'void *', constant: 'const char *', ...records };
const kinds = { t: 'str', j: 'str', h: 'void *', n: 'uint32_t', b: 'bool' };
const functions = {};
for (const [name, [returns, takes]] of Object.entries(exported)) {
  const types = typeof takes === 'string' ? [...takes].map((kind) => kinds[kind]) : [koffi.pointer(records[takes.record])];
  functions[name] = library.func(name, returned[returns], types);
}
const release = {
  result: functions.free_sync_json_result,
  handleResult: functions.free_sync_json_ptr_result,
  flattenResult: functions.free_flatten_result,
};

const check = {
  ...given,
  h(value) {
    if (value !== null && typeof value !== 'bigint') throw new TypeError('expected a Handle');
    return value;
  },
};

const free = koffi.load(null).func('free', 'void', ['void *']);

export const freeHandle = functions.free_sync_json_ptr;
export const version = functions.sync_json_lib_version;

// Calls the function of that name and hands what it gives to `take`.
function call(name, values, take) {
  const [returns, takes] = exported[name];
  const record = functions[name](...[...takes].map((kind, at) => check[kind](values[at])));
  try {
    if (record.value !== null) return take(record.value);
    throw new ZentadbError(record.error !== null ? koffi.decode.string(record.error) : 'std::bad_alloc');
  } finally {
    release[returns](record);
  }
}

export const text = (name, ...values) => call(name, values, (value) => koffi.decode.string(value));

export const list = (name, ...values) => itemsOf(text(name, ...values));
export const truth = (name, ...values) => isTrue(text(name, ...values));

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
