// Fetches what a server has and a store lacks.

import * as library from '#library';
import { ExchangeError, type Database, type Json, type Named } from './database.js';
import { Journal, type Batch } from './journal.js';
import type { Checkpoint } from './checkpoint.js';
import type { Accepted, Incoming } from './incoming.js';
import { isOrdering, serverRev } from './revisions.js';
import { SyncText } from './sync-text.js';

const mostOlderLists = 5000;

export class Pull {
  readonly #known = new Map<string, Set<string>>();

  constructor(
    private readonly database: Database,
    private readonly store: SyncText,
    private readonly checkpoint: Checkpoint,
    private readonly incoming: Incoming,
    private readonly batch: number,
  ) {}

  /** Gets all that changed since the checkpoint, and returns up to where that goes. */
  async fetch(journal: Journal): Promise<unknown> {
    let { since } = this.checkpoint;
    for await (const batch of journal.batches(since)) {
      // It left out what the store had, which may have been brought back from a backup since then.
      if (!batch.known.every(([id, rev]) => this.#knownOf(id).has(rev))) break;
      since = this.#take(batch);
    }
    for (;;) {
      const { results, last_seq: seq } = await this.database.changes(since, this.batch);
      const batch = await this.#fetchMissing(results, since, seq);
      since = this.#take(batch);
      if (results.length < this.batch) return since;
      // What is in the journal counts only for a session that the server knows.
      if (!journal.isBegun) await this.checkpoint.save(this.store, this.checkpoint.since);
      await journal.add(batch);
    }
  }

  /**
   * The sets to merge into the target, and the documents that will have no place in the data then. For these, lists are asked
   * for that the server has only in older revisions; it has them as long as it was not compacted.
   */
  async sets(
    target: library.Handle,
    notedRoot: string | undefined,
    config: library.Config,
  ): Promise<{ sets: library.Handle[]; homeless: string[] }> {
    let sets = this.incoming.sets(notedRoot);
    if (sets.length === 0) return { sets, homeless: [] };
    let { lists, homeless } = this.#preview(sets, target, config);
    if (homeless.length > 0) {
      const older = await this.#fetchRevisions(lists, () => false);
      if (older.length > 0) {
        older.forEach((doc) => this.incoming.add(doc));
        sets.forEach((set) => set.close());
        sets = this.incoming.sets(notedRoot);
        ({ homeless } = this.#preview(sets, target, config));
      }
    }
    return { sets, homeless };
  }

  #preview(sets: library.Handle[], target: library.Handle, config: library.Config): { homeless: string[]; lists: Named[] } {
    const isEmpty = target.allDocs() === '[]';
    let merged = isEmpty ? sets[0]! : target;
    for (const set of isEmpty ? sets.slice(1) : sets) {
      const next = library.replicate(set, merged);
      if (merged !== target && merged !== sets[0]) merged.close();
      merged = next;
    }
    try {
      const data = merged.readObject({ ...config, discard_id: false, preserve_old_ordering: true });
      const shown = idsIn(data);
      const isHomeless = (id: string) => !isOrdering(id) && !shown.has(id) && !/^\d+-deleted_/.test(merged.winning(id));
      const homeless: string[] = JSON.parse(merged.allDocs()).filter(isHomeless);
      return { homeless, lists: homeless.length > 0 ? withoutContent(merged.dump()) : [] };
    } catch (error) {
      // What others have pushed only half, or written by hand, must not make the data unreadable here.
      const why = `${this.database.url}: with what the database holds, the data cannot be read: ${(error as Error).message}`;
      throw new ExchangeError(`${why}. Perhaps a push to it is still going on. Nothing was changed`, undefined, { cause: error });
    } finally {
      if (merged !== target && merged !== sets[0]) merged.close();
    }
  }

  #take({ seq, known, docs }: Batch): unknown {
    for (const [id, rev] of known) this.checkpoint.share(id, rev);
    for (const doc of docs) {
      this.incoming.add(doc);
      // A deletion that goes by another name here could not be found in the store again.
      if (doc.rev === `${doc.start}-${doc.ids[0]}`) this.checkpoint.share(doc.id, doc.rev);
    }
    return seq;
  }

  async #fetchMissing(rows: Json[], from: unknown, seq: unknown): Promise<Batch> {
    const known: [string, string][] = [];
    const wanted: Named[] = [];
    const deleted = new Set<string>();
    this.database.shaped(() => {
      for (const { id, changes, deleted: isDeleted } of rows) {
        if (id.startsWith('_')) continue;
        if (isDeleted) deleted.add(id);
        for (const { rev } of changes) {
          if (this.#knownOf(id).has(rev)) known.push([id, rev]);
          else wanted.push({ id, rev });
        }
      }
    });
    return { from, seq, known, docs: await this.#fetchRevisions(wanted, (id) => deleted.has(id)) };
  }

  async #fetchRevisions(wanted: Named[], isDeleted: (id: string) => boolean): Promise<Accepted[]> {
    const docs: Accepted[] = [];
    for (let begin = 0; begin < wanted.length; begin += this.batch) {
      const asked = wanted.slice(begin, begin + this.batch);
      const given = await this.database.bulkGet(asked);
      // What is passed over in silence would not be asked for again.
      if (given.length < asked.length) throw new ExchangeError(`${this.database.url}: the server says nothing of some revisions`);
      for (const each of given) {
        if ('members' in each) {
          const doc = this.incoming.accept(each.members, isDeleted);
          if (doc) docs.push(doc);
        } else if (typeof each.error === 'string' && each.error !== 'not_found') {
          // What is gone by now was followed by something in a later change; anything else must not be passed over.
          throw new ExchangeError(`${this.database.url}: the server does not give out a revision: ${each.error}`);
        }
      }
    }
    return docs;
  }

  #knownOf(id: string): Set<string> {
    let known = this.#known.get(id);
    if (!known) this.#known.set(id, (known = new Set((this.store.tree(id) ?? []).map(serverRev))));
    return known;
  }
}

function idsIn(data: unknown): Set<string> {
  const ids = new Set<string>();
  const left: unknown[] = [data];
  while (left.length > 0) {
    const each = left.pop();
    if (typeof each !== 'object' || each === null) continue;
    const id = (each as { _id?: unknown })._id;
    if (typeof id === 'string') ids.add(id);
    for (const member of Object.values(each)) left.push(member);
  }
  return ids;
}

// The revisions of lists whose contents are not here.
function withoutContent(text: string): Named[] {
  const merged = new SyncText(text);
  const named: Named[] = [];
  for (const [id, tree] of merged.trees()) {
    if (!isOrdering(id)) continue;
    for (const revision of tree) {
      if (merged.contentOf(revision) === undefined) named.push({ id, rev: serverRev(revision) });
    }
  }
  return named.slice(0, mostOlderLists);
}
