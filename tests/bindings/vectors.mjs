// vectors.mjs PACKAGE FILE...: makes the calls of the vectors through the Node package in that directory, and checks
// what they give. Run with --expose-gc.

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';

const [directory, ...files] = process.argv.slice(2);
const zentadbpp = await import(pathToFileURL(join(directory, 'index.js')));
const { Handle, ZentadbError } = zentadbpp;

// Where the package has another name for a function, or another order of arguments.
const calls = {
  dump_sync_json_ptr: (handle) => handle.dump(),
  free_sync_json_ptr: (handle) => handle.close(),
  json_array_unflatten: zentadbpp.unflatten,
  json_object_flatten: zentadbpp.flatten,
  new_sync_json_ptr: (text) => new Handle(text),
  read_sync_json_ptr: (handle, config) => handle.read(config),
  replicate_sync_json_ptr: zentadbpp.replicate,
  sync_json_lib_version: zentadbpp.version,
  sync_json_ptr_from_bulk_get: Handle.fromBulkGet,
  update_sync_json_ptr: (input, handle, config) => handle.update(input, config),
};
const camel = (name) => name.replace(/_(\w)/g, (_, letter) => letter.toUpperCase());

function callOf(name) {
  if (name in calls) return calls[name];
  const twin = /^sync_json_ptr_(.*)/.exec(name);
  if (twin) return (handle, ...values) => handle[camel(twin[1])](...values);
  return zentadbpp[camel(name.replace(/^sync_json_|_sync_json$/, ''))];
}

function nothing() {
  const handle = new Handle('{}');
  handle.close();
  return handle;
}

function argument(value, name, saved) {
  if (value?.json !== undefined) return JSON.stringify(value.json);
  if (value?.set === undefined) return value;
  const takesHandles = name.includes('_ptr') && name !== 'new_sync_json_ptr';
  if (value.set === null) return takesHandles ? nothing() : null;
  const found = saved[value.set];
  return takesHandles && typeof found === 'string' ? new Handle(found) : found;
}

function check(vector, given) {
  assert(!('error' in vector), `gives ${given}`);
  if ('list' in vector) assert.deepEqual(given, vector.list);
  if ('text' in vector) assert.equal(given, vector.text);
  if ('json' in vector) {
    const text = given instanceof Handle ? given.dump() : given;
    assert.deepEqual(typeof text === 'boolean' ? text : JSON.parse(text), vector.json);
  }
}

function checkError(vector, name, error) {
  assert('error' in vector, error);
  const expected = vector.error;
  if (expected === null) return;
  if (typeof expected === 'string') {
    assert.deepEqual([error.key, error.message, error.function], [expected, expected, undefined]);
    return;
  }
  const from = expected.function === '*' ? name : expected.function;
  assert.deepEqual([error.function, error.key, error.args], [from, expected.error, expected.args]);
  assert(error.line > 0 && error.filename.startsWith('src/'));
}

let made = 0;
let failures = 0;

function attempt(where, body) {
  try {
    body();
  } catch (failure) {
    failures += 1;
    console.error(`${where}: ${failure.message}`);
  }
}

function run(file) {
  const { given: sets, vectors } = JSON.parse(readFileSync(file, 'utf8'));
  const saved = Object.fromEntries(Object.entries(sets).map(([name, value]) => [name, JSON.stringify(value)]));
  vectors.forEach((vector, at) => {
    for (const name of vector.call) {
      made += 1;
      attempt(`${file} ${at + 1}: ${name}`, () => {
        let given;
        try {
          given = callOf(name)(...vector.args.map((value) => argument(value, name, saved)));
        } catch (error) {
          if (!(error instanceof ZentadbError)) throw error;
          checkError(vector, name, error);
          return;
        }
        check(vector, given);
        if (vector.save && name === vector.call[0]) saved[vector.save] = given;
      });
    }
  });
}

function checkPackage() {
  const branch = '{"d": {"a": ["A_first"]}, "o": {"A": {}}, "r": "a"}';
  const cases = {
    'a handle that is closed twice': () => {
      const handle = new Handle(branch);
      handle.close();
      handle.close();
      assert(handle.closed);
    },
    'a text with a NUL byte': () => assert.throws(() => zentadbpp.read('{}\0'), { key: 'text_contains_nul' }),
    'half a surrogate pair': () => assert.throws(() => zentadbpp.winning(branch, '\ud800'), TypeError),
    'a number for a text': () => assert.throws(() => zentadbpp.read(5), TypeError),
    'a text for a handle': () => assert.throws(() => zentadbpp.replicate(new Handle(branch), '{}'), TypeError),
    'numbers that are none': () => {
      for (const depth of [-1, 2 ** 32, 1.5, '1', undefined]) {
        assert.throws(() => zentadbpp.prune(branch, depth), RangeError);
      }
    },
    'every name has a type': () => {
      const types = readFileSync(join(directory, 'index.d.ts'), 'utf8');
      const typed = [...types.matchAll(/^export (?:function|class) (\w+)/gm)].map((match) => match[1]);
      assert.deepEqual([...new Set(typed)].sort(), Object.keys(zentadbpp).sort());
      const methods = [...types.matchAll(/^ {2}(?!constructor)(\w+)(?:<.*?>)?\(/gm)].map((match) => match[1]);
      const there = Object.getOwnPropertyNames(Handle.prototype).filter((name) => !/^(constructor|closed)$/.test(name));
      assert.deepEqual(methods.sort(), there.sort());
    },
  };
  for (const [what, body] of Object.entries(cases)) attempt(what, body);
}

// Each kind of result and of failure, a megabyte at a time, until keeping them would be seen.
async function checkMemory() {
  const large = 'x'.repeat(1_000_000);
  const content = JSON.stringify({ d: { a: ['A_first'] }, o: { A: { t: `!${large}` } }, r: 'a' });
  const handle = new Handle(content);
  const kinds = {
    text: () => zentadbpp.read(content),
    error: () => assert.throws(() => zentadbpp.winning('{}', large), ZentadbError),
    flattened: () => zentadbpp.flatten(JSON.stringify({ t: large })),
    'a closed handle': () => new Handle(content).close(),
    'a forgotten handle': () => new Handle(content),
    'error for a handle': () => assert.throws(() => handle.resolve(large, '1-A_first'), ZentadbError),
    dump: () => handle.dump(),
  };
  const settled = async () => {
    globalThis.gc();
    await new Promise((done) => setTimeout(done, 1));
    return process.memoryUsage().rss;
  };
  for (const [what, call] of Object.entries(kinds)) {
    const several = async (times) => {
      for (let time = 0; time < times; time += 1) {
        call();
        if (time % 20 === 0) await settled();
      }
      return settled();
    };
    const before = await several(30);
    const grown = (await several(150)) - before;
    attempt(what, () => assert(grown < 60e6, `grew by ${grown} bytes`));
  }
}

files.forEach(run);
checkPackage();
await checkMemory();
console.log(`${made} calls checked, ${failures} failures`);
process.exitCode = failures === 0 && made > 0 ? 0 : 1;
