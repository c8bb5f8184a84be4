/// <reference lib="esnext.disposable" />

// The types of zentadbpp. zentadbpp.h documents each function, its arguments and errors: `allDocs` is
// `sync_json_all_docs`, and with a handle `sync_json_ptr_all_docs`.

/** An id, a revision string, or JSON. Null means a null pointer. */
export type Text = string | null;
/** JSON as a text, or a value for JSON.stringify. */
export type Json = Text | object;
/** The configuration; zentadbpp.h documents each member. */
export interface Config {
  instance_id?: string;
  flatten_objects?: boolean;
  id_generation_rules?: string;
  indexed_array_paths?: string;
  discard_id?: boolean;
  force_fast_hash_only?: boolean;
  include_full_data_hash?: boolean;
  preserve_old_ordering?: boolean;
  compressed?: boolean;
}

/**
 * Loads the library for all other functions. Needed once, and only if WebAssembly loads asynchronously: on the pages of
 * a browser.
 */
export function load(): Promise<void>;

/** A failed call; the message is the error text of the library. */
export class ZentadbError extends Error {
  constructor(text: string);
  /** The key of an error record; any other text is its own key. */
  readonly key: string;
  readonly function: string | undefined;
  readonly filename: string | undefined;
  readonly line: number | undefined;
  /** Details, such as an id. */
  readonly args: string | undefined;
  /** If an import rejected only a part: the sync JSON of the rest. */
  readonly imported?: string;
}

/**
 * A parsed sync JSON of data of type T. It is closed by `close`, at the end of a `using`, or some time after the last
 * reference to it. Functions that make a new document set return another handle and do not change this one.
 */
export class Handle<T = unknown> {
  constructor(syncJson: Json);
  static fromBulkGet<T = unknown>(bulkGet: Json, config?: Text | Config): Handle<T>;
  readonly closed: boolean;
  close(): void;
  [Symbol.dispose](): void;
  /** Throws, so that a handle is not mistaken for an object. */
  toJSON(): never;
  dump(): string;
  /** Writes to the handle, unless the configuration has "preserve_old_ordering". */
  read(config?: Text | Config): string;
  readObject(config?: Text | Config): T;
  data(id: Text, rev: Text, config?: Text | Config): string;
  dataObject<U = unknown>(id: Text, rev: Text, config?: Text | Config): U;
  update(input: T | Text, config?: Text | Config): Handle<T>;
  resolve(id: Text, rev: Text): Handle<T>;
  allWinning(): Handle<T>;
  prune(depth: number, skipWinning?: boolean): Handle<T>;
  pruneIds(ids: Text | string[], depth: number, skipWinning?: boolean): Handle<T>;
  winning(id: Text): string;
  leafs(id: Text): string[];
  conflicting(id: Text): string[];
  ancestor(id: Text, rev: Text): string;
  siblings(id: Text, rev: Text): string[];
  history(id: Text, rev: Text): string;
  available(revOrId: Text): boolean;
  root(): string;
  allDocs(): string;
  instances(): string[];
  unresolved(): string[];
  created(old: Handle<T>): string[];
  updated(old: Handle<T>): string[];
  deleted(old: Handle<T>): string[];
  toBulkDocs(): string;
}

export function version(): string;
export function update(input: Json, syncJson: Json, config?: Text | Config): string;
export function read(syncJson: Json, config?: Text | Config): string;
export function readObject<T = unknown>(syncJson: Json, config?: Text | Config): T;
export function data(syncJson: Json, id: Text, rev: Text, config?: Text | Config): string;
export function dataObject<T = unknown>(syncJson: Json, id: Text, rev: Text, config?: Text | Config): T;
export function flatten(input: Json, config?: Text | Config): string;
export function unflatten(input: Json, config?: Text | Config, rootId?: Text): string;
/** Merges the source into the target and returns the new target: two texts, or two handles. */
export function replicate<T>(source: Handle<T>, target: Handle<T>, config?: Text | Config): Handle<T>;
export function replicate(source: Json, target: Json, config?: Text | Config): string;
export function resolve(syncJson: Json, id: Text, rev: Text): string;
export function winning(syncJson: Json, id: Text): string;
export function leafs(syncJson: Json, id: Text): string[];
export function conflicting(syncJson: Json, id: Text): string[];
export function ancestor(syncJson: Json, id: Text, rev: Text): string;
export function siblings(syncJson: Json, id: Text, rev: Text): string[];
export function history(syncJson: Json, id: Text, rev: Text): string;
export function available(syncJson: Json, revOrId: Text): boolean;
export function root(syncJson: Json): string;
export function allDocs(syncJson: Json): string;
export function allWinning(syncJson: Json): string;
export function instances(syncJson: Json): string[];
export function unresolved(syncJson: Json): string[];
export function created(syncJson: Json, oldSyncJson: Json): string[];
export function updated(syncJson: Json, oldSyncJson: Json): string[];
export function deleted(syncJson: Json, oldSyncJson: Json): string[];
export function prune(syncJson: Json, depth: number, skipWinning?: boolean): string;
export function pruneIds(syncJson: Json, ids: Text | string[], depth: number, skipWinning?: boolean): string;
export function toBulkDocs(syncJson: Json): string;
export function fromBulkGet(bulkGet: Json, config?: Text | Config): string;
export function diff(before: Json, after: Json, config?: Text | Config): string;
export function patch(before: Json, operations: Json): string;
export function compress(object: Json): string;
export function uncompress(object: Json): string;
/**
 * The names of the contents that `known` does not have and that do not hash to their name. The library does not verify
 * names, so call this before you merge a text from an untrusted source. Other kinds of names, such as those of servers,
 * are not verified.
 */
export function verify(syncJson: Json, known?: Json): string[];

/** A place of the data that a read would not return unchanged. */
export interface Difference {
  /** In the syntax of jq: ".tasks[1].text"; "." for all data. */
  place: string;
  /**
   * "deleted": the id was deleted before and stays deleted. "shared_id": another object with this id replaces it.
   * "number": a double cannot represent it.
   */
  reason: 'deleted' | 'shared_id' | 'number' | 'changed';
  /** Of the object, if the reason is its id; else empty. */
  id: string;
}

/** The places of the data that a read would not return unchanged if the store were updated with it. */
export function check(data: Json, config?: Text | Config, store?: Handle | Json): Difference[];

export interface Version {
  revision: string;
  deleted: boolean;
  /** Null if it is deleted or was pruned. */
  content: Record<string, unknown> | null;
}

/** A document in conflict. */
export interface ThreeWay {
  id: string;
  /** The last common version. */
  common: Version;
  /** The winning one, then the conflicting ones in ascending order. */
  versions: Version[];
  /** At a clash the value of the winner; null if the winner has no content. */
  merged: Record<string, unknown> | null;
  /** The places that more than one version changed; `value` is missing if a version has no such member. */
  clashes: { place: string; common: { value?: unknown }; versions: { value?: unknown }[] }[];
}

export function threeWay(store: Handle | Json, id: Text, config?: Text | Config): ThreeWay;
