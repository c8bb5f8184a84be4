// The work behind a store: it holds the handle, keeps its text, and says what changed. It runs on the page or in a worker;
// all that goes in and out can be sent between the two.

import * as library from '#library';
import { applied, changesBetween, type Operation } from './changes.js';
import { exchange, type ExchangeOptions, type ExchangeResult } from './couchdb/exchange.js';
import { MemoryStorage, type Kept, type Storage } from './storage.js';
// The build puts one of storage-browser and storage-node in its place.
import { defaultStorage } from './default-storage.js';

export type Origin = 'local' | 'merge' | 'resolve' | 'tab' | 'exchange';

export interface EngineOptions {
  initial?: object;
  config?: library.Config;
  /** Where the data is kept: "default" is IndexedDB in a browser and a file in Node. */
  storage?: 'default' | 'memory';
}

export interface Change {
  version: number;
  operations: Operation[];
  origin: Origin;
}

export interface Revision {
  id: string;
  rev: string;
  /** Whether the content is stored; pruning takes contents away, and so does exchange with a server. */
  available: boolean;
  value?: unknown;
}

export interface Conflict {
  id: string;
  winning: Revision;
  others: Revision[];
}

interface State {
  handle: library.Handle;
  value: object;
}

const empty = '{}';

export class Engine {
  #handle = new library.Handle(empty);
  #tag: string | undefined;
  #version = 0;
  // By version, from the one that the store has seen last.
  #states = new Map<number, State>();
  #turn: Promise<unknown> = Promise.resolve();
  #exchanges: Promise<unknown> = Promise.resolve();
  #channel: BroadcastChannel | undefined;
  #emit: (change: Change) => void = () => {};

  private constructor(
    private readonly storage: Storage,
    private readonly config: library.Config,
  ) {
    this.#states.set(0, { handle: this.#handle, value: {} });
  }

  static async open(name: string, options: EngineOptions, emit: (change: Change) => void) {
    await library.load();
    const isShared = options.storage !== 'memory';
    const storage = isShared ? await defaultStorage(name) : new MemoryStorage();
    const engine = new Engine(storage, { instance_id: 'store', ...options.config });
    const { initial } = options;
    // Data that is there already is left as it is.
    await engine.#commit('local', (handle) =>
      initial && handle.allDocs() === '[]' ? handle.update(initial, engine.config) : handle,
    );
    engine.#emit = emit;
    if (isShared && typeof BroadcastChannel === 'function') {
      engine.#channel = new BroadcastChannel(`zentadbpp:${name}`);
      engine.#channel.onmessage = () => void engine.refresh().catch(() => {});
      (engine.#channel as { unref?: () => void }).unref?.();
    }
    return engine;
  }

  get #state(): State {
    return this.#states.get(this.#version)!;
  }

  snapshot() {
    return { version: this.#version, value: this.#state.value };
  }

  // One after the other: each begins with what the one before made.
  #inTurn<R>(work: () => Promise<R>): Promise<R> {
    const done = this.#turn.then(work);
    this.#turn = done.catch(() => {});
    return done;
  }

  // Takes the source over: it is closed, or is what is returned. The memory of handles is not seen by the garbage collector.
  #merged(source: library.Handle, target: library.Handle): library.Handle {
    if (target.allDocs() === '[]') return source;
    const merged = source.allDocs() === '[]' ? target : library.replicate(source, target);
    source.close();
    return merged;
  }

  #allMerged(sources: library.Handle[], target: library.Handle): library.Handle {
    return sources.reduce((merged, source) => {
      const next = this.#merged(source, merged);
      if (merged !== target && merged !== next) merged.close();
      return next;
    }, target);
  }

  // Makes a new state of the newest one, which may be another tab's, and keeps it. Not in turn.
  async #commit(origin: Origin, make: (handle: library.Handle) => library.Handle): Promise<void> {
    let next: library.Handle | undefined;
    const kept = await this.storage.transact((there: Kept | undefined) => {
      const isNews = there !== undefined && there.tag !== this.#tag;
      const newest = isNews ? this.#merged(new library.Handle(there.text), this.#handle) : this.#handle;
      const made = make(newest);
      if (made !== newest && newest !== this.#handle) newest.close();
      next = made === this.#handle ? undefined : made;
      if (made === newest && !isNews) return undefined;
      const before = made === newest ? there?.text : undefined;
      made.read(this.config); // which stores the order of lists after a merge
      const text = made.dump();
      return text === before ? undefined : text;
    });
    const isWritten = kept !== undefined && kept.tag !== this.#tag;
    this.#tag = kept?.tag;
    if (!next) return;
    const before = this.#state.value;
    this.#handle = next;
    const value = next.readObject(this.config) as object;
    const operations = changesBetween(before, value);
    this.#version += 1;
    this.#states.set(this.#version, { handle: next, value });
    this.#emit({ version: this.#version, operations, origin });
    if (isWritten && origin !== 'tab') this.#channel?.postMessage('changed');
  }

  /** The host's changes to the data that it read at that version. */
  update(version: number, operations: Operation[]): Promise<void> {
    return this.#inTurn(async () => {
      const base = this.#states.get(version);
      if (!base) throw new Error(`version ${version} of the store is gone`);
      const data = applied(base.value, operations) as object;
      const edited = base.handle.update(data, this.config);
      await this.#commit('local', (newest) =>
        newest === base.handle ? edited : this.#merged(edited, newest),
      );
    });
  }

  /** The store has seen that version, and changes no older one any more. */
  seen(version: number): Promise<void> {
    return this.#inTurn(async () => {
      for (const [old, { handle }] of this.#states) {
        if (old >= version) continue;
        this.#states.delete(old);
        handle.close();
      }
    });
  }

  merge(syncJson: string): Promise<void> {
    return this.#inTurn(() => this.#commit('merge', (newest) => this.#merged(new library.Handle(syncJson), newest)));
  }

  resolve(id: string, rev: string): Promise<void> {
    return this.#inTurn(() =>
      this.#commit('resolve', (newest) => {
        const losing = [newest.winning(id), ...newest.conflicting(id)].filter((each) => each !== rev);
        if (losing.length === newest.conflicting(id).length + 1) throw new Error(`${id} has no open revision ${rev}`);
        return losing.reduce((handle, each) => {
          const resolved = handle.resolve(id, each);
          if (handle !== newest) handle.close();
          return resolved;
        }, newest);
      }),
    );
  }

  /** Takes over what another tab or process wrote. */
  refresh(): Promise<void> {
    return this.#inTurn(() => this.#commit('tab', (newest) => newest));
  }

  exchange(url: string, options: ExchangeOptions): Promise<ExchangeResult> {
    // One at a time, but the store goes on meanwhile: a server may take long.
    const done = this.#exchanges.then(async () => {
      await this.refresh();
      return exchange(url, options, {
        config: this.config,
        handle: () => this.#handle,
        value: () => this.#state.value,
        merge: (sets) => this.#inTurn(() => this.#commit('exchange', (newest) => this.#allMerged(sets, newest))),
        readNote: (name) => this.storage.readNote(name),
        writeNote: (name, note) => this.storage.writeNote(name, note),
        removeNote: (name) => this.storage.removeNote(name),
      });
    });
    this.#exchanges = done.catch(() => {});
    return done;
  }

  async dump() {
    return this.#handle.dump();
  }

  #revision(id: string, rev: string): Revision {
    const available = this.#handle.available(rev);
    return { id, rev, available, ...(available && { value: this.#handle.dataObject(id, rev, this.config) }) };
  }

  async conflicts(): Promise<Conflict[]> {
    return this.#handle.unresolved().map((id) => ({
      id,
      winning: this.#revision(id, this.#handle.winning(id)),
      others: this.#handle.conflicting(id).map((rev) => this.#revision(id, rev)),
    }));
  }

  async threeWay(id: string): Promise<library.ThreeWay> {
    return library.threeWay(this.#handle, id, this.config);
  }

  async history(id: string): Promise<Revision[]> {
    const revs: string[] = JSON.parse(this.#handle.history(id, this.#handle.winning(id)));
    return revs.map((rev) => this.#revision(id, rev));
  }

  async close() {
    await this.#exchanges;
    await this.#turn;
    for (const { handle } of this.#states.values()) handle.close();
    this.#channel?.close();
    this.storage.close();
  }
}
