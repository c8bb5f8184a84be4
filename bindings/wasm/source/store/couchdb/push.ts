// Sends what a store has and a server lacks.

import { ExchangeError, type Database, type Named } from './database.js';
import type { Checkpoint } from './checkpoint.js';
import { membersOf, objectText } from './json-text.js';
import { firstRevs, hashOf, isEnded, isLibraryHash, isOrdering, pathFrom, serverId, serverRev, type Tree } from './revisions.js';
import type { SyncText } from './sync-text.js';

interface Outgoing {
  id: string;
  tree: Tree;
  tips: number[];
}

interface Document {
  id: string;
  rev: string;
  text: string;
}

const largeRequest = 4_000_000; // characters
const anyServerKeeps = 100; // revisions of a document

export class Push {
  /** Documents with a last revision whose content was pruned here, which was therefore not sent. */
  readonly pruned = new Set<string>();
  sent = 0;
  readonly #begunThere = new Set<string>();
  readonly #refused = new Map<string, string>();

  constructor(
    private readonly database: Database,
    private readonly store: SyncText,
    private readonly checkpoint: Checkpoint,
    private readonly batch: number,
  ) {}

  /** The value is the data that the store shows. `noteData` says on the server whose data it holds. */
  async run(value: object, noteData: () => Promise<void>): Promise<void> {
    const asked = this.#unshared();
    for (const { id } of asked) {
      if (id === '' || id.startsWith('_')) throw new ExchangeError(`a CouchDB server takes no id like ${JSON.stringify(id)}; nothing was sent`);
    }
    const outgoing: Outgoing[] = [];
    for (const part of this.#batches(asked)) outgoing.push(...(await this.#missingOf(part)));
    if (outgoing.length === 0) return;
    await this.#checkSendable(outgoing);
    await this.#checkBegunHere(outgoing);
    await noteData();
    const attachments = await this.#attachmentsOf(outgoing);
    const rank = this.#ranksIn(value);
    outgoing.sort((a, b) => rank(a.id) - rank(b.id));
    await this.#sendAll(outgoing.flatMap((each) => each.tips.map((tip) => this.#documentOf(each, tip, attachments))));
  }

  /** Fails if the server did not take some of the documents. */
  check(): void {
    const [first] = this.#refused;
    if (!first) return;
    const count = this.#refused.size === 1 ? 'a document' : `${this.#refused.size} documents, such as`;
    throw new ExchangeError(`${this.database.url}: the server did not take ${count} ${first[0]}: ${first[1]}; the others were sent`);
  }

  // The last revisions of all branches that the server is not known to have.
  #unshared(): Outgoing[] {
    const outgoing: Outgoing[] = [];
    for (const [id, tree] of this.store.trees()) {
      const tips = tree.flatMap((each, at) => (each.hasChild || this.checkpoint.isShared(id, serverRev(each)) ? [] : [at]));
      if (tips.length > 0) outgoing.push({ id, tree, tips });
    }
    return outgoing;
  }

  async #missingOf(asked: Outgoing[]): Promise<Outgoing[]> {
    const missing = await this.database.missing(
      asked.map(({ id, tree, tips }) => [id, [...tips.map((tip) => serverRev(tree[tip]!)), ...firstRevs(tree)]]),
    );
    return asked.flatMap(({ id, tree, tips }) => {
      const lacks = missing.get(id) ?? new Set();
      if (firstRevs(tree).some((rev) => !lacks.has(rev))) this.#begunThere.add(id);
      const toSend = tips.filter((tip) => {
        const rev = serverRev(tree[tip]!);
        if (!lacks.has(rev)) this.checkpoint.share(id, rev);
        else if (this.store.contentOf(tree[tip]!) === undefined) this.pruned.add(id);
        else return true;
        return false;
      });
      return toSend.length > 0 ? [{ id, tree, tips: toSend }] : [];
    });
  }

  // All or nothing: what a server cannot hold is found before anything is sent.
  async #checkSendable(outgoing: Outgoing[]): Promise<void> {
    let longest = 0;
    let longestId = '';
    for (const { id, tree, tips } of outgoing) {
      for (const tip of tips) {
        const own = [...membersOf(this.store.contentOf(tree[tip]!)!).keys()].find((key) => key.startsWith('_') && key !== '_id');
        if (own) throw new ExchangeError(`document ${id}: a CouchDB server keeps members that begin with _ for itself: ${own}; nothing was sent`);
        if (tree[tip]!.generation > longest) [longest, longestId] = [tree[tip]!.generation, id];
      }
    }
    const limit = longest > anyServerKeeps ? await this.database.revsLimit() : undefined;
    if (limit === undefined || longest <= limit) return;
    throw new ExchangeError(
      `${this.database.url}: document ${longestId} has a history of ${longest} revisions, of which the database would keep ${limit}, ` +
        'and others could not take it from there; raise its _revs_limit. Nothing was sent',
    );
  }

  // A document that the server has under an id of this store, but not from its beginning, is another one: the two could
  // never be merged. Some servers call a revision missing of which they have only the name, as that of one before.
  async #checkBegunHere(outgoing: Outgoing[]): Promise<void> {
    const unknown = outgoing.filter(({ id }) => !this.#begunThere.has(id) && !isOrdering(id));
    for (const part of this.#batches(unknown)) {
      for (const given of await this.database.bulkGet(await this.database.leadingRevs(part.map(({ id }) => id)))) {
        if (!('members' in given)) continue;
        const [id, path] = ['_id', '_revisions'].map((key) => JSON.parse(given.members.get(key) ?? 'null'));
        const tree = this.store.tree(id);
        // A history that was cut short does not say.
        if (!tree || !path?.ids?.length || path.ids.length !== path.start || firstRevs(tree).includes(`1-${path.ids.at(-1)}`)) continue;
        throw new ExchangeError(`${this.database.url}: the database has another document under the id ${id}; nothing was sent`);
      }
    }
  }

  // Attachments are made on the server, and so in a document that has a revision of the server's. Such a document goes on with
  // those of the last revision that the server has, named and not sent.
  async #attachmentsOf(outgoing: Outgoing[]): Promise<Map<string, string>> {
    const wanted = new Map<string, Named>();
    const paths: { id: string; tip: string; revs: string[] }[] = [];
    for (const { id, tree, tips } of outgoing) {
      for (const tip of tips) {
        if (isEnded(tree[tip]!.entry)) continue;
        const before = [...pathFrom(tree, tree[tip]!.parent)];
        const made = before.findIndex((at) => !isLibraryHash(hashOf(tree[at]!.entry)));
        const revs = before.slice(0, made + 1).map((at) => serverRev(tree[at]!));
        if (revs.length > 0) paths.push({ id, tip: serverRev(tree[tip]!), revs });
        for (const rev of revs) wanted.set(`${id}\0${rev}`, { id, rev });
      }
    }
    const found = new Map<string, string | undefined>();
    for (const part of this.#batches([...wanted.values()])) {
      for (const given of await this.database.bulkGet(part)) {
        if (!('members' in given)) continue;
        const [id, rev] = ['_id', '_rev'].map((key) => JSON.parse(given.members.get(key) ?? 'null'));
        found.set(`${id}\0${rev}`, given.members.get('_attachments'));
      }
    }
    return new Map(
      paths.flatMap(({ id, tip, revs }) => {
        const last = revs.find((rev) => found.has(`${id}\0${rev}`));
        const attachments = last && found.get(`${id}\0${last}`);
        return attachments ? [[`${id}\0${tip}`, attachments] as const] : [];
      }),
    );
  }

  // What refers to a document is sent before it, so that a pull that comes in between finds nothing removed.
  #ranksIn(value: object): (id: string) => number {
    const order = new Map<string, number>();
    const left: unknown[] = [value];
    while (left.length > 0) {
      const each = left.pop();
      if (typeof each !== 'object' || each === null) continue;
      const id = (each as { _id?: unknown })._id;
      if (typeof id === 'string') order.set(id, order.size);
      for (const member of Object.values(each).reverse()) left.push(member);
    }
    return (id) => (id === this.store.root ? -2 : isOrdering(id) ? -1 : (order.get(id) ?? order.size));
  }

  #documentOf({ id, tree }: Outgoing, tip: number, attachments: Map<string, string>): Document {
    const revision = tree[tip]!;
    const rev = serverRev(revision);
    const ids = Array.from(pathFrom(tree, tip), (at) => serverId(tree[at]!.entry));
    const members = membersOf(this.store.contentOf(revision)!);
    members.set('_id', JSON.stringify(id));
    members.set('_revisions', JSON.stringify({ start: revision.generation, ids }));
    if (isEnded(revision.entry)) members.set('_deleted', 'true');
    const kept = attachments.get(`${id}\0${rev}`);
    if (kept) members.set('_attachments', kept);
    return { id, rev, text: objectText(members) };
  }

  async #sendAll(documents: Document[]): Promise<void> {
    let part: Document[] = [];
    let size = 0;
    for (const [at, document] of documents.entries()) {
      part.push(document);
      size += document.text.length;
      if (part.length < this.batch && size < largeRequest && at + 1 < documents.length) continue;
      const problems = await this.database.bulkDocs(part);
      for (const { id, problem } of problems) {
        if (!part.some((each) => each.id === id)) throw new ExchangeError(`${this.database.url}: it refuses ${id}, which was not sent`);
        this.#refused.set(id, problem);
      }
      for (const { id, rev } of part) {
        if (this.#refused.has(id)) continue;
        this.checkpoint.share(id, rev);
        this.sent += 1;
      }
      part = [];
      size = 0;
    }
  }

  *#batches<E>(all: E[]): Generator<E[]> {
    for (let begin = 0; begin < all.length; begin += this.batch) yield all.slice(begin, begin + this.batch);
  }
}
