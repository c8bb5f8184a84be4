// The library beside PouchDB, Yjs and Automerge, on the same notebook and in one run: peers.mjs NOTEBOOK NATIVE TOOLS [WASM].
// Medians of five, of the processor's time, which other work on the machine disturbs less. What each of them makes is
// checked, outside of what is timed. A peer that is not installed is left out.

import assert from 'node:assert/strict';
import { existsSync, readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { join, resolve } from 'node:path';
import { pathToFileURL } from 'node:url';
import { gzipSync } from 'node:zlib';

const [notebook, native, tools, wasm] = process.argv.slice(2).map((path) => resolve(path));
const data = JSON.parse(readFileSync(notebook, 'utf8'));
const require = createRequire(join(tools, 'package.json'));
const importFile = (path) => import(pathToFileURL(path));

// Every hundredth note gets another title.
const edits = (first, word) => data.notes.flatMap(({ title }, at) => (at % 100 === first ? [[at, `${title} ${word}`]] : []));
const edited = (...all) => {
  const notes = data.notes.slice();
  for (const [at, title] of all.flat()) notes[at] = { ...notes[at], title };
  return { ...data, notes };
};
const [left, right] = [edits(0, 'left'), edits(50, 'right')];

// Each: how data becomes a copy, how a copy that others may still use is forked, edited, merged with another one, saved and loaded, and
// what it holds.
const ours = async (path) => {
  const { Handle, replicate } = await importFile(path);
  const config = { preserve_old_ordering: true };
  return {
    make: () => new Handle('{}').update(data, config),
    fork: (copy) => copy, // never changes
    edit: (copy, changes) => copy.update(edited(changes), config),
    merge: (from, into) => replicate(from, into),
    save: (copy) => copy.dump(),
    load: (saved) => new Handle(saved),
    read: (copy) => copy.readObject(config),
  };
};
const pouchdb = async () => {
  const PouchDB = require('pouchdb-core').plugin(require('pouchdb-adapter-memory')).plugin(require('pouchdb-replication'));
  let made = 0;
  const empty = () => new PouchDB(`copy${(made += 1)}`, { adapter: 'memory' });
  const filled = async (documents, options) => {
    const copy = empty();
    await copy.bulkDocs(documents, options);
    return copy;
  };
  const merge = async (from, into) => {
    await from.replicate.to(into, { batch_size: 1000 });
    return into;
  };
  const documents = async (copy) => (await copy.allDocs({ include_docs: true })).rows.map(({ doc }) => doc);
  return {
    make: () => filled(data.notes),
    fork: (copy) => merge(copy, empty()),
    async edit(copy, changes) {
      const keys = changes.map(([at]) => data.notes[at]._id);
      const { rows } = await copy.allDocs({ keys, include_docs: true });
      await copy.bulkDocs(rows.map(({ doc }, at) => ({ ...doc, title: changes[at][1] })));
      return copy;
    },
    merge,
    async save(copy) {
      const docs = (await copy.allDocs()).rows.map(({ id }) => ({ id }));
      const { results } = await copy.bulkGet({ docs, revs: true });
      return JSON.stringify(results.flatMap((result) => result.docs.map(({ ok }) => ok)));
    },
    load: (saved) => filled(JSON.parse(saved), { new_edits: false }),
    read: async (copy) => ({ name: data.name, notes: (await documents(copy)).map(({ _rev, ...note }) => note) }),
  };
};
const yjs = async () => {
  const Y = await importFile(require.resolve('yjs').replace(/\.cjs$/, '.mjs'));
  const shared = (value) => {
    if (Array.isArray(value)) return Y.Array.from(value.map(shared));
    return value instanceof Object ? new Y.Map(Object.entries(value).map(([key, member]) => [key, shared(member)])) : value;
  };
  const load = (saved) => {
    const copy = new Y.Doc();
    Y.applyUpdate(copy, saved);
    return copy;
  };
  return {
    make() {
      const copy = new Y.Doc();
      copy.transact(() => Object.entries(data).forEach(([key, value]) => copy.getMap().set(key, shared(value))));
      return copy;
    },
    fork: (copy) => load(Y.encodeStateAsUpdate(copy)),
    edit(copy, changes) {
      const notes = copy.getMap().get('notes').toArray();
      copy.transact(() => changes.forEach(([at, title]) => notes[at].set('title', title)));
      return copy;
    },
    merge(from, into) {
      Y.applyUpdate(into, Y.encodeStateAsUpdate(from, Y.encodeStateVector(into)));
      return into;
    },
    save: (copy) => Y.encodeStateAsUpdate(copy),
    load,
    read: (copy) => copy.getMap().toJSON(),
  };
};
const automerge = async () => {
  const A = await importFile(join(tools, 'node_modules/@automerge/automerge/dist/mjs/entrypoints/fullfat_node.js'));
  return {
    make: () => A.from(data),
    fork: (copy) => A.clone(copy),
    edit: (copy, changes) => A.change(copy, (draft) => changes.forEach(([at, title]) => (draft.notes[at].title = title))),
    merge: (from, into) => A.merge(into, from),
    save: (copy) => A.save(copy),
    load: (saved) => A.load(saved),
    read: (copy) => A.toJS(copy),
  };
};

// The median, and the last result.
async function timed(work, prepare = () => {}) {
  const times = [];
  let result;
  for (let turn = 0; turn < 5; turn += 1) {
    const given = await prepare();
    globalThis.gc?.();
    const begin = process.cpuUsage();
    result = await work(given);
    const { user, system } = process.cpuUsage(begin);
    times.push((user + system) / 1000);
  }
  return [times.sort((a, b) => a - b)[times.length >> 1], result];
}

const inOrder = ({ name, notes }) => ({ name, notes: notes.toSorted((a, b) => (a._id < b._id ? -1 : 1)) });
async function measured(library) {
  const time = {};
  let [copy, a, b, both, saved, read] = [];
  [time['create'], copy] = await timed(library.make);
  [time['edit 1 %'], a] = await timed((fork) => library.edit(fork, left), () => library.fork(copy));
  b = await library.edit(await library.fork(copy), right);
  [time['merge two copies, each with 1 % edited'], both] = await timed((into) => library.merge(a, into), () => library.fork(b));
  const merged = async () => library.merge(a, await library.fork(b));
  [time['read after the merge'], read] = await timed(library.read, merged);
  assert.deepEqual(inOrder(read), inOrder(edited(left, right)));
  [time['save'], saved] = await timed(() => library.save(both));
  [time['load']] = await timed(() => library.load(saved));
  [time['read after loading'], read] = await timed(library.read, () => library.load(saved));
  assert.deepEqual(inOrder(read), inOrder(edited(left, right)));
  return { ...time, 'size when saved': saved.length / 1e6, 'size when saved, with gzip': gzipSync(saved).length / 1e6 };
}

const columns = {};
for (const [name, make] of Object.entries({
  zentadbpp: () => ours(join(native, 'index.js')),
  WebAssembly: () => wasm && existsSync(wasm) && ours(join(wasm, 'node.js')),
  PouchDB: pouchdb,
  Yjs: yjs,
  Automerge: automerge,
})) {
  const library = await Promise.resolve().then(make).catch((failure) => console.error(`without ${name}: ${failure.message}`));
  if (library) columns[name] = await measured(library);
}
const { zentadbpp, ...others } = columns;
const cells = (...row) => console.log(`| ${row.join(' | ')} |`);
const short = (value) => (value >= 10 ? value.toFixed(0) : value.toPrecision(2));
cells(`${data.notes.length} notes`, 'zentadbpp', ...Object.keys(others));
cells('---', ...Object.keys(columns).map(() => '---:'));
for (const [what, own] of Object.entries(zentadbpp)) {
  cells(what, `${short(own)} ${what.startsWith('size') ? 'MB' : 'ms'}`, ...Object.values(others).map((other) => `× ${short(other[what] / own)}`));
}
