// The shared libraries, called through koffi: converts results to JavaScript values and frees them.

import { dirname, join } from 'node:path';
import process from 'node:process';
import { added, exported, given, isTrue, itemsOf, ZentadbError } from './library.js';

const { default: koffi } = await import('koffi').catch((failure) => {
  throw new Error('koffi is not installed beside zentadbpp; install a folder with npm install --install-links', { cause: failure });
});

export { ZentadbError };

// The texts of a record stay pointers, so that the library can free them.
const Result = koffi.struct({ value: 'void *', error: 'void *', reserved: 'void *' });
const HandleResult = koffi.struct({ value: 'void *', error: 'void *', reserved: 'void *' });
const FlattenResult = koffi.struct({ value: 'void *', error: 'void *' });
const QueryResult = koffi.struct({ value: 'void *', error: 'void *' });

// The library is loaded with this module.
export const load = async () => {};

const fileOf = (name) => (process.platform === 'darwin' ? `lib${name}.1.dylib` : `lib${name}.so.1`);

function opened(path) {
  try {
    return koffi.load(path);
  } catch (failure) {
    const advice = 'Install the library, or let ZENTADBPP_LIBRARY name its file.';
    throw new Error(`${failure.message}. ${advice}`, { cause: failure });
  }
}

const records = { result: Result, handleResult: HandleResult, flattenResult: FlattenResult, queryResult: QueryResult };
const returned = { void: 'void', text: 'void *', constant: 'const char *', ...records };
const kinds = { t: 'str', j: 'str', c: 'str', h: 'void *', n: 'uint32_t', b: 'bool' };
const functions = {};
function bind(library, table) {
  for (const [name, [returns, takes]] of Object.entries(table)) {
    const types = typeof takes === 'string' ? [...takes].map((kind) => kinds[kind]) : [koffi.pointer(records[takes.record])];
    functions[name] = library.func(name, returned[returns], types);
  }
}
const path = process.env.ZENTADBPP_LIBRARY || fileOf('zentadbpp');
bind(opened(path), exported);
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

// The error of an import that rejected a part, with the rest.
function inPart(returns, record) {
  const error = new ZentadbError(koffi.decode.string(record.error));
  if (returns === 'handleResult') {
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

// Calls the function of that name and passes its result to `take`.
function call(name, values, take) {
  if (!(name in functions)) {
    const beside = fileOf('zentadbpp_host');
    bind(opened(path.includes('/') ? join(dirname(path), beside) : beside), added);
  }
  const [returns, takes] = exported[name] ?? added[name];
  const record = functions[name](...[...takes].map((kind, at) => check[kind](values[at])));
  try {
    if (record.value !== null && record.error === null) return take(record.value);
    if (record.value !== null) throw inPart(returns, record);
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
