// Revisions that come from a server, on their way into a store.

import * as library from '#library';
import { isEqual } from '../changes.js';
import { ExchangeError, type Database, type Json } from './database.js';
import { objectText } from './json-text.js';
import { hashOf, isAcceptable, isEnded, isLibraryHash, serverId, type Tree } from './revisions.js';
import { SyncText } from './sync-text.js';

/** Documents of the server that were left alone or not taken whole, by id. */
export interface Remarks {
  /** They were not begun in a store. */
  foreign: Set<string>;
  /** The server has cut their history short, and it is not known here. */
  cutShort: Set<string>;
  /** They have names or histories that a store cannot keep. */
  unusable: Set<string>;
  /** They have attachments, which stay on the server. */
  attachments: Set<string>;
}

/** A revision as the library takes it. */
export interface Accepted {
  id: string;
  /** As the server names it. */
  rev: string;
  start: number;
  ids: string[];
  content: string;
}

// Revisions that can be in one set: each has one parent, and each document one first revision.
class Body {
  readonly docs: Accepted[] = [];
  readonly #parents = new Map<string, Map<string, string>>();

  add(doc: Accepted): boolean {
    const parents = this.#parents.get(doc.id) ?? new Map<string, string>();
    const path = doc.ids.map((entry, at) => {
      const parent = doc.ids[at + 1];
      return parent === undefined ? (['first', entry] as const) : ([`${doc.start - at}-${entry}`, parent] as const);
    });
    if (path.some(([rev, parent]) => (parents.get(rev) ?? parent) !== parent)) return false;
    for (const [rev, parent] of path) parents.set(rev, parent);
    this.#parents.set(doc.id, parents);
    this.docs.push(doc);
    return true;
  }
}

const contentMembers = (members: Map<string, string>) => [...members].filter(([key]) => !key.startsWith('_'));

// A history that does not reach back to its beginning continues with what is known here.
function completed(ids: string[], start: number, tree: Tree | undefined): boolean {
  if (ids.length === start) return true;
  const generation = start - ids.length + 1;
  const oldest = tree?.find((each) => each.generation === generation && serverId(each.entry) === ids.at(-1));
  for (let at = oldest?.parent ?? -1; at >= 0; at = tree![at]!.parent) ids.push(tree![at]!.entry);
  return ids.length === start;
}

function importOf({ docs }: Body): library.Handle {
  const bodyOf = ({ id, start, ids, content }: Accepted) =>
    `{"ok": {"_id": ${JSON.stringify(id)}, "_rev": ${JSON.stringify(`${start}-${ids[0]}`)}, ` +
    `"_revisions": ${JSON.stringify({ start, ids })}${content === '{}' ? '' : `, ${content.slice(1, -1)}`}}}`;
  try {
    return library.Handle.fromBulkGet(`{"results": [{"docs": [${docs.map(bodyOf).join(', ')}]}]}`);
  } catch (error) {
    // It refused some of them. The others are in order.
    const imported = error instanceof library.ZentadbError ? error.imported : undefined;
    if (imported === undefined) throw error;
    return new library.Handle(imported);
  }
}

export class Incoming {
  readonly remarks: Remarks = { foreign: new Set(), cutShort: new Set(), unusable: new Set(), attachments: new Set() };
  readonly #bodies: Body[] = [];
  // Contents that the server has named, which says nothing about them.
  readonly #namedByServer = new Map<string, unknown>();
  count = 0;

  constructor(
    private readonly database: Database,
    private readonly store: SyncText,
    /** Takes contents that do not hash to their names. */
    private readonly isForced: boolean,
  ) {}

  /**
   * A document of the answer, or undefined for one that is not taken, which is noted. A deletion that was made on the server is
   * one of the document only if the server has the whole document deleted; else it is how CouchDB resolves a conflict, and
   * closes its branch.
   */
  accept(members: Map<string, string>, isDeleted: (id: string) => boolean): Accepted | undefined {
    const of = (key: string): Json => JSON.parse(members.get(key) ?? 'null');
    return this.database.shaped(() => {
      const [id, rev, { start, ids }] = [of('_id'), of('_rev'), of('_revisions')];
      if (typeof id !== 'string' || typeof rev !== 'string' || !Number.isInteger(start) || !Array.isArray(ids)) throw new TypeError();
      const leaveOut = (why: Set<string>) => void why.add(id);
      if (id === '' || id.startsWith('_')) return leaveOut(this.remarks.foreign);
      if (ids.length === 0 || !ids.every(isAcceptable)) return leaveOut(this.remarks.unusable);
      if (!completed(ids, start, this.store.tree(id))) return leaveOut(this.remarks.cutShort);
      // What was begun on the server itself is some other document, whatever it was made for.
      if (!isLibraryHash(hashOf(ids.at(-1)!))) return leaveOut(this.remarks.foreign);
      if (of('_deleted') === true && !isEnded(ids[0]!)) ids[0] = isDeleted(id) ? 'deleted' : 'resolved';
      if (members.has('_attachments')) this.remarks.attachments.add(id);
      return { id, rev, start, ids, content: objectText(contentMembers(members)) };
    });
  }

  add(doc: Accepted): void {
    this.#checkName(doc);
    if (!this.#bodies.some((body) => body.add(doc))) {
      const body = new Body();
      body.add(doc);
      this.#bodies.push(body);
    }
    this.count += 1;
  }

  /** The sets to merge into the store. An empty store begins with the root of this id, or with the one that the library finds. */
  sets(notedRoot: string | undefined): library.Handle[] {
    let { store } = this;
    let root = store.root ?? notedRoot;
    return this.#bodies.flatMap((body) => {
      const set = importOf(body);
      const text = set.dump();
      set.close();
      const taken = new SyncText(text);
      for (const { id, start, ids } of body.docs) {
        const hash = hashOf(ids[0]!);
        const isTaken = taken.tree(id)?.some(({ generation, entry }) => generation === start && hashOf(entry) === hash);
        if (!isTaken) this.remarks.unusable.add(id);
      }
      if (taken.root === undefined) return [];
      root ??= taken.root;
      const rooted = taken.rootedAt(root, store);
      if (rooted === undefined) {
        throw new ExchangeError(`${this.database.url}: the database does not hold the root document yet; nothing was changed`);
      }
      this.#checkContents(text);
      if (store.root === undefined) store = new SyncText(rooted); // the next sets of an empty store begin as this one does
      return [new library.Handle(rooted)];
    });
  }

  // The library keeps contents by their hash, so a name that came from elsewhere must not stand for two contents.
  #checkName({ id, ids, content }: Accepted): void {
    const entry = ids[0]!;
    const hash = hashOf(entry);
    if (isLibraryHash(hash)) return;
    const value: unknown = JSON.parse(content);
    const known = this.#namedByServer.get(hash) ?? JSON.parse(this.store.contentOf({ entry }) ?? content);
    this.#namedByServer.set(hash, value);
    if (isEqual(known, value)) return;
    throw new ExchangeError(`${this.database.url}: document ${id}: another revision with other content is called ${hash} as well`);
  }

  #checkContents(text: string): void {
    const [forged] = this.isForced ? [] : library.verify(text, this.store.text);
    if (forged === undefined) return;
    throw new ExchangeError(`${this.database.url}: a content does not hash to its name, ${forged}; nothing was changed`);
  }
}
