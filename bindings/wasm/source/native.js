// The library as a WebAssembly module: how arguments get into its memory, and results out of it.

import { added, exported, given, isTrue, itemsOf, ZentadbError } from './library.js';
import { compile, compileNow } from './module.js';

export { ZentadbError };

const encoder = new TextEncoder();
const decoder = new TextDecoder('utf-8', { ignoreBOM: true });
const badFile = 8; // what WASI calls EBADF
const switches = ['USE_FAST_FLOAT', 'USE_BEL_FORMAT'].filter((name) => globalThis.process?.env?.[name] !== undefined);

// A running module. What points into its memory counts for this one only.
class Instance {
  #exports;
  #line = '';

  constructor(module) {
    const wasi = {
      proc_exit: (code) => {
        throw new WebAssembly.RuntimeError(`the module ended with ${code}`);
      },
      environ_sizes_get: (count, size) => this.#write([count, switches.length], [size, this.#environment().length]),
      environ_get: (places, at) => {
        const bytes = this.#environment();
        this.bytes.set(bytes, at);
        let place = at;
        switches.forEach((name, number) => {
          this.#write([places + 4 * number, place]);
          place += name.length + 3;
        });
        return 0;
      },
      fd_close: () => badFile,
      fd_seek: () => badFile,
      fd_write: (_, pieces, count, written) => this.#print(pieces, count, written),
    };
    const env = {
      emscripten_notify_memory_growth: () => {},
      getentropy: (at, size) => {
        crypto.getRandomValues(this.bytes.subarray(at, at + size));
        return 0;
      },
    };
    this.#exports = new WebAssembly.Instance(module, { env, wasi_snapshot_preview1: wasi }).exports;
    this.#exports._initialize();
  }

  // Made anew each time, as growing the memory moves it.
  get bytes() {
    return new Uint8Array(this.#exports.memory.buffer);
  }

  #write(...pairs) {
    const view = new DataView(this.#exports.memory.buffer);
    for (const [at, value] of pairs) view.setUint32(at, value, true);
    return 0;
  }

  #environment() {
    return encoder.encode(switches.map((name) => `${name}=1\0`).join(''));
  }

  // What the library prints to standard error, a line at a time.
  #print(pieces, count, written) {
    let size = 0;
    for (let piece = 0; piece < count; piece += 1) {
      const at = this.word(pieces + 8 * piece);
      const length = this.word(pieces + 8 * piece + 4);
      this.#line += decoder.decode(this.bytes.slice(at, at + length));
      size += length;
    }
    const lines = this.#line.split('\n');
    this.#line = lines.pop();
    for (const line of lines) console.error(line);
    return this.#write([written, size]);
  }

  word(at) {
    return new DataView(this.#exports.memory.buffer).getUint32(at, true);
  }

  allocate(size) {
    const at = this.#exports.malloc(size) >>> 0;
    if (at === 0) throw new ZentadbError('std::bad_alloc');
    return at;
  }

  free(at) {
    this.#exports.free(at);
  }

  put(text) {
    const bytes = encoder.encode(text);
    const at = this.allocate(bytes.length + 1);
    const memory = this.bytes;
    memory.set(bytes, at);
    memory[at + bytes.length] = 0;
    return at;
  }

  textAt(at) {
    const memory = this.bytes;
    return decoder.decode(memory.subarray(at, memory.indexOf(0, at)));
  }

  // A module that trapped may be in any state, so the next call begins with a new one.
  run(name, ...values) {
    try {
      return this.#exports[name](...values) >>> 0;
    } catch (failure) {
      if (current === this) current = undefined;
      throw new ZentadbError(`the WebAssembly module failed: ${failure.message}`, { cause: failure });
    }
  }
}

// A handle of the library.
class Pointer {
  constructor(instance, address) {
    this.instance = instance;
    this.address = address;
  }
}

let module;
let current;
let loading;

export function load() {
  loading ??= compile().then(
    (compiled) => {
      module ??= compiled;
    },
    (failure) => {
      loading = undefined;
      throw failure;
    },
  );
  return loading;
}

function instance() {
  if (current) return current;
  module ??= compileNow?.();
  if (!module) throw new Error('zentadbpp is not loaded yet: await its load() first');
  current = new Instance(module);
  return current;
}

const check = {
  ...given,
  h(value) {
    if (value !== null && !(value instanceof Pointer)) throw new TypeError('expected a Handle');
    return value;
  },
};

const recordBytes = 12; // of the largest record
const release = {
  result: 'free_sync_json_result',
  handleResult: 'free_sync_json_ptr_result',
  flattenResult: 'free_flatten_result',
};

// The error of an import that refused a part, with what it took all the same.
function inPart(library, returns, value, error) {
  const failure = new ZentadbError(library.textAt(error));
  if (returns === 'handleResult') {
    const pointer = new Pointer(library, value);
    try {
      failure.imported = dump(pointer);
    } finally {
      freeHandle(pointer);
    }
  } else {
    failure.imported = library.textAt(value);
  }
  return failure;
}

const functions = { ...exported, ...added };

// Calls the function of that name and hands where its result is to `take`.
function call(name, values, take) {
  const [returns, takes] = functions[name];
  const checked = [...takes].map((kind, at) => check[kind](values[at]));
  const library = instance();
  const texts = [];
  const passed = (kind, value) => {
    if (kind === 'h') return value?.instance === library ? value.address : 0;
    if (kind === 'n' || kind === 'b') return Number(value);
    if (value === null) return 0;
    texts.push(library.put(value));
    return texts.at(-1);
  };
  let record = 0;
  try {
    const words = checked.map((value, at) => passed(takes[at], value));
    record = library.allocate(recordBytes);
    library.bytes.fill(0, record, record + recordBytes);
    library.run(name, record, ...words);
    const value = library.word(record);
    const error = library.word(record + 4);
    if (value !== 0 && error === 0) return take(value, library);
    if (value !== 0) throw inPart(library, returns, value, error);
    throw new ZentadbError(error !== 0 ? library.textAt(error) : 'std::bad_alloc');
  } finally {
    if (current === library) {
      if (record !== 0) {
        library.run(release[returns], record);
        library.free(record);
      }
      texts.forEach((at) => library.free(at));
    }
  }
}

export const text = (name, ...values) => call(name, values, (value, library) => library.textAt(value));
export const list = (name, ...values) => itemsOf(text(name, ...values));
export const truth = (name, ...values) => isTrue(text(name, ...values));

// The caller frees the handle.
export const handle = (name, ...values) => call(name, values, (value, library) => new Pointer(library, value));

export function freeHandle(pointer) {
  if (pointer !== null && pointer.instance === current) current.run('free_sync_json_ptr', pointer.address);
}

export function version() {
  const library = instance();
  return library.textAt(library.run('sync_json_lib_version'));
}

export function dump(pointer) {
  const library = instance();
  const at = pointer?.instance === library ? library.run('dump_sync_json_ptr', pointer.address) : 0;
  if (at === 0) throw new ZentadbError('dump_sync_json_ptr gave no text');
  try {
    return library.textAt(at);
  } finally {
    library.free(at);
  }
}
