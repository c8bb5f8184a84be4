// What a long pull has got so far, a note for each batch, so that one that is interrupted goes on where it was. The data itself
// changes only when all is there: half of it would look as if the other half had been removed.

import type { Notes } from './checkpoint.js';
import type { Accepted } from './incoming.js';

export interface Batch {
  /** Where in the server's changes it begins and ends. */
  from: unknown;
  seq: unknown;
  /** What the store had already, as [id, rev]. */
  known: [string, string][];
  docs: Accepted[];
}

interface Line extends Batch {
  session: string;
}

export class Journal {
  #lines = 0;

  constructor(
    private readonly notes: Notes,
    private readonly name: string,
    private readonly session: string,
  ) {}

  get isBegun(): boolean {
    return this.#lines > 0;
  }

  /** What an interrupted pull left that began there; other notes are of no use. */
  async *batches(from: unknown): AsyncGenerator<Batch> {
    for (let at = from; ; ) {
      const line = (await this.notes.readNote(this.#nameOf(this.#lines))) as Line | undefined;
      if (line?.session !== this.session || line.from !== at) return;
      yield line;
      this.#lines += 1; // one that is not taken is written over
      at = line.seq;
    }
  }

  async add(batch: Batch): Promise<void> {
    await this.notes.writeNote(this.#nameOf(this.#lines), { ...batch, session: this.session } satisfies Line);
    this.#lines += 1;
  }

  // From the end, so that what a crash leaves is still a beginning.
  async remove(): Promise<void> {
    while (this.#lines > 0) {
      this.#lines -= 1;
      await this.notes.removeNote(this.#nameOf(this.#lines));
    }
  }

  #nameOf(line: number): string {
    return `${this.name}-pulled-${line}`;
  }
}
