// vectors.mjs PACKAGE FILE...: makes the calls of the vectors through the Node package in that directory, and checks
// what they give. Run with --expose-gc.

import assert from 'node:assert/strict';
import { existsSync, readFileSync } from 'node:fs';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';
import { outcomes } from './calls.mjs';
import { check } from './expected.mjs';

const [directory, ...files] = process.argv.slice(2);
const entry = ['node.js', 'index.js'].find((name) => existsSync(join(directory, name)));
const zentadbpp = await import(pathToFileURL(join(directory, entry)));
const { Handle, ZentadbError } = zentadbpp;

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
  const set = JSON.parse(readFileSync(file, 'utf8'));
  outcomes(zentadbpp, set).forEach((results, at) => {
    results.forEach((outcome, number) => {
      const vector = set.vectors[at];
      const name = vector.call[number];
      made += 1;
      attempt(`${file} ${at + 1}: ${name}`, () => check(vector, name, outcome));
    });
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
  for (const each of JSON.parse(readFileSync(new URL('verify.json', import.meta.url), 'utf8'))) {
    attempt(`verify: ${each.case}`, () => assert.deepEqual(zentadbpp.verify(each.sync_json, each.known), each.found));
  }
}

async function checkWarnings() {
  const told = [];
  process.on('warning', (warning) => told.push(warning.message.replace(/.*: /, '')));
  const branch = '{"d": {"a": ["A_first"]}, "o": {"A": {}}, "r": "a"}';
  zentadbpp.read(branch, '{"instance_id": "a", "discard_ids": true, "": 1}');
  new Handle(branch).read('{"Compressed": true}');
  new Handle(branch).read('{"Compressed": true}');
  attempt('no object', () => assert.throws(() => zentadbpp.read(branch, '"discard_ids"'), ZentadbError));
  await new Promise((done) => setTimeout(done, 1));
  attempt('a key that no configuration has', () => assert.deepEqual(told, ['discard_ids, ', 'Compressed']));
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
await checkWarnings();
console.log(`${made} calls checked, ${failures} failures`);
process.exitCode = failures === 0 && made > 0 ? 0 : 1;
