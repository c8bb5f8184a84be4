// A sync JSON, looked into. Contents stay as they are written.

import { membersOf, objectText } from './json-text.js';
import { hashOf, isEnded, treeOf, type Revision, type Tree } from './revisions.js';

export class SyncText {
  readonly #histories: Map<string, string>;
  readonly #contents: Map<string, string>;
  readonly #trees = new Map<string, Tree>();
  /** Undefined in an empty set. */
  readonly root: string | undefined;

  constructor(readonly text: string) {
    const parts = membersOf(text);
    this.#histories = membersOf(parts.get('d') ?? '{}');
    this.#contents = membersOf(parts.get('o') ?? '{}');
    const root = parts.get('r');
    this.root = root && JSON.parse(root);
  }

  get ids(): string[] {
    return [...this.#histories.keys()];
  }

  tree(id: string): Tree | undefined {
    const history = this.#histories.get(id);
    if (history !== undefined && !this.#trees.has(id)) this.#trees.set(id, treeOf(JSON.parse(history)));
    return this.#trees.get(id);
  }

  *trees(): Generator<[id: string, tree: Tree]> {
    for (const id of this.#histories.keys()) yield [id, this.tree(id)!];
  }

  /** Undefined for a content that was pruned. */
  contentOf({ entry }: Pick<Revision, 'entry'>): string | undefined {
    const hash = hashOf(entry);
    return isEnded(entry) || hash === 'empty' ? '{}' : this.#contents.get(hash);
  }

  /** The same set with this root, whose history is that of `other` if the set does not have it; undefined if neither has. */
  rootedAt(root: string, other: SyncText): string | undefined {
    const history = this.#histories.get(root) ?? other.#histories.get(root);
    if (history === undefined) return undefined;
    const histories = new Map(this.#histories).set(root, history);
    return `{"d": ${objectText(histories)}, "o": ${objectText(this.#contents)}, "r": ${JSON.stringify(root)}}`;
  }
}
