// A store in a file, which holds the sync JSON alone, so that the command line can work on it as well.

import { createHash } from 'node:crypto';
import { open, readFile, rename, rm, stat, unlink, writeFile } from 'node:fs/promises';
import { dirname } from 'node:path';
import process from 'node:process';
import { setTimeout as pause } from 'node:timers/promises';
import { type Kept, type Storage } from './storage.js';

const staleAfter = 30_000; // milliseconds; nobody holds the lock that long
const patience = 60_000;

const isMissing = (error: unknown) => (error as NodeJS.ErrnoException).code === 'ENOENT';
const tagOf = (text: string) => createHash('sha256').update(text).digest('base64');

// Whether the process that made the lock is gone.
async function isStale(lock: string): Promise<boolean> {
  const age = await stat(lock).then(({ mtimeMs }) => Date.now() - mtimeMs, () => 0);
  if (age > staleAfter) return true;
  const owner = Number(await textIn(lock));
  if (!owner) return false;
  try {
    process.kill(owner, 0);
    return false;
  } catch (error) {
    return (error as NodeJS.ErrnoException).code === 'ESRCH';
  }
}

async function textIn(path: string): Promise<string | undefined> {
  try {
    return await readFile(path, 'utf8');
  } catch (error) {
    if (isMissing(error)) return undefined;
    throw error;
  }
}

// Whoever reads the file finds the old text or the new one, also after the machine went down in between.
async function replaceFile(path: string, text: string): Promise<void> {
  const fresh = `${path}.new`;
  const file = await open(fresh, 'w', 0o600);
  try {
    await file.writeFile(text);
    await file.sync();
  } finally {
    await file.close();
  }
  await rename(fresh, path);
  const directory = await open(dirname(path));
  try {
    await directory.sync();
  } finally {
    await directory.close();
  }
}

class FileStorage implements Storage {
  constructor(private readonly path: string) {}

  async #locked<R>(work: () => Promise<R>): Promise<R> {
    const lock = `${this.path}.lock`;
    const deadline = Date.now() + patience;
    for (;;) {
      try {
        await writeFile(lock, `${process.pid}`, { flag: 'wx' });
        break;
      } catch (error) {
        if ((error as NodeJS.ErrnoException).code !== 'EEXIST') throw error;
        if (await isStale(lock)) await unlink(lock).catch(() => {});
        if (Date.now() > deadline) throw new Error(`${lock}: another process keeps the store locked`);
        await pause(5 + Math.random() * 20);
      }
    }
    try {
      return await work();
    } finally {
      await unlink(lock).catch(() => {});
    }
  }

  transact(change: (kept: Kept | undefined) => string | undefined) {
    return this.#locked(async () => {
      const text = await textIn(this.path);
      const kept = text === undefined ? undefined : { text, tag: tagOf(text) };
      const next = change(kept);
      if (next === undefined) return kept;
      await replaceFile(this.path, next);
      return { text: next, tag: tagOf(next) };
    });
  }

  async readNote(name: string): Promise<unknown> {
    const text = await textIn(`${this.path}.${name}.json`);
    try {
      return text === undefined ? undefined : JSON.parse(text);
    } catch {
      return undefined; // a note is an aid only
    }
  }

  async writeNote(name: string, note: unknown) {
    await replaceFile(`${this.path}.${name}.json`, JSON.stringify(note));
  }

  async removeNote(name: string) {
    await rm(`${this.path}.${name}.json`, { force: true });
  }

  close() {}
}

/** The name is that of the file. */
export async function defaultStorage(name: string): Promise<Storage> {
  return new FileStorage(name);
}
