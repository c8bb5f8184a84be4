// The revisions of a document, and what a server calls them. One that the library made has the same name there,
// "3-<hash>_<suffix>"; one that was made on the server has digits only, and comes in with these as its hash.

export interface Revision {
  generation: number;
  entry: string; // hash_suffix
  parent: number; // a place in the tree; -1 for the first one
  hasChild: boolean;
}

export type Tree = readonly Revision[]; // parents first

const libraryHash = /^(?:deleted|resolved|empty|x\d+|[0-9a-f]{64})$/;
const namePart = '[^\\s,\\-_\\x00-\\x20\\x7f]+';
const acceptable = new RegExp(`^${namePart}(?:_${namePart})?$`);

export const hashOf = (entry: string) => entry.split('_', 1)[0]!;
export const isLibraryHash = (hash: string) => libraryHash.test(hash);
export const isOrdering = (id: string) => id.startsWith('ord-');
/** Without content: deleted, or closed. */
export const isEnded = (entry: string) => ['deleted', 'resolved'].includes(hashOf(entry));
export const serverId = (entry: string) => (isLibraryHash(hashOf(entry)) ? entry : hashOf(entry));
export const serverRev = ({ generation, entry }: Revision) => `${generation}-${serverId(entry)}`;
/** Whether the library can keep a revision of this name. */
export const isAcceptable = (id: unknown): id is string => typeof id === 'string' && acceptable.test(id);
/** The first revision, as the store names it, and as hosts do that send what the library makes for _bulk_docs. */
export const firstRevs = (tree: Tree) => [`1-${serverId(tree[0]!.entry)}`, `1-${hashOf(tree[0]!.entry)}`];

/** The places of a revision and all before it, newest first. */
export function* pathFrom(tree: Tree, place: number): Generator<number> {
  for (let at = place; at >= 0; at = tree[at]!.parent) yield at;
}

export type History = (string | History)[];

/** The tree that a history array of the sync JSON holds. */
export function treeOf(history: History): Tree {
  const revisions: Revision[] = [];
  const left: { chain: History; parent: number }[] = [{ chain: history, parent: -1 }];
  while (left.length > 0) {
    const { chain, parent } = left.pop()!;
    let last = parent;
    for (const each of chain) {
      if (typeof each !== 'string') {
        for (const branch of each) left.push({ chain: typeof branch === 'string' ? [branch] : branch, parent: last });
        continue;
      }
      const above = revisions[last];
      if (above) above.hasChild = true;
      revisions.push({ generation: (above?.generation ?? 0) + 1, entry: each, parent: last, hasChild: false });
      last = revisions.length - 1;
    }
  }
  return revisions;
}

/** 53 bits by which it is remembered that both sides have a revision; not a defence against anybody. */
export function markOf(id: string, rev: string): number {
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
