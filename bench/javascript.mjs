// The npm package beside the native library, Yjs and Automerge, on the same notes and in one run: javascript.mjs PACKAGE NATIVE
// TOOLS [NOTES]. Medians of five, in milliseconds of processor time, which other work on the machine disturbs less. What each of
// them makes is checked, outside of what is timed.

import assert from 'node:assert/strict';
import { readFileSync, statSync } from 'node:fs';
import { createRequire } from 'node:module';
import { join, resolve } from 'node:path';
import { pathToFileURL } from 'node:url';
import { isMissing, openBrowser, serve } from '../tests/wasm/browser.mjs';
import { brotliCompressSync, gzipSync } from 'node:zlib';

const [home, native, tools] = process.argv.slice(2, 5).map((path) => resolve(path));
const count = Number(process.argv[5] ?? 10_000);
const require = createRequire(join(tools, 'package.json'));
const importFile = (path) => import(pathToFileURL(path));
const notes = Array.from({ length: count }, (_, at) => ({
  _id: `n${at}`, title: `Note ${at}`, text: `Some text of note ${at}${' and more'.repeat(at % 9)}`, tags: ['a', 'b'], rank: at / 3, done: at % 2 === 0,
}));
const edits = (first, word) => notes.flatMap(({ text }, at) => (at % 100 === first ? [[at, `${text} ${word}`]] : []));
const [left, right] = [edits(0, 'left'), edits(50, 'right')];
const edited = (...all) => {
  const list = notes.slice();
  for (const [at, text] of all.flat()) list[at] = { ...list[at], text };
  return list;
};
const merged = edited(left, right);

const median = (values) => values.sort((a, b) => a - b)[values.length >> 1];
function timed(work) {
  const times = [];
  let result;
  for (let turn = 0; turn < 5; turn += 1) {
    globalThis.gc?.();
    const begin = process.cpuUsage();
    result = work();
    const { user, system } = process.cpuUsage(begin);
    times.push((user + system) / 1000);
  }
  return [median(times), result];
}

// Each: how notes become a copy, how a copy is edited, how two are merged, saved and loaded, and what a copy holds.
const ours = async (path) => {
  const { Handle, replicate } = await importFile(path);
  const config = { instance_id: 'bench', preserve_old_ordering: true };
  return {
    import: (list) => new Handle('{}').update({ list }, config),
    edit: (copy, changes) => copy.update({ list: edited(changes) }, config),
    merge: (a, b) => replicate(a, b),
    save: (copy) => copy.dump(),
    load: (saved) => new Handle(saved),
    read: (copy) => copy.readObject(config).list,
    size: (saved) => [saved.length, gzipSync(saved).length],
  };
};
const yjs = async () => {
  const Y = await importFile(require.resolve('yjs').replace(/\.cjs$/, '.mjs'));
  const map = (note) => {
    const made = new Y.Map(Object.entries(note).filter(([key]) => key !== 'tags'));
    made.set('tags', Y.Array.from(note.tags));
    return made;
  };
  const loaded = (...updates) => {
    const copy = new Y.Doc();
    for (const update of updates) Y.applyUpdate(copy, update);
    return copy;
  };
  return {
    import(list) {
      const copy = new Y.Doc();
      copy.getArray('list').push(list.map(map));
      return copy;
    },
    edit(copy, changes) {
      const next = loaded(Y.encodeStateAsUpdate(copy));
      const list = next.getArray('list').toArray();
      next.transact(() => changes.forEach(([at, text]) => list[at].set('text', text)));
      return next;
    },
    merge(a, b) {
      Y.applyUpdate(b, Y.encodeStateAsUpdate(a, Y.encodeStateVector(b)));
      return b;
    },
    save: (copy) => Y.encodeStateAsUpdate(copy),
    load: (saved) => loaded(saved),
    read: (copy) => copy.getArray('list').toJSON(),
    size: (saved) => [saved.length, gzipSync(saved).length],
  };
};
const automerge = async () => {
  const A = await importFile(join(tools, 'node_modules/@automerge/automerge/dist/mjs/entrypoints/fullfat_node.js'));
  return {
    import: (list) => A.from({ list }),
    edit: (copy, changes) => A.change(A.clone(copy), (draft) => changes.forEach(([at, text]) => (draft.list[at].text = text))),
    merge: (a, b) => A.merge(A.clone(b), a),
    save: (copy) => A.save(copy),
    load: (saved) => A.load(saved),
    read: (copy) => A.toJS(copy).list,
    size: (saved) => [saved.length, gzipSync(saved).length],
  };
};

const inOrder = (list) => list.map((note) => Object.fromEntries(Object.entries(note).sort()));
for (const [name, make] of [
  ['WebAssembly', () => ours(join(home, 'node.js'))],
  ['native', () => ours(join(native, 'index.js'))],
  ['Yjs', yjs],
  ['Automerge', automerge],
]) {
  const begin = performance.now();
  const library = await make();
  library.import(notes.slice(0, 1));
  const start = performance.now() - begin;
  const [importing, copy] = timed(() => library.import(notes));
  const [editing, a] = timed(() => library.edit(copy, left));
  const b = library.edit(copy, right);
  const [merging, both] = timed(() => library.merge(a, b));
  const [saving, saved] = timed(() => library.save(both));
  const [loading, again] = timed(() => library.load(saved));
  const [reading, list] = timed(() => library.read(again));
  assert.deepEqual(inOrder(list), inOrder(merged));
  const row = { start, import: importing, 'edit 1 %': editing, merge: merging, save: saving, load: loading, read: reading };
  const [size, compressed] = library.size(saved);
  console.log(name.padEnd(12), ...Object.entries(row).map(([what, time]) => `${what} ${time.toFixed(1)},`), `saved ${(size / 1e6).toFixed(2)} MB, ${(compressed / 1e6).toFixed(2)} MB compressed`);
}
const wasm = readFileSync(join(home, 'zentadbpp.wasm'));
const script = readFileSync(join(home, 'index.js'));
console.log(`to load: module ${wasm.length}, ${gzipSync(wasm, { level: 9 }).length} with gzip, ${brotliCompressSync(wasm).length} with brotli; script ${script.length}, ${gzipSync(script).length}`);
console.log(`Automerge's module: ${statSync(join(tools, 'node_modules/@automerge/automerge/dist/automerge.wasm')).size}`);

// From opening a page to the result of the first call.
if (!isMissing) {
  const site = await serve({ '/package': home, '/': '<!doctype html><title>Start</title>' });
  const browser = await openBrowser();
  const starts = [];
  for (let turn = 0; turn < 5; turn += 1) {
    const page = await browser.open(site.url);
    starts.push(
      await page.evaluate(async () => {
        const begin = performance.now();
        const library = await import('/package/index.js');
        await library.load();
        library.update({ list: [{ _id: '1' }] }, '{}');
        return performance.now() - begin;
      }),
    );
    await page.close();
  }
  console.log(`in Chromium, from the import to the result of the first call: ${median(starts).toFixed(0)} ms`);
  await browser.close();
  site.stop();
}
