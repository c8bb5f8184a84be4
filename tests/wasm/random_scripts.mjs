// Random scripts of edits, merges, settlements and pruning: recorded with one library, such as the native one, and replayed
// with another, which must give the same.
// random_scripts.mjs NATIVE_PACKAGE WASM_PACKAGE [SEED] [SCRIPTS]

import assert from 'node:assert/strict';
import { join } from 'node:path';
import { fileURLToPath, pathToFileURL } from 'node:url';
import { outcomeOf } from './outcome.mjs';

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

/** The calls of some scripts, each with its outcome: { where, name, args, outcome }. */
export function recorded(library, firstSeed, scripts) {
  const calls = [];
  for (let seed = firstSeed; seed < firstSeed + scripts; seed += 1) {
    const random = randomFrom(seed);
    const config = { instance_id: 'me', force_fast_hash_only: random.next(4) === 0, compressed: false };
    let where = `seed ${seed}, the start`;
    const call = (name, ...args) => {
      const outcome = outcomeOf(library, name, args);
      calls.push({ where, name, args, outcome });
      return outcome;
    };
    const start = call('update', { title: 'T', list: [] }, '{}', config);
    const copies = [start, start, start];
    for (let step = 0; step < 14; step += 1) {
      where = `seed ${seed}, step ${step}`;
      const at = random.next(3);
      const from = random.next(3);
      const kind = random.next(10);
      const change = () => {
        if (kind < 5) return call('update', edited(random, library.readObject(copies[at], config), 'abc'[at]), copies[at], config);
        if (kind < 8) return call('replicate', copies[from], copies[at], config);
        if (kind === 8) return call('uncompress', library.compress(copies[at])); // another zlib may pack it otherwise
        const [id] = library.unresolved(copies[at]);
        return id ? call('resolve', copies[at], id, library.winning(copies[at], id)) : call('prune', copies[at], 3);
      };
      const made = change();
      if (typeof made === 'string') copies[at] = made;
      for (const name of ['read', 'unresolved', 'toBulkDocs', 'allDocs']) call(name, copies[at]);
    }
  }
  return calls;
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  const [nativePackage, wasmPackage, firstSeed = Math.floor(Math.random() * 1e9), scripts = 300] = process.argv.slice(2);
  const [native, wasm] = await Promise.all(
    [join(nativePackage, 'index.js'), join(wasmPackage, 'node.js')].map((path) => import(pathToFileURL(path))),
  );
  let count = 0;
  for (let script = 0; script < Number(scripts); script += 1) {
    for (const { where, name, args, outcome } of recorded(native, Number(firstSeed) + script, 1)) {
      assert.deepEqual(outcomeOf(wasm, name, args), outcome, `${where}: ${name}`);
      count += 1;
    }
  }
  console.log(`${count} calls of ${scripts} scripts agree, from seed ${firstSeed} on`);
}
