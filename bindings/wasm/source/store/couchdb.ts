// Exchange of a store with a database of a CouchDB server, by the rules of `zentadb push` and `zentadb pull`: revisions
// keep their whole names, only what the other side lacks travels, in batches, and what was exchanged is remembered.

import * as library from '#library';
import { newTag } from './storage.js';

export interface ExchangeOptions {
  /** Makes the database if it is not there. */
  create?: boolean;
  /** Documents in one request; 500 if left out. */
  batch?: number;
  /** How often a request is repeated that fails for the moment; 5 if left out. */
  retries?: number;
  /** Sent with every request, such as Authorization. */
  headers?: Record<string, string>;
  credentials?: RequestCredentials;
  /** Compares everything, whatever is remembered of earlier exchanges. */
  afresh?: boolean;
  direction?: 'both' | 'pull' | 'push';
}

export interface ExchangeResult {
  /** Revisions, not documents. */
  received: number;
  sent: number;
  /** Documents of the server that were left alone, as they were not begun in a store. */
  foreign: string[];
  /** Documents with a last revision whose content was pruned here, which was therefore not sent. */
  pruned: string[];
}

export interface Copy {
  dump(): string;
  value(): object;
  merge(set: library.Handle): Promise<void>;
  readNote(name: string): Promise<unknown>;
  writeNote(name: string, note: unknown): Promise<void>;
}

/** What the server refuses, or that it cannot be reached. */
export class ExchangeError extends Error {
  override name = 'ExchangeError';
  constructor(
    message: string,
    readonly status?: number,
    options?: ErrorOptions,
  ) {
    super(message, options);
  }
}

type Json = any; // eslint-disable-line -- the shape of a server's answers is checked where it matters

const tooLarge = 413;
const temporary = [408, 425, 429, 500, 502, 503, 504];
const pause = (milliseconds: number) => new Promise((resolve) => setTimeout(resolve, milliseconds));

class Database {
  readonly url: string;

  constructor(
    url: string,
    private readonly options: ExchangeOptions,
  ) {
    const parsed = new URL(url);
    // fetch refuses credentials in a URL.
    const { username, password } = parsed;
    if (username !== '' && !this.options.headers?.['Authorization']) {
      const bytes = new TextEncoder().encode(`${decodeURIComponent(username)}:${decodeURIComponent(password)}`);
      const basic = btoa(String.fromCharCode(...bytes));
      this.options = { ...options, headers: { ...options.headers, Authorization: `Basic ${basic}` } };
    }
    parsed.username = '';
    parsed.password = '';
    this.url = parsed.href.replace(/\/+$/, '');
  }

  async send(method: string, path: string, body?: unknown): Promise<{ status: number; json: Json }> {
    const { retries = 5, headers, credentials } = this.options;
    for (let attempt = 0; ; attempt += 1) {
      let problem: string;
      let wait = Math.min(30_000, 500 * 2 ** attempt) * (0.75 + Math.random() / 4);
      try {
        const response = await fetch(this.url + path, {
          method,
          headers: { 'Content-Type': 'application/json', Accept: 'application/json', ...headers },
          ...(credentials && { credentials }),
          ...(body !== undefined && { body: JSON.stringify(body) }),
        });
        if (!temporary.includes(response.status)) {
          const text = await response.text();
          try {
            return { status: response.status, json: JSON.parse(text) };
          } catch {
            throw new ExchangeError(`${this.url}: the answer is not JSON; is this a database of a CouchDB server?`);
          }
        }
        problem = `it answers with status ${response.status}`;
        wait = Math.max(wait, Math.min(60, Number(response.headers.get('Retry-After')) || 0) * 1000);
      } catch (error) {
        if (error instanceof ExchangeError) throw error;
        problem = (error as Error).message;
      }
      if (attempt >= retries) throw new ExchangeError(`${this.url}: the server cannot be reached: ${problem}`);
      await pause(wait);
    }
  }

  async expect(method: string, path: string, body?: unknown): Promise<Json> {
    return this.checked(await this.send(method, path, body));
  }

  checked({ status, json }: { status: number; json: Json }): Json {
    if (status >= 200 && status < 300) return json;
    const why = [json?.error, json?.reason].filter((each) => typeof each === 'string').join(', ');
    throw new ExchangeError(`${this.url}: the server refuses, with status ${status}: ${why}`, status);
  }

  async open(): Promise<void> {
    const { status, json } = await this.send('GET', '');
    if (status === 404 && this.options.create) {
      const made = await this.send('PUT', '');
      if (made.status !== 412) this.checked(made); // 412: another copy was faster
      return;
    }
    this.checked({ status, json });
    if (json?.db_name === undefined) throw new ExchangeError(`${this.url} is not a database of a CouchDB server`);
  }

  async local(name: string): Promise<Json | undefined> {
    const answer = await this.send('GET', `/_local/${encodeURIComponent(name)}`);
    return answer.status === 404 ? undefined : this.checked(answer);
  }

  async putLocal(name: string, document: Json): Promise<boolean> {
    return (await this.send('PUT', `/_local/${encodeURIComponent(name)}`, document)).status < 300;
  }

  // In halves where the server finds the request too large.
  async inParts<E, R>(method: string, path: string, all: E[], bodyOf: (part: E[]) => unknown, resultOf: (json: Json) => R[]): Promise<R[]> {
    if (all.length === 0) return [];
    const answer = await this.send(method, path, bodyOf(all));
    if (answer.status !== tooLarge || all.length < 2) return resultOf(this.checked(answer));
    const middle = all.length >> 1;
    const first = await this.inParts(method, path, all.slice(0, middle), bodyOf, resultOf);
    return first.concat(await this.inParts(method, path, all.slice(middle), bodyOf, resultOf));
  }

  bulkGet(wanted: { id: string; rev: string }[]): Promise<Json[]> {
    return this.inParts('POST', '/_bulk_get?revs=true', wanted, (docs) => ({ docs }), (json) => json.results);
  }
}

// ---------------------------------------------------------------------------------------------------------------------
// Revisions, here and on the server. One of the library has the same name there; one that was made there has digits only.

interface Revision {
  generation: number;
  entry: string; // hash_suffix
  parent: number;
  hasChild: boolean;
}

const libraryHash = /^(?:deleted|resolved|empty|x\d+|[0-9a-f]{64})$/;
const hashOf = (entry: string) => entry.split('_', 1)[0]!;
const isEnded = (entry: string) => ['deleted', 'resolved'].includes(hashOf(entry));
const serverId = (entry: string) => (libraryHash.test(hashOf(entry)) ? entry : hashOf(entry));
const serverRev = ({ generation, entry }: Revision) => `${generation}-${serverId(entry)}`;
const isAcceptable = (id: string) => /^[^\s,\-_\x00-\x20\x7f]+(?:_[^\s,\-_\x00-\x20\x7f]+)?$/.test(id);

type History = (string | History)[];

// All revisions in the history array of a document, parents first.
function revisionsOf(history: History): Revision[] {
  const revisions: Revision[] = [];
  const left: { chain: History; parent: number }[] = [{ chain: history, parent: -1 }];
  while (left.length > 0) {
    const { chain, parent } = left.pop()!;
    let last = parent;
    for (const each of chain) {
      if (typeof each === 'string') {
        const above = revisions[last];
        if (above) above.hasChild = true;
        revisions.push({ generation: (above?.generation ?? 0) + 1, entry: each, parent: last, hasChild: false });
        last = revisions.length - 1;
        continue;
      }
      for (const branch of each) left.push({ chain: typeof branch === 'string' ? [branch] : branch, parent: last });
    }
  }
  return revisions;
}

interface SyncJson {
  d?: Record<string, History>;
  o?: Record<string, Record<string, unknown>>;
  r?: string;
}

class Documents {
  readonly #sync: SyncJson;
  readonly #trees = new Map<string, Revision[]>();

  constructor(text: string) {
    this.#sync = JSON.parse(text);
  }

  get root() {
    return this.#sync.r;
  }

  get ids(): string[] {
    return Object.keys(this.#sync.d ?? {});
  }

  tree(id: string): Revision[] | undefined {
    const history = this.#sync.d && Object.hasOwn(this.#sync.d, id) ? this.#sync.d[id] : undefined;
    if (history && !this.#trees.has(id)) this.#trees.set(id, revisionsOf(history));
    return this.#trees.get(id);
  }

  content(hash: string): Record<string, unknown> | undefined {
    return hash === 'empty' ? {} : this.#sync.o?.[hash];
  }

  /** What is made of a bulk-get answer, with the root of this store, so that the two can be merged. */
  rooted(set: library.Handle): library.Handle {
    const other: SyncJson = JSON.parse(set.dump());
    set.close();
    const root = this.root ?? other.r!;
    const known = this.#sync.d?.[root];
    if (!other.d?.[root] && known) other.d = { ...other.d, [root]: known };
    return new library.Handle({ ...other, r: root });
  }
}

// ---------------------------------------------------------------------------------------------------------------------
// What was exchanged. It counts only if the server's local document names it, so that a database that was made anew, or
// brought back from a backup, is compared again.

interface Checkpoint {
  session: string;
  name: string;
  since: unknown;
  shared: number[]; // a mark for every last revision that both sides have
}

// 53 bits that tell revisions apart; not a defence against anybody.
function markOf(id: string, rev: string): number {
  let [high, low] = [0xdeadbeef, 0x41c6ce57];
  for (const character of `${id}\0${rev}`) {
    const code = character.codePointAt(0)!;
    high = Math.imul(high ^ code, 2654435761);
    low = Math.imul(low ^ code, 1597334677);
  }
  high = Math.imul(high ^ (high >>> 16), 2246822507) ^ Math.imul(low ^ (low >>> 13), 3266489909);
  low = Math.imul(low ^ (low >>> 16), 2246822507) ^ Math.imul(high ^ (high >>> 13), 3266489909);
  return 4294967296 * (2097151 & low) + (high >>> 0);
}

const localName = (session: string) => `zentadb-${session}`;

async function recall(database: Database, note: Checkpoint | undefined, documents: Documents): Promise<Checkpoint | undefined> {
  if (!note?.session) return undefined;
  const local = await database.local(localName(note.session));
  if (!local?.saved?.includes(note.name)) return undefined;
  // A store that was brought back from a backup lacks what it remembers.
  const marks = new Set(note.shared);
  for (const id of documents.ids) {
    for (const revision of documents.tree(id)!) marks.delete(markOf(id, serverRev(revision)));
  }
  return marks.size === 0 ? note : undefined;
}

async function noteOnServer(database: Database, session: string, name: string): Promise<boolean> {
  const mostNames = 100;
  for (let attempt = 0; attempt < 3; attempt += 1) {
    const local = (await database.local(localName(session))) ?? {};
    local.saved = [name, ...(local.saved ?? [])].slice(0, mostNames);
    if (await database.putLocal(localName(session), local)) return true;
  }
  return false;
}

// ---------------------------------------------------------------------------------------------------------------------

export async function exchange(url: string, options: ExchangeOptions, copy: Copy): Promise<ExchangeResult> {
  const { batch = 500, direction = 'both' } = options;
  const database = new Database(url, options);
  const result: ExchangeResult = { received: 0, sent: 0, foreign: [], pruned: [] };
  await database.open();
  let documents = new Documents(copy.dump());
  await checkSameData(database, documents);
  const noteName = `exchange-${markOf(database.url, '').toString(36)}`;
  const remembered = options.afresh ? undefined : ((await copy.readNote(noteName)) as Checkpoint | undefined);
  const checkpoint = await recall(database, remembered, documents);
  const shared = new Set(checkpoint?.shared);
  let since: unknown = checkpoint?.since ?? 0;

  if (direction !== 'push') {
    const pulled = await pull(database, documents, since, batch, shared, result);
    since = pulled.since;
    for (const set of pulled.sets) await copy.merge(documents.rooted(set));
    if (pulled.sets.length > 0) documents = new Documents(copy.dump());
  }
  if (direction !== 'pull' && documents.root !== undefined) {
    await push(database, documents, orderIn(copy.value()), batch, shared, result);
  }

  const tips = new Set<number>();
  for (const id of documents.ids) {
    for (const revision of documents.tree(id)!) {
      const mark = markOf(id, serverRev(revision));
      if (!revision.hasChild && shared.has(mark)) tips.add(mark);
    }
  }
  const isNew = since !== checkpoint?.since || tips.size !== shared.size || result.sent + result.received > 0;
  if (!checkpoint || isNew) {
    const session = checkpoint?.session ?? newTag();
    const name = newTag();
    if (await noteOnServer(database, session, name)) {
      await copy.writeNote(noteName, { session, name, since, shared: [...tips] } satisfies Checkpoint);
    }
  }
  return result;
}

const dataNote = 'zentadb';

async function checkSameData(database: Database, documents: Documents): Promise<void> {
  if (documents.root === undefined) return;
  const note = await database.local(dataNote);
  const first = serverRev(documents.tree(documents.root)![0]!);
  if (!note || ((note.root ?? documents.root) === documents.root && (note.first ?? first) === first)) return;
  throw new ExchangeError(`${database.url}: the database holds other data than the store`);
}

async function pull(
  database: Database,
  documents: Documents,
  from: unknown,
  batch: number,
  shared: Set<number>,
  result: ExchangeResult,
): Promise<{ since: unknown; sets: library.Handle[] }> {
  let since = from;
  const accepted: Json[] = [];
  for (;;) {
    const seq = encodeURIComponent(typeof since === 'string' ? since : JSON.stringify(since));
    const changes = await database.expect('GET', `/_changes?style=all_docs&limit=${batch}&since=${seq}`);
    const wanted: { id: string; rev: string }[] = [];
    const deleted = new Set<string>();
    for (const row of changes.results) {
      if (row.id.startsWith('_')) continue;
      if (row.deleted) deleted.add(row.id);
      const known = new Set((documents.tree(row.id) ?? []).map(serverRev));
      for (const { rev } of row.changes) {
        if (known.has(rev)) shared.add(markOf(row.id, rev));
        else wanted.push({ id: row.id, rev });
      }
    }
    for (let begin = 0; begin < wanted.length; begin += batch) {
      const asked = wanted.slice(begin, begin + batch);
      let count = 0;
      for (const { docs } of await database.bulkGet(asked)) {
        for (const { ok, error } of docs) {
          count += 1;
          if (ok) {
            const doc = acceptedForm(ok, deleted.has(ok._id), documents, result);
            if (!doc) continue;
            accepted.push(doc);
            if (doc._rev === ok._rev) shared.add(markOf(doc._id, doc._rev));
          } else if ((error?.error ?? error) !== 'not_found') {
            // What is gone was followed by something in a later change; anything else must not be passed over.
            throw new ExchangeError(`${database.url}: the server does not give out a revision: ${JSON.stringify(error)}`);
          }
        }
      }
      if (count < asked.length) throw new ExchangeError(`${database.url}: the server says nothing of some revisions`);
    }
    if (changes.results.length > 0 && changes.last_seq === since && changes.results.length >= batch) {
      throw new ExchangeError(`${database.url}: the same changes come again and again`);
    }
    since = changes.last_seq;
    if (changes.results.length < batch) break;
  }
  result.received = accepted.length;

  // A document that was begun in two ways cannot be in one set: the first lists that two copies made of one array.
  const firsts = new Map<string, string[]>();
  const bodies: Json[][] = [];
  for (const doc of accepted) {
    const ways = firsts.get(doc._id) ?? firsts.set(doc._id, []).get(doc._id)!;
    const first = doc._revisions.ids.at(-1);
    if (!ways.includes(first)) ways.push(first);
    (bodies[ways.indexOf(first)] ??= []).push({ ok: doc });
  }
  const sets = bodies.map((docs) => library.Handle.fromBulkGet({ results: [{ docs }] }));
  if (documents.root === undefined && sets.length > 0) {
    const note = await database.local(dataNote);
    const isRooted = sets[0]!.root() === (note?.root ?? sets[0]!.root());
    if (!isRooted) {
      const text = sets[0]!.dump();
      sets[0]!.close();
      sets[0] = new library.Handle({ ...JSON.parse(text), r: note.root });
    }
  }
  return { since, sets };
}

// A document as the library takes it, or undefined for what is not the store's.
function acceptedForm(ok: Json, isDeleted: boolean, documents: Documents, result: ExchangeResult): Json | undefined {
  const { start } = ok._revisions;
  const ids: string[] = [...ok._revisions.ids];
  if (ids.length === 0 || !ids.every(isAcceptable) || !completed(ids, start, documents.tree(ok._id))) {
    result.foreign.push(ok._id);
    return undefined;
  }
  if (!libraryHash.test(hashOf(ids.at(-1)!))) {
    result.foreign.push(ok._id);
    return undefined;
  }
  if (ok._deleted && !isEnded(ids[0]!)) ids[0] = isDeleted ? 'deleted' : 'resolved';
  const content = Object.fromEntries(Object.entries(ok).filter(([key]) => !key.startsWith('_')));
  return { ...content, _id: ok._id, _rev: `${start}-${ids[0]}`, _revisions: { start, ids } };
}

// A history that does not reach back to its beginning continues with what is known here.
function completed(ids: string[], start: number, tree: Revision[] | undefined): boolean {
  if (ids.length === start) return true;
  const generation = start - ids.length + 1;
  const oldest = tree?.find((each) => each.generation === generation && serverId(each.entry) === ids.at(-1));
  for (let at = oldest?.parent ?? -1; at >= 0; at = tree![at]!.parent) ids.push(tree![at]!.entry);
  return ids.length === start;
}

// The ids in the order in which the data shows them, so that what refers to a document is sent before it.
function orderIn(value: object): Map<string, number> {
  const order = new Map<string, number>();
  const left: unknown[] = [value];
  while (left.length > 0) {
    const each = left.pop();
    if (typeof each !== 'object' || each === null) continue;
    const id = (each as { _id?: unknown })._id;
    if (typeof id === 'string') order.set(id, order.size);
    left.push(...Object.values(each).reverse());
  }
  return order;
}

// The first revision, as the store names it, and as hosts do that send what the library makes for _bulk_docs.
const firstRevs = (tree: Revision[]) => [`1-${serverId(tree[0]!.entry)}`, `1-${hashOf(tree[0]!.entry)}`];

// A document that the server has under an id of this store, but not from its beginning, is another one: the two could never
// be merged.
async function checkBegunHere(database: Database, outgoing: Outgoing[]): Promise<void> {
  const trees = new Map(outgoing.map(({ id, tree }) => [id, tree]));
  const rows = await database.inParts('POST', '/_all_docs', [...trees.keys()], (keys) => ({ keys }), (json) => json.rows as Json[]);
  const there = rows.flatMap(({ id, value }) => (value?.rev ? [{ id, rev: value.rev }] : []));
  for (const { docs } of await database.bulkGet(there)) {
    for (const { ok } of docs) {
      const { ids, start } = ok?._revisions ?? { ids: [], start: -1 };
      const tree = ok && trees.get(ok._id);
      // A history that was cut short does not say.
      if (!tree || ids.length !== start || firstRevs(tree).includes(`1-${ids.at(-1)}`)) continue;
      throw new ExchangeError(`${database.url}: the database has another document under the id ${ok._id}; nothing was sent`);
    }
  }
}

interface Outgoing {
  id: string;
  tree: Revision[];
  tips: number[];
}

async function push(
  database: Database,
  documents: Documents,
  order: Map<string, number>,
  batch: number,
  shared: Set<number>,
  result: ExchangeResult,
): Promise<void> {
  const markOfTip = ({ id, tree }: Outgoing, tip: number) => markOf(id, serverRev(tree[tip]!));
  const rank = (id: string) => (id === documents.root ? -2 : id.startsWith('ord-') ? -1 : order.get(id) ?? order.size);
  const asked: Outgoing[] = documents.ids
    .map((id) => {
      const tree = documents.tree(id)!;
      const tips = tree.flatMap(({ hasChild }, at) => (hasChild ? [] : [at]));
      return { id, tree, tips: tips.filter((tip) => !shared.has(markOf(id, serverRev(tree[tip]!)))) };
    })
    .filter(({ tips }) => tips.length > 0)
    .sort((a, b) => rank(a.id) - rank(b.id));

  const outgoing: Outgoing[] = [];
  const begunThere = new Set<string>();
  for (let begin = 0; begin < asked.length; begin += batch) {
    const part = asked.slice(begin, begin + batch);
    const question = (all: Outgoing[]) =>
      Object.fromEntries(all.map(({ id, tree, tips }) => [id, [...tips.map((tip) => serverRev(tree[tip]!)), ...firstRevs(tree)]]));
    const answers = await database.inParts('POST', '/_revs_diff', part, question, (json) => [json]);
    const missing = new Map(answers.flatMap((answer) => Object.entries(answer as Record<string, { missing: string[] }>)));
    for (const each of part) {
      const lacks = new Set(missing.get(each.id)?.missing);
      if (firstRevs(each.tree).some((rev) => !lacks.has(rev))) begunThere.add(each.id);
      const tips = each.tips.filter((tip) => {
        const revision = each.tree[tip]!;
        if (!lacks.has(serverRev(revision))) {
          shared.add(markOfTip(each, tip));
          return false;
        }
        if (isEnded(revision.entry) || documents.content(hashOf(revision.entry))) return true;
        result.pruned.push(each.id);
        return false;
      });
      if (tips.length > 0) outgoing.push({ ...each, tips });
    }
  }
  if (outgoing.length === 0) return;

  for (const { id, tree, tips } of outgoing) {
    if (id === '' || id.startsWith('_')) throw new ExchangeError(`a CouchDB server takes no id like ${JSON.stringify(id)}`);
    for (const tip of tips) {
      const own = Object.keys(documents.content(hashOf(tree[tip]!.entry)) ?? {}).find((key) => key.startsWith('_') && key !== '_id');
      if (own) throw new ExchangeError(`document ${id}: a CouchDB server keeps members that begin with _ for itself: ${own}`);
    }
  }
  const unknown = outgoing.filter(({ id }) => !begunThere.has(id) && !id.startsWith('ord-'));
  for (let begin = 0; begin < unknown.length; begin += batch) await checkBegunHere(database, unknown.slice(begin, begin + batch));
  const root = documents.root!;
  if (!(await database.local(dataNote))) {
    await database.putLocal(dataNote, { root, first: serverRev(documents.tree(root)![0]!) });
    await checkSameData(database, documents);
  }

  const bodyOf = ({ id, tree }: Outgoing, tip: number) => {
    const ids: string[] = [];
    for (let at = tip; at >= 0; at = tree[at]!.parent) ids.push(serverId(tree[at]!.entry));
    const { entry, generation } = tree[tip]!;
    const content = isEnded(entry) ? { _deleted: true } : documents.content(hashOf(entry));
    return { ...content, _id: id, _revisions: { start: generation, ids } };
  };
  const all = outgoing.flatMap((each) => each.tips.map((tip) => ({ mark: markOfTip(each, tip), doc: bodyOf(each, tip) })));
  for (let begin = 0; begin < all.length; begin += batch) {
    const part = all.slice(begin, begin + batch);
    const body = (docs: typeof part) => ({ docs: docs.map(({ doc }) => doc), new_edits: false });
    const answers = await database.inParts('POST', '/_bulk_docs', part, body, (json) => json as Json[]);
    const refused = answers.find((each) => each.error);
    if (refused) {
      throw new ExchangeError(`${database.url}: the server does not take ${refused.id}: ${refused.error}, ${refused.reason}`);
    }
    for (const { mark } of part) shared.add(mark);
    result.sent += part.length;
  }
}
