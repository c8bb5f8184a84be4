// The store in Node: store_test.mjs PACKAGE. Run with node --test.

import assert from 'node:assert/strict';
import { fork } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, test } from 'node:test';
import { setTimeout as pause } from 'node:timers/promises';
import { fileURLToPath, pathToFileURL } from 'node:url';

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
  const { common, versions, clashes } = await laptop.threeWay('1');
  assert.deepEqual([common.content.text, conflict.id, clashes.map(({ place }) => place)], ['milk', '1', ['.text']]);
  assert.deepEqual(new Set(versions.map(({ content }) => content.text)), new Set(['2 l of milk', 'oat milk']));
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
  for (const end = Date.now() + 30_000; confirmed.some((ids) => ids.length < 5) && Date.now() < end; ) await pause(50);
  await Promise.all(writers.map((writer) => new Promise((gone) => void (writer.on('exit', gone), writer.kill('SIGKILL')))));
  await first.update((data) => void data.list.push(item('last', 'x')));
  const there = new Set(JSON.parse(JSON.stringify(first.read())).list.map(({ _id }) => _id));
  for (const ids of confirmed) {
    assert(ids.length > 0, 'a writer got nothing done');
    for (const id of ids) assert(there.has(id), `${id} was confirmed and is lost`);
  }
  assert.equal(await first.dump(), readFileSync(file, 'utf8'));
});
