// The exchange of stores through a CouchDB-compatible server. Run with node --test.

import assert from 'node:assert/strict';
import { mkdtempSync, readdirSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, beforeEach, describe, test } from 'node:test';
import { pathToFileURL } from 'node:url';
import { startServer } from './server.mjs';

const { openStore } = await import(pathToFileURL(join(process.env.ZENTADBPP_PACKAGE, 'store.node.js')));
const initial = { title: 'Trip', list: [] };
const item = (id, text) => ({ _id: id, text });
const texts = (store) => store.read().list.map(({ _id, text }) => `${_id}:${text}`).join(' ');
const quiet = { received: 0, sent: 0, foreign: [], cutShort: [], unusable: [], attachments: [], homeless: [], pruned: [] };

describe('an exchange', () => {
  const work = mkdtempSync(join(tmpdir(), 'zentadbpp-exchange-'));
  let server;
  let name;
  let cases = 0;
  const url = () => server.url(name);
  const ask = (method, path, body) => server.ask(method, `${name}/${path}`, body);
  const file = (copy) => join(work, `${name}-${copy}.sync`);
  const asked = (...whats) => server.requests.filter(({ what }) => whats.includes(what));
  const edit = (store, changes) =>
    store.update((data) => {
      for (const [id, text] of Object.entries(changes)) {
        const at = data.list.findIndex(({ _id }) => _id === id);
        if (text === undefined) data.list.splice(at, 1);
        else if (at < 0) data.list.push(item(id, text));
        else data.list[at].text = text;
      }
    });
  // Two copies of the data, both in step with the server.
  async function pair(entries) {
    const [a, b] = [await openStore(file('a'), { initial }), await openStore(file('b'))];
    await edit(a, entries);
    await a.exchange(url(), { create: true });
    await b.exchange(url());
    server.requests.length = 0;
    return [a, b];
  }
  // A last revision as another program might write it.
  const put = (...docs) => ask('POST', '_bulk_docs', { new_edits: false, docs: docs.map(([_id, ids, members]) => ({ _id, ...members, _revisions: { start: ids.length, ids } })) });

  before(async () => {
    server = await startServer();
  });
  beforeEach(() => {
    cases += 1;
    name = `trip${cases}`;
    server.disturbWith(undefined);
  });
  after(async () => {
    await server?.stop();
    rmSync(work, { recursive: true });
  });

  test('brings copies together, and sends nothing twice', async () => {
    const a = await openStore(file('a'), { initial });
    await a.update((data) => void data.list.push(item('1', 'milk'), item('2', 'tea'), { ...item('3', 'ö𝄞'), n: 0.1, in: { tasks: [item('t', 1)] } }));
    await assert.rejects(a.exchange(url()), /404/);
    assert.equal((await a.exchange(url(), { create: true, batch: 2 })).sent > 4, true);
    assert.deepEqual(await a.exchange(url()), quiet);

    const b = await openStore(file('b'));
    assert.equal((await b.exchange(url(), { batch: 2 })).sent, 0);
    assert.deepEqual(b.read(), a.read());

    await a.update((data) => void ([data.list[0].text, data.list[1].text] = ['oat milk', 'green tea']));
    await b.update((data) => void (data.list[0].text = 'soy milk', data.list.push(item('4', 'bread')), data.list.splice(1, 1)));
    for (const store of [a, b, a]) await store.exchange(url());
    assert.deepEqual(a.read(), b.read());
    assert.equal(a.read().list.some(({ _id }) => _id === '4'), true);
    const conflict = (await a.conflicts()).find(({ id }) => id === '1');
    await a.resolve('1', conflict.others[0].rev);
    for (const store of [a, b]) await store.exchange(url());
    assert.deepEqual([a.read(), (await b.conflicts()).filter(({ id }) => id === '1')], [b.read(), []]);

    // The store goes on while a server keeps it waiting.
    server.setDown(true);
    let isWaiting = true;
    const waiting = a.exchange(url(), { retries: 1 }).catch(() => void (isWaiting = false));
    await a.update((data) => void (data.title = 'Meanwhile'));
    assert(isWaiting);
    await waiting;
    server.setDown(false);
    await a.exchange(url());
    await a.exchange(url());
    server.requests.length = 0;
    assert.deepEqual(await a.exchange(url()), quiet);
    assert.deepEqual(asked('_bulk_docs', '_bulk_get', '_revs_diff'), []);

    // What is remembered counts for that database alone.
    await server.ask('DELETE', name);
    assert((await a.exchange(url(), { create: true })).sent > 4);
    const c = await openStore(file('c'));
    await c.exchange(url());
    assert.deepEqual(c.read(), a.read());
    assert.deepEqual(readdirSync(work).filter((each) => each.includes('-pulled-')), []);
  });

  test('leaves alone what is not of this data', async () => {
    const [a] = await pair({ x: 'one' });
    await ask('PUT', 'theirs', { text: '!from elsewhere' });
    assert.deepEqual((await a.exchange(url())).foreign, ['theirs']);
    await edit(a, { theirs: 'ours' });
    await assert.rejects(a.exchange(url()), /another document under the id theirs/);
    const other = await openStore('other', { initial: { title: 'Other' }, storage: 'memory' });
    await assert.rejects(other.exchange(url()), /other data/);
  });

  test('compares again with a store that came back from a backup', async () => {
    const [a, b] = await pair({ x: 'one' });
    await b.close();
    const backup = readFileSync(file('b'));
    await edit(a, { x: 'two' });
    await a.exchange(url());
    // What came is followed by an edit that is not sent, and all of it is lost.
    const later = await openStore(file('b'));
    await later.exchange(url());
    await edit(later, { x: 'three' });
    await later.exchange(url(), { direction: 'pull' });
    await later.close();
    writeFileSync(file('b'), backup);
    const restored = await openStore(file('b'));
    await restored.exchange(url());
    assert.equal(texts(restored), 'x:two');
  });

  test('asks for the lists that only older revisions have', async () => {
    const [a, b] = await pair({ x: 'one', y: 'one', z: 'one' });
    await edit(a, { x: 'a', z: undefined });
    await edit(b, { y: 'b', z: 'b' });
    for (const store of [a, b]) await store.exchange(url(), { direction: 'push' });
    const c = await openStore(file('c'));
    assert.deepEqual((await c.exchange(url())).homeless, []);
    for (const store of [a, b, c]) await store.exchange(url());
    assert.deepEqual([texts(a), texts(b)], [texts(c), texts(c)]);
    assert.match(texts(c), /z:b/);
  });

  test('begins a store with lists that two copies began', async () => {
    const [a, b] = await pair({});
    await edit(a, { x: 'one' });
    await edit(b, { y: 'two' });
    for (const store of [a, b]) await store.exchange(url(), { direction: 'push' });
    const c = await openStore(file('c'));
    await c.exchange(url());
    for (const store of [a, b, c]) await store.exchange(url());
    assert.deepEqual([texts(a), texts(b)], [texts(c), texts(c)]);
    assert.equal(texts(c).split(' ').sort().join(' '), 'x:one y:two');
  });

  test('takes what the server changed, and keeps its attachments there', async () => {
    const [a, b] = await pair({ x: 'one', y: 'one' });
    const attached = { 'a.txt': { content_type: 'text/plain', data: 'YQ==' } };
    await ask('PUT', 'x', { ...(await ask('GET', 'x')), text: '!there', _attachments: attached });
    assert.deepEqual((await a.exchange(url())).attachments, ['x']);
    assert.equal(texts(a), 'x:there y:one');
    await edit(a, { x: 'here' });
    await a.exchange(url());
    const now = await ask('GET', 'x');
    assert.deepEqual([now.text, Object.keys(now._attachments)], ['!here', ['a.txt']]);
    await b.exchange(url());
    assert.equal(texts(b), 'x:here y:one');
    // A string without its mark would make the data unreadable.
    await ask('PUT', 'y', { ...(await ask('GET', 'y')), text: 'Oslo' });
    const kept = readFileSync(file('a'), 'utf8');
    await assert.rejects(a.exchange(url()), /cannot be read/);
    assert.equal(readFileSync(file('a'), 'utf8'), kept);
    await ask('PUT', 'y', { ...(await ask('GET', 'y')), text: '!Oslo' });
    await a.exchange(url());
    assert.equal(texts(a), 'x:here y:Oslo');
  });

  test('refuses forged contents, and takes the others when a revision cannot be kept', async () => {
    const [a] = await pair({ x: 'one' });
    const { d: { x: [first], root: [firstOfRoot] } } = JSON.parse(await a.dump());
    // One name under two parents, where only one of the two says what it follows.
    await put(
      ['p', ['d1', 'c_bbbbbbb', 'bbbbbbb1', 'x1_first'], { text: '!p' }],
      ['p', ['d2', 'c', 'bbbbbbb2', 'x1_first'], { text: '!p too' }],
      ['x', [`x5_${first.slice(0, 7)}`, first], { text: '!x was here' }],
    );
    const before = await a.dump();
    await assert.rejects(a.exchange(url()), /does not hash to its name, x5/);
    assert.equal(await a.dump(), before);
    const { received, unusable } = await a.exchange(url(), { force: true });
    assert.deepEqual([received, unusable, texts(a)], [3, ['p'], 'x:x was here']);
    assert(JSON.parse(await a.dump()).d.p);
    // Names that the server made say nothing, so two contents must not share one.
    await put(['x', ['d9', first], { text: '!one' }], ['root', ['d9', firstOfRoot], { title: '!two' }]);
    await assert.rejects(a.exchange(url()), /other content is called d9/);
  });

  test('goes on where an interrupted pull was', async () => {
    const [a] = await pair(Object.fromEntries(Array.from({ length: 9 }, (_, at) => [`n${at}`, 'x'])));
    const c = await openStore(file('c'));
    let batches = 0;
    server.disturbWith(({ what }) => (what === '_bulk_get' && (batches += 1) > 3 ? { status: 403 } : undefined));
    await assert.rejects(c.exchange(url(), { batch: 2 }), /403/);
    assert.deepEqual(c.read(), {});
    server.disturbWith(undefined);
    server.requests.length = 0;
    await c.close();
    const again = await openStore(file('c'));
    await again.exchange(url(), { batch: 2 });
    assert.deepEqual(again.read(), a.read());
    assert(asked('_bulk_get').length <= 3, 'it began from the start');
    assert.deepEqual(readdirSync(work).filter((each) => each.includes('-pulled-')), []);
  });

  test('sends contents as they are written', async () => {
    const a = await openStore(file('a'));
    const { update } = await import(pathToFileURL(join(process.env.ZENTADBPP_PACKAGE, 'node.js')));
    await a.merge(update('{"n": -0.0, "list": []}', '{}'));
    await a.exchange(url(), { create: true });
    assert(asked('_bulk_docs').some(({ body }) => body.includes('"n": -0')));
  });

  test('bears with a server that takes or gives little, and with answers that are none', async () => {
    const [a, b] = await pair({ x: 'one', y: 'one', z: 'one' });
    await edit(a, { x: 'two', y: 'two', z: 'two' });
    server.disturbWith(({ what, body }) => (what.startsWith('_') && body.length > 600 ? { status: 413 } : undefined));
    assert.equal((await a.exchange(url())).sent, 3);
    await b.exchange(url());
    assert.equal(texts(b), texts(a));

    // What is refused does not keep the others back, and is said.
    await edit(a, { x: 'x'.repeat(1000), y: 'three' });
    await assert.rejects(a.exchange(url()), /did not take a document x: it is larger than the server allows; the others were sent/);
    await b.exchange(url());
    assert.equal(b.read().list[1].text, 'three');
    for (let turn = 0; turn < 101; turn += 1) await edit(a, { x: 'short', y: `${turn}` });
    server.disturbWith(({ what }) => (what === '_revs_limit' ? { json: 100 } : undefined));
    await assert.rejects(a.exchange(url()), /document y has a history of 10\d revisions, of which the database would keep 100/);

    const answers = [
      [{ _revs_diff: [] }, /not one of a CouchDB server/],
      [{ _bulk_docs: null }, /not one of a CouchDB server/],
      [{ _bulk_docs: [{ id: 'nobody', error: 'e' }] }, /which was not sent/],
      [{ _changes: { results: null, last_seq: 1 } }, /not one of a CouchDB server/],
      [{ _changes: { results: [{ id: 'y', changes: [{ rev: '9-a' }] }], last_seq: 1 }, _bulk_get: { results: [] } }, /says nothing/],
      [{ _changes: { results: [{ id: 'y', changes: [{ rev: '9-a' }] }], last_seq: 1 }, _bulk_get: { results: [{ docs: [{ ok: { _id: 'y' } }] }] } }, /not one of a CouchDB server/],
      [{ _changes: { results: [{ id: 'y', changes: [{ rev: '9-a' }] }], last_seq: 1 }, _bulk_get: { results: [{ docs: [{ error: { error: 'timeout' } }] }] } }, /timeout/],
    ];
    for (const [answer, problem] of answers) {
      server.disturbWith(({ what }) => (what in answer ? { json: answer[what] } : undefined));
      await assert.rejects(a.exchange(url()), problem, JSON.stringify(answer));
    }
    server.disturbWith(({ what }) => (what === '_changes' ? { json: { results: [{ id: '_design/d', changes: [] }], last_seq: 1 } } : undefined));
    await assert.rejects(a.exchange(url(), { batch: 1, afresh: true }), /again and again/);
    server.disturbWith(undefined);
    await a.exchange(url());
    await b.exchange(url());
    assert.equal(texts(b), texts(a));
  });
});
