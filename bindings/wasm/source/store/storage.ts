// Where the text of a store is kept. All that is written becomes visible at once or not at all.

export interface Kept {
  text: string;
  /** Changes whenever the text does. */
  tag: string;
}

export interface Storage {
  /**
   * Reads what is there, hands it to `change`, and keeps the text that this returns; nothing is written for undefined. No
   * other tab or process comes in between.
   */
  transact(change: (kept: Kept | undefined) => string | undefined): Promise<Kept | undefined>;
  readNote(name: string): Promise<unknown>;
  writeNote(name: string, note: unknown): Promise<void>;
  removeNote(name: string): Promise<void>;
  close(): void;
}

export const newTag = () => Array.from(crypto.getRandomValues(new Uint32Array(4)), (word) => word.toString(36)).join('-');

/** Keeps nothing beyond the life of the page or process. */
export class MemoryStorage implements Storage {
  #kept: Kept | undefined;
  #notes = new Map<string, string>();

  async transact(change: (kept: Kept | undefined) => string | undefined) {
    const text = change(this.#kept);
    if (text !== undefined) this.#kept = { text, tag: newTag() };
    return this.#kept;
  }

  async readNote(name: string) {
    const note = this.#notes.get(name);
    return note === undefined ? undefined : JSON.parse(note);
  }

  async writeNote(name: string, note: unknown) {
    this.#notes.set(name, JSON.stringify(note));
  }

  async removeNote(name: string) {
    this.#notes.delete(name);
  }

  close() {}
}
