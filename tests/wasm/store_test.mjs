// The store in Node: store_test.mjs PACKAGE. Run with node --test.

import assert from 'node:assert/strict';
import { fork } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, test } from 'node:test';
import { fileURLToPath, pathToFileURL } from 'node:url';
import { startServer } from './server.mjs';

const home = process.env.ZENTADBPP_PACKAGE;
const { openStore, changesBetween, applyChanges } = await import(pathToFileURL(join(home, 'store.node.js')));
const work = mkdtempSync(join(tmpdir(), 'zentadbpp-store-'));
after(() => rmSync(work, { recursive: true }));

const initial = { title: 'Trip', list: [] };
const memory = (more) => openStore('any', { initial, storage: 'memory', ...more });
const item = (id, text) => ({ _id: id, text });
const texts = (store) => store.read().list.map(({ _id, text }) => `${_id}:${text}`).join(' ');

test('what changed makes the new value of the old one', () => {
  const a = item('a', 1);
  const b = item('b', 2);
  const c = { ...item('c', 3), inside: { x: [1, 2], 'k/~': null } };
  const values = [{}, { l: [] }, { l: [a] }, { l: [a, b, c] }, { l: [c, b, a] }, { l: [b, c] }, { l: [c, item('d', 4), a, b] },
    { l: [a, { ...b, text: 'x' }, { ...c, inside: { x: [2], more: true } }] }, { l: 'text' }, { l: { a } }, { l: [1, 2] },
    { l: [a, a] }, { l: null, t: -1 }, { '': { '': 1 } }, JSON.parse('{"__proto__": {"x": 1}}')];
  for (const before of values) {
    for (const after of values) {
      const frozen = JSON.stringify(before);
      const operations = changesBetween(before, after);
      assert.deepEqual(applyChanges(before, operations), after);
      assert.equal(JSON.stringify(before), frozen);
      assert.equal(operations.length === 0, JSON.stringify(before) === JSON.stringify(after));
    }
  }
  const longs = [[1, 2, 3, 4, 5, 6], [6, 1, 2, 3, 4, 5], [2, 3, 7, 4, 5, 6, 1], [8, 3, 1]].map((ids) => ids.map((id) => item(`${id}`, 0)));
  for (const before of longs) for (const after of longs) assert.deepEqual(applyChanges(before, changesBetween(before, after)), after);
  assert.deepEqual(changesBetween(longs[0], longs[1]), [{ op: 'move', path: '/0', from: '/5' }]);
});

test('edits are read, heard of, and merged', async () => {
  const laptop = await memory();
  const heard = [];
  laptop.onChange(({ operations, origin }) => heard.push([origin, ...operations.map(({ op, path }) => `${op} ${path}`)]));
  await laptop.update((data) => void data.list.push(item('1', 'milk'), item('2', 'tea')));
  const phone = await openStore('other', { storage: 'memory' });
  await phone.merge(laptop);
  assert.equal(texts(phone), '1:milk 2:tea');
  await Promise.all([
    laptop.update((data) => void (data.list[0].text = '2 l of milk')),
    laptop.update((data) => void data.list.splice(1, 1)),
    phone.update((data) => void (data.list[0].text = 'oat milk')),
    phone.update((data) => ({ ...data, list: [...data.list, item('3', 'bread')] })),
  ]);
  await laptop.merge(phone);
  await phone.merge(laptop);
  assert.deepEqual(laptop.read(), phone.read());
  assert.deepEqual(heard.map(([origin]) => origin), ['local', 'local', 'local', 'merge']);
  assert.deepEqual(heard[0].slice(1), ['replace /list']);

  const [conflict, ...rest] = await laptop.conflicts();
  assert.equal(rest.length, 0);
  const [three] = await laptop.threeWay('1');
  assert.deepEqual([three.base.value.text, conflict.id], ['milk', '1']);
  assert.deepEqual(new Set([three.winning.value.text, three.other.value.text]), new Set(['2 l of milk', 'oat milk']));
  await laptop.resolve('1', conflict.others[0].rev);
  assert.equal(laptop.read().list[0].text, conflict.others[0].value.text);
  assert.deepEqual(await laptop.conflicts(), []);
  await assert.rejects(laptop.resolve('1', '9-none_x'), /no open revision/);
  const history = await laptop.history('1');
  assert.deepEqual(history.at(-1).value.text, 'milk');
  await assert.rejects(laptop.merge('{"d": 5}'));
  assert.equal(laptop.read().list[0].text, conflict.others[0].value.text);
});

test('a file is shared by processes and survives one that is killed while it writes', async () => {
  const file = join(work, 'shared.sync');
  const first = await openStore(file, { initial });
  const writers = ['a', 'b', 'c'].map((name) => fork(fileURLToPath(import.meta.resolve('./writer.mjs')), [file, name], { stdio: ['ignore', 'pipe', 'inherit', 'ipc'] }));
  const confirmed = writers.map((writer) => {
    const ids = [];
    writer.on('message', (id) => ids.push(id));
    return ids;
  });
  await new Promise((resolve) => setTimeout(resolve, 2500));
  await Promise.all(writers.map((writer) => new Promise((gone) => void (writer.on('exit', gone), writer.kill('SIGKILL')))));
  await first.update((data) => void data.list.push(item('last', 'x')));
  const there = new Set(JSON.parse(JSON.stringify(first.read())).list.map(({ _id }) => _id));
  for (const ids of confirmed) {
    assert(ids.length > 0, 'a writer got nothing done');
    for (const id of ids) assert(there.has(id), `${id} was confirmed and is lost`);
  }
  assert.equal(await first.dump(), readFileSync(file, 'utf8'));
});

test('stores exchange through a CouchDB database, and send nothing twice', async (t) => {
  const server = await startServer();
  t.after(() => server.stop());
  const url = server.url('trip');
  const [laptop, phone] = [join(work, 'laptop.sync'), join(work, 'phone.sync')];
  const a = await openStore(laptop, { initial });
  await a.update((data) => void data.list.push(item('1', 'milk'), item('2', 'tea'), { ...item('3', 'ö𝄞'), n: 0.1, in: { tasks: [item('t', 1)] } }));
  await assert.rejects(a.exchange(url), /404/);
  assert.equal((await a.exchange(url, { create: true, batch: 2 })).sent > 4, true);
  assert.deepEqual(await a.exchange(url), { received: 0, sent: 0, foreign: [], pruned: [] });

  const b = await openStore(phone);
  assert.equal((await b.exchange(url, { batch: 2 })).sent, 0);
  assert.deepEqual(b.read(), a.read());

  await a.update((data) => void ([data.list[0].text, data.list[1].text] = ['oat milk', 'green tea']));
  await b.update((data) => void (data.list[0].text = 'soy milk', data.list.push(item('4', 'bread')), data.list.splice(1, 1)));
  for (const store of [a, b, a]) await store.exchange(url);
  assert.deepEqual(a.read(), b.read());
  assert.equal(a.read().list.some(({ _id }) => _id === '4'), true);
  const [conflict] = await a.conflicts();
  await a.resolve('1', conflict.others[0].rev);
  for (const store of [a, b]) await store.exchange(url);
  assert.deepEqual([a.read(), (await b.conflicts()).filter(({ id }) => id === '1')], [b.read(), []]);

  // The store goes on while a server keeps it waiting.
  server.setDown(true);
  let isWaiting = true;
  const waiting = a.exchange(url, { retries: 1 }).catch(() => void (isWaiting = false));
  await a.update((data) => void (data.title = 'Meanwhile'));
  assert(isWaiting);
  await waiting;
  server.setDown(false);
  await a.exchange(url);

  // What is remembered counts for that database alone, and for a store that still has it.
  const asked = server.requests.length;
  await a.exchange(url);
  assert.deepEqual(server.requests.slice(asked).filter((what) => /_bulk|_revs_diff/.test(what)), []);
  await server.ask('DELETE', 'trip');
  const again = await a.exchange(url, { create: true });
  assert(again.sent > 4);
  const c = await openStore(join(work, 'third.sync'));
  await c.exchange(url);
  assert.deepEqual(c.read(), a.read());

  // What somebody else made there is left alone, and nothing goes under its id.
  await server.ask('PUT', 'trip/theirs', { text: '!from elsewhere' });
  assert.deepEqual((await c.exchange(url)).foreign, ['theirs']);
  await c.update((data) => void data.list.push(item('theirs', 'ours')));
  await assert.rejects(c.exchange(url), /another document under the id theirs/);

  const other = await memory({ initial: { title: 'Other' } });
  await assert.rejects(other.exchange(url), /other data/);
});
