// Random scripts of edits, merges, settlements and pruning, run in the native library and in WebAssembly: after every step
// both must have the same text.
// random_scripts.mjs NATIVE_PACKAGE WASM_PACKAGE [SEED] [SCRIPTS]

import assert from 'node:assert/strict';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';

const [nativePackage, wasmPackage, firstSeed = Math.floor(Math.random() * 1e9), scripts = 300] = process.argv.slice(2);
const libraries = await Promise.all(
  [join(nativePackage, 'index.js'), join(wasmPackage, 'node.js')].map((path) => import(pathToFileURL(path))),
);

function randomFrom(seed) {
  let state = seed >>> 0;
  const next = (below) => {
    state = (state + 0x6d2b79f5) >>> 0;
    let mixed = Math.imul(state ^ (state >>> 15), 1 | state);
    mixed = (mixed + Math.imul(mixed ^ (mixed >>> 7), 61 | mixed)) ^ mixed;
    return ((mixed ^ (mixed >>> 14)) >>> 0) % below;
  };
  return { next, pick: (from) => from[next(from.length)] };
}

const scalar = ({ next, pick }) =>
  pick([
    () => next(2000) - 1000,
    () => (next(2 ** 31) - 2 ** 30) / 2 ** next(70),
    () => Number(`${next(1000)}.${next(1e6)}e${next(640) - 320}`),
    () => next(2 ** 31) * next(2 ** 31),
    () => pick(['', 'a', 'ä€𝄞', 'quo"te\\', 'line\nend\u0007', '!x', 'Oa', 'Aroot']),
    () => pick([true, false, null]),
    () => Array.from({ length: next(4) }, () => next(10)),
  ])();

const element = (random, ids) => {
  const made = { _id: random.pick(ids), text: scalar(random), more: scalar(random) };
  if (random.next(6) === 0) made.tasks = [{ _id: `${made._id}-t`, what: scalar(random) }];
  if (random.next(8) === 0) made.inside = { '#df': true, deep: scalar(random) };
  return made;
};

// Each copy makes elements of its own; objects that two make under one id cannot be merged.
function edited(random, data, copy) {
  const ids = Array.from({ length: 12 }, (_, number) => `${copy}${number}`);
  const list = (data.list ?? []).slice();
  for (let edits = 1 + random.next(4); edits > 0; edits -= 1) {
    const at = random.next(list.length + 1);
    const what = random.next(4);
    if (what === 0 && list.length > 0) list.splice(at % list.length, 1);
    else if (what === 1 && list.length > 1) list.splice(at % list.length, 0, ...list.splice(random.next(list.length), 1));
    else if (what === 2 && list.length > 0) list[at % list.length] = { ...list[at % list.length], text: scalar(random) };
    else list.splice(at, 0, element(random, ids.filter((id) => !list.some((each) => each._id === id)).concat(`${copy}last`)));
  }
  const once = [...new Map(list.map((each) => [each._id, each])).values()];
  return { ...data, title: random.next(3) === 0 ? scalar(random) : data.title, list: once };
}

// What a step gives: a text, or how it fails but for the line, which the compilers may number differently.
function result(step) {
  try {
    return step();
  } catch (error) {
    if (!error.key) throw error;
    return { failed: [error.key, error.function, error.args] };
  }
}

let steps = 0;
for (let script = 0; script < Number(scripts); script += 1) {
  const seed = Number(firstSeed) + script;
  const random = randomFrom(seed);
  const config = { instance_id: 'me', force_fast_hash_only: random.next(4) === 0, compressed: false };
  let copies = ['{}', '{}', '{}'];
  const start = libraries[0].update({ title: 'T', list: [] }, '{}', config);
  copies = copies.map(() => start);
  for (let step = 0; step < 14; step += 1) {
    const at = random.next(3);
    const from = random.next(3);
    const kind = random.next(10);
    const data = kind < 5 ? edited(random, libraries[0].readObject(copies[at], config), 'abc'[at]) : undefined;
    const both = libraries.map((library) =>
      result(() => {
        if (data) return library.update(data, copies[at], config);
        if (kind < 8) return library.replicate(copies[from], copies[at], config);
        if (kind === 8) return library.uncompress(library.compress(copies[at]));
        const [id] = library.unresolved(copies[at]);
        return id ? library.resolve(copies[at], id, library.winning(copies[at], id)) : library.prune(copies[at], 3);
      }),
    );
    assert.deepEqual(both[1], both[0], `seed ${seed}, step ${step}`);
    if (typeof both[0] === 'string') copies[at] = both[0];
    const [native, wasm] = libraries.map((library) =>
      ['read', 'unresolved', 'toBulkDocs', 'allDocs'].map((name) => result(() => library[name](copies[at]))),
    );
    assert.deepEqual(wasm, native, `seed ${seed}, step ${step}`);
    steps += 1;
  }
}
console.log(`${steps} steps of ${scripts} scripts agree, from seed ${firstSeed} on`);
