/// <reference lib="esnext.disposable" />

// The types of zentadbpp. What each function does, takes and fails with is told in zentadbpp.h: `allDocs` here is
// `sync_json_all_docs` there, and with a handle `sync_json_ptr_all_docs`.

/** An id, a revision string, or JSON. Null stands for a null pointer. */
export type Text = string | null;

/** What the library says about a failed call; the message is the text as it stands. */
export class ZentadbError extends Error {
  constructor(text: string);
  /** The key of an error record; any other text is its own key. */
  readonly key: string;
  readonly function: string | undefined;
  readonly filename: string | undefined;
  readonly line: number | undefined;
  /** What there is to tell about the case, such as an id. */
  readonly args: string | undefined;
  /** The sync JSON of what an import took all the same, where it refused only a part. */
  readonly imported?: string;
}

/**
 * A sync JSON that was opened once. Closed by `close`, at the end of a `using`, or some time after it is no longer
 * referred to. What makes a new document set gives another handle and leaves this one as it is.
 */
export class Handle {
  constructor(syncJson: Text);
  static fromBulkGet(bulkGet: Text, config?: Text): Handle;
  readonly closed: boolean;
  close(): void;
  [Symbol.dispose](): void;
  dump(): string;
  /** Writes to the handle, unless the configuration has "preserve_old_ordering". */
  read(config?: Text): string;
  data(id: Text, rev: Text, config?: Text): string;
  update(input: Text, config?: Text): Handle;
  resolve(id: Text, rev: Text): Handle;
  allWinning(): Handle;
  prune(depth: number, skipWinning?: boolean): Handle;
  pruneIds(ids: Text, depth: number, skipWinning?: boolean): Handle;
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
  created(old: Handle): string[];
  updated(old: Handle): string[];
  deleted(old: Handle): string[];
  toBulkDocs(): string;
}

export function version(): string;
export function update(input: Text, syncJson: Text, config?: Text): string;
export function read(syncJson: Text, config?: Text): string;
export function data(syncJson: Text, id: Text, rev: Text, config?: Text): string;
export function flatten(input: Text, config?: Text): string;
export function unflatten(input: Text, config?: Text, rootId?: Text): string;
/** Merges the source into the target, of which a new one is made: two texts, or two handles. */
export function replicate(source: Handle, target: Handle, config?: Text): Handle;
export function replicate(source: Text, target: Text, config?: Text): string;
export function resolve(syncJson: Text, id: Text, rev: Text): string;
export function winning(syncJson: Text, id: Text): string;
export function leafs(syncJson: Text, id: Text): string[];
export function conflicting(syncJson: Text, id: Text): string[];
export function ancestor(syncJson: Text, id: Text, rev: Text): string;
export function siblings(syncJson: Text, id: Text, rev: Text): string[];
export function history(syncJson: Text, id: Text, rev: Text): string;
export function available(syncJson: Text, revOrId: Text): boolean;
export function root(syncJson: Text): string;
export function allDocs(syncJson: Text): string;
export function allWinning(syncJson: Text): string;
export function instances(syncJson: Text): string[];
export function unresolved(syncJson: Text): string[];
export function created(syncJson: Text, oldSyncJson: Text): string[];
export function updated(syncJson: Text, oldSyncJson: Text): string[];
export function deleted(syncJson: Text, oldSyncJson: Text): string[];
export function prune(syncJson: Text, depth: number, skipWinning?: boolean): string;
export function pruneIds(syncJson: Text, ids: Text, depth: number, skipWinning?: boolean): string;
export function toBulkDocs(syncJson: Text): string;
export function fromBulkGet(bulkGet: Text, config?: Text): string;
export function diff(before: Text, after: Text, config?: Text): string;
export function patch(before: Text, operations: Text): string;
export function compress(object: Text): string;
export function uncompress(object: Text): string;
/**
 * The names of the contents that `known` does not have and that do not hash to their name. The library takes names as
 * they are, so a host that merges texts from people or places it does not trust calls this first. Names of other kinds,
 * such as those that servers give, are not checked.
 */
export function verify(syncJson: Text, known?: Text): string[];

/** A place of the data that would not come back as it is given. */
export interface Difference {
  /** As jq takes it: ".tasks[1].text"; "." for all of the data. */
  place: string;
  /**
   * "deleted": the id was deleted before and stays so. "shared_id": another object with this id is kept in its place.
   * "number": beyond what a double holds.
   */
  reason: 'deleted' | 'shared_id' | 'number' | 'changed';
  /** Of the object, where the reason is its id; else empty. */
  id: string;
}

/** Where data would not come back from a store as it is given, were the store updated with it. */
export function check(data: Text, config?: Text, store?: Handle | Text): Difference[];

export interface Version {
  revision: string;
  deleted: boolean;
  /** Null where it is deleted or was pruned. */
  content: Record<string, unknown> | null;
}

/** What is known about a document in conflict. */
export interface ThreeWay {
  id: string;
  /** The last version that all have in their history. */
  common: Version;
  /** The winning one, then the conflicting ones in ascending order. */
  versions: Version[];
  /** At a clash, of two versions, what the winner has; null where that has no content. */
  merged: Record<string, unknown> | null;
  /** The places that more than one version changed; `value` is missing where a version has no such member. */
  clashes: { place: string; common: { value?: unknown }; versions: { value?: unknown }[] }[];
}

export function threeWay(store: Handle | Text, id: Text, config?: Text): ThreeWay;
