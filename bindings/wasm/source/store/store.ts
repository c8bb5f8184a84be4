// What applications hold: data that is read at once, changed by functions, and kept, merged and exchanged behind it.

import { applied, changesBetween, type Operation } from './changes.js';
import { Engine, type Change, type Conflict, type EngineOptions, type Origin, type Revision } from './engine.js';
import type { ExchangeOptions, ExchangeResult } from './couchdb/exchange.js';
import type { ThreeWay } from '#library';
import { engineInWorker } from './remote.js';

export { applied as applyChanges, changesBetween } from './changes.js';
export type { Conflict, ExchangeOptions, ExchangeResult, Operation, Origin, Revision, ThreeWay };

export interface StoreOptions<T> extends EngineOptions {
  /**
   * The data of a new store. It has to be the same in every copy of the data, as its documents are made under the same ids.
   * Leave it out for a copy that gets its first data by merging.
   */
  initial?: T & object;
  /** true: all work is done in a worker. A function makes the worker, of a script that imports "zentadbpp/store-worker". */
  worker?: boolean | (() => Worker);
}

export interface StoreChange<T> {
  value: T;
  /** What makes the new value of the one before, as operations of a JSON Patch, with what was there before. */
  operations: readonly Operation[];
  origin: Origin;
}

export type EngineLike = Pick<
  Engine,
  'update' | 'seen' | 'merge' | 'resolve' | 'refresh' | 'exchange' | 'dump' | 'conflicts' | 'threeWay' | 'history' | 'close'
> & { snapshot(): { version: number; value: object } | Promise<{ version: number; value: object }> };

export class Store<T> {
  #engine: EngineLike;
  #value: T;
  #version: number;
  #listeners = new Set<(change: StoreChange<T>) => void>();
  #updates: Promise<unknown> = Promise.resolve();

  private constructor(engine: EngineLike, version: number, value: T) {
    this.#engine = engine;
    this.#version = version;
    this.#value = value;
  }

  /** Opens the data of that name, or in Node in that file. */
  static async open<T>(name: string, options: StoreOptions<T> = {}): Promise<Store<T>> {
    const { worker, ...rest } = options;
    const early: Change[] = [];
    let take = (change: Change): void => void early.push(change);
    const emit = (change: Change) => take(change);
    const remote = worker ? await engineInWorker(worker, name, rest, emit) : undefined;
    const engine: EngineLike = remote ?? (await Engine.open(name, rest, emit));
    const { version, value } = await engine.snapshot();
    const store = new Store<T>(engine, version, value as T);
    take = (change) => store.#take(change);
    early.forEach(take);
    return store;
  }

  /** The data. It is never changed; after a change there is another one, which shares what stayed the same. */
  read(): T {
    return this.#value;
  }

  /**
   * Changes the data: to the given value, or to what the function makes of it. The function may change what it gets, or
   * return something else. Done when the change is kept.
   */
  update(change: T | ((data: T) => T | void)): Promise<void> {
    const done = this.#updates.then(async () => {
      let next = change as T;
      if (typeof change === 'function') {
        const draft = structuredClone(this.#value);
        next = (change as (data: T) => T | void)(draft) ?? draft;
      }
      const operations = changesBetween(this.#value, next);
      if (operations.length > 0) await this.#engine.update(this.#version, operations);
    });
    this.#updates = done.catch(() => {});
    return done;
  }

  /** Merges another copy: another store, or a sync JSON. */
  async merge(other: Store<T> | string): Promise<void> {
    await this.#engine.merge(typeof other === 'string' ? other : await other.dump());
  }

  /** The sync JSON: the data with its history, to be sent to another copy. */
  dump(): Promise<string> {
    return this.#engine.dump();
  }

  conflicts(): Promise<Conflict[]> {
    return this.#engine.conflicts();
  }

  /** Resolves the conflict of a document with one of its open revisions. */
  resolve(id: string, rev: string): Promise<void> {
    return this.#engine.resolve(id, rev);
  }

  /** What is known about a document in conflict, and what can be merged of it: that of `threeWay` of the library. */
  threeWay(id: string): Promise<ThreeWay> {
    return this.#engine.threeWay(id);
  }

  /** The winning revision of a document and all before it, newest first. */
  history(id: string): Promise<Revision[]> {
    return this.#engine.history(id);
  }

  /** Calls the function after every change, whoever made it. Returns what ends that. */
  onChange(listener: (change: StoreChange<T>) => void): () => void {
    this.#listeners.add(listener);
    return () => void this.#listeners.delete(listener);
  }

  /** Fetches what a CouchDB database has and this store lacks, and sends what it lacks. */
  exchange(url: string, options: ExchangeOptions = {}): Promise<ExchangeResult> {
    return this.#engine.exchange(url, options);
  }

  async close(): Promise<void> {
    await this.#updates;
    await this.#engine.close();
    this.#listeners.clear();
  }

  #take({ version, operations, origin }: Change): void {
    if (version <= this.#version) return;
    this.#version = version;
    this.#value = applied(this.#value, operations) as T;
    void this.#engine.seen(version);
    for (const listener of this.#listeners) listener({ value: this.#value, operations, origin });
  }
}

export const openStore = Store.open;
