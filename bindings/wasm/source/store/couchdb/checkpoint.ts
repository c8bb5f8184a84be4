// What a store remembers of its last exchange with a database: up to where it has seen the server's changes, and a mark for
// every last revision that both have. It counts only if nothing can be missed by it; otherwise everything is compared again,
// and still only what is missing travels:
//
//   - The server has to be in a later state than then. Each checkpoint has a name of its own, which a local document of the
//     server lists. A database that was made anew, or brought back from a backup, does not list it.
//   - So has the store. One that was brought back from a backup lacks revisions that have a mark.

import { newTag } from '../storage.js';
import type { Database } from './database.js';
import { markOf, pathFrom, serverRev } from './revisions.js';
import type { SyncText } from './sync-text.js';

export interface Notes {
  readNote(name: string): Promise<unknown>;
  writeNote(name: string, note: unknown): Promise<void>;
  removeNote(name: string): Promise<void>;
}

interface Saved {
  session: string;
  name: string;
  since: unknown;
  shared: number[];
}

const mostNames = 100; // copies of one store that began with one checkpoint take their turns in the list

export class Checkpoint {
  readonly noteName: string;
  /** Names what is remembered; a journal that began after it goes on after it. */
  session = newTag();
  since: unknown = 0;
  #shared = new Set<number>();
  #isChanged = true;

  constructor(
    private readonly database: Database,
    private readonly notes: Notes,
  ) {
    this.noteName = `exchange-${markOf(database.url, '').toString(36)}`;
  }

  async recall(store: SyncText): Promise<void> {
    const saved = (await this.notes.readNote(this.noteName)) as Saved | undefined;
    if (!saved?.session || !(await this.#isValid(saved, store))) return;
    this.session = saved.session;
    this.since = saved.since;
    this.#shared = new Set(saved.shared);
    this.#isChanged = false;
  }

  isShared(id: string, rev: string): boolean {
    return this.#shared.has(markOf(id, rev));
  }

  share(id: string, rev: string): void {
    const mark = markOf(id, rev);
    if (this.#shared.has(mark)) return;
    this.#shared.add(mark);
    this.#isChanged = true;
  }

  /** Remembers what is shared of the store, unless nothing is new or the server does not allow it. */
  async save(store: SyncText, since: unknown): Promise<void> {
    if (!this.#isChanged && since === this.since) return;
    this.since = since;
    this.#isChanged = false;
    const name = newTag();
    if (!(await this.#noteOnServer(name))) return;
    const saved: Saved = { session: this.session, name, since, shared: [...this.#newestOf(store)] };
    await this.notes.writeNote(this.noteName, saved);
  }

  async #isValid(saved: Saved, store: SyncText): Promise<boolean> {
    if (!this.database.hasReached(saved.since)) return false;
    const local = await this.database.local(this.#localName(saved.session));
    if (!local?.saved?.includes(saved.name)) return false;
    const marks = new Set(saved.shared);
    for (const [id, tree] of store.trees()) {
      if (marks.size === 0) break;
      for (const revision of tree) marks.delete(markOf(id, serverRev(revision)));
    }
    return marks.size === 0;
  }

  // Of each branch the newest mark says all that the older ones say.
  #newestOf(store: SyncText): Set<number> {
    const newest = new Set<number>();
    for (const [id, tree] of store.trees()) {
      const seen = new Set<number>();
      tree.forEach((tip, place) => {
        if (tip.hasChild) return;
        for (const at of pathFrom(tree, place)) {
          if (seen.has(at)) break;
          seen.add(at);
          const mark = markOf(id, serverRev(tree[at]!));
          if (!this.#shared.has(mark)) continue;
          newest.add(mark);
          break;
        }
      });
    }
    return newest;
  }

  async #noteOnServer(name: string): Promise<boolean> {
    const local = this.#localName(this.session);
    for (let attempt = 0; attempt < 3; attempt += 1) {
      const there = (await this.database.local(local)) ?? {};
      const saved = [name, ...(there.saved ?? [])].slice(0, mostNames);
      if (await this.database.putLocal(local, { ...there, saved })) return true;
    }
    return false;
  }

  #localName(session: string): string {
    return `zentadb-${session}`;
  }
}
