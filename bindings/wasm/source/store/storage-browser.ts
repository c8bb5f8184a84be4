// A store in IndexedDB: a database for each, which holds the text and the notes.

import { newTag, type Kept, type Storage } from './storage.js';

const table = 'kept';
const textKey = 'text';

const settled = <R>(request: IDBRequest<R>) =>
  new Promise<R>((resolve, reject) => {
    request.onsuccess = () => resolve(request.result);
    request.onerror = () => reject(request.error);
  });

class IndexedDbStorage implements Storage {
  constructor(private readonly database: IDBDatabase) {
    // Lets another tab delete or upgrade the database.
    database.onversionchange = () => database.close();
  }

  transact(change: (kept: Kept | undefined) => string | undefined) {
    return new Promise<Kept | undefined>((resolve, reject) => {
      // Resolved when the data is on the disk, so that nothing that was confirmed is lost with the machine.
      const transaction = this.database.transaction(table, 'readwrite', { durability: 'strict' });
      const entries = transaction.objectStore(table);
      let result: Kept | undefined;
      let failure: unknown;
      transaction.oncomplete = () => resolve(result);
      transaction.onabort = () => reject(failure ?? transaction.error);
      const reading: IDBRequest<Kept | undefined> = entries.get(textKey);
      reading.onsuccess = () => {
        try {
          result = reading.result;
          const text = change(result);
          if (text === undefined) return;
          result = { text, tag: newTag() };
          entries.put(result, textKey);
        } catch (error) {
          failure = error;
          transaction.abort();
        }
      };
    });
  }

  readNote(name: string): Promise<unknown> {
    return settled(this.database.transaction(table).objectStore(table).get(`note:${name}`));
  }

  async writeNote(name: string, note: unknown) {
    await settled(this.database.transaction(table, 'readwrite').objectStore(table).put(note, `note:${name}`));
  }

  async removeNote(name: string) {
    await settled(this.database.transaction(table, 'readwrite').objectStore(table).delete(`note:${name}`));
  }

  close() {
    this.database.close();
  }
}

export async function defaultStorage(name: string): Promise<Storage> {
  const opening = indexedDB.open(`zentadbpp:${name}`, 1);
  opening.onupgradeneeded = () => opening.result.createObjectStore(table);
  return new IndexedDbStorage(await settled(opening));
}
