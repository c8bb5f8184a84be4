// Exchange of a store with a database of a CouchDB server, by the rules of `zentadb push` and `zentadb pull`: revisions
// keep their whole names, only what the other side lacks travels, in batches, and what was exchanged is remembered.

import * as library from '#library';
import { Checkpoint, type Notes } from './checkpoint.js';
import { Database, ExchangeError, type DatabaseOptions } from './database.js';
import { Incoming } from './incoming.js';
import { Journal } from './journal.js';
import { Pull } from './pull.js';
import { Push } from './push.js';
import { serverRev } from './revisions.js';
import { SyncText } from './sync-text.js';

export interface ExchangeOptions extends DatabaseOptions {
  /** Documents in one request; 500 if left out. */
  batch?: number;
  /** Compares everything, whatever is remembered of earlier exchanges. */
  afresh?: boolean;
  /** Takes contents that do not hash to their names. */
  force?: boolean;
  direction?: 'both' | 'pull' | 'push';
}

/** How many revisions travelled, and the ids of documents about which there is something to say. */
export interface ExchangeResult {
  received: number;
  sent: number;
  /** Left alone on the server, as they were not begun in a store. */
  foreign: string[];
  /** Left out, as the server has cut their history short and it is not known here. */
  cutShort: string[];
  /** With revisions on the server that a store cannot keep. */
  unusable: string[];
  /** With attachments, which stay on the server. */
  attachments: string[];
  /** Without a place in the data: the next exchange of a copy that knows their list brings them back, an update before that removes them. */
  homeless: string[];
  /** With a last revision whose content was pruned here, and which was therefore not sent. */
  pruned: string[];
}

/** The store, as an exchange sees it. */
export interface Copy extends Notes {
  config: library.Config;
  /** Belongs to the store. */
  handle(): library.Handle;
  value(): object;
  /** All of them or none. The sets are closed. */
  merge(sets: library.Handle[]): Promise<void>;
}

const dataNote = 'zentadb';

export async function exchange(url: string, options: ExchangeOptions, copy: Copy): Promise<ExchangeResult> {
  const { batch = 500, direction = 'both', afresh = false, force = false } = options;
  const database = new Database(url, options);
  await database.open();
  let store = new SyncText(copy.handle().dump());
  await checkSameData(database, store);
  const checkpoint = new Checkpoint(database, copy);
  if (!afresh) await checkpoint.recall(store);

  const incoming = new Incoming(database, store, force);
  let homeless: string[] = [];
  if (direction !== 'push') {
    const pull = new Pull(database, store, checkpoint, incoming, batch);
    const journal = new Journal(copy, checkpoint.noteName, checkpoint.session);
    const since = await pull.fetch(journal);
    if (incoming.count > 0) {
      const received = await pull.sets(copy.handle(), await notedRoot(database), copy.config);
      homeless = received.homeless;
      await copy.merge(received.sets);
      store = new SyncText(copy.handle().dump());
    }
    await checkpoint.save(store, since);
    await journal.remove();
  }
  const push = new Push(database, store, checkpoint, batch);
  if (direction !== 'pull' && store.root !== undefined) {
    await push.run(copy.value(), () => noteData(database, store));
    await checkpoint.save(store, checkpoint.since);
    push.check();
  }

  const { foreign, cutShort, unusable, attachments } = incoming.remarks;
  return {
    received: incoming.count,
    sent: push.sent,
    foreign: [...foreign],
    cutShort: [...cutShort],
    unusable: [...unusable],
    attachments: [...attachments],
    homeless,
    pruned: [...push.pruned],
  };
}

// What a database holds is noted there once, by the first copy that sends something.
interface DataNote {
  root?: string;
  first?: string;
}

const noteOf = (store: SyncText, root: string): Required<DataNote> => ({ root, first: serverRev(store.tree(root)![0]!) });

async function checkSameData(database: Database, store: SyncText): Promise<void> {
  if (store.root === undefined) return;
  const { root, first } = noteOf(store, store.root);
  const note: DataNote | undefined = await database.local(dataNote);
  if (!note || ((note.root ?? root) === root && (note.first ?? first) === first)) return;
  throw new ExchangeError(`${database.url}: the database holds other data than the store`);
}

async function noteData(database: Database, store: SyncText): Promise<void> {
  if (await database.local(dataNote)) return;
  if (!(await database.putLocal(dataNote, noteOf(store, store.root!)))) await checkSameData(database, store);
}

async function notedRoot(database: Database): Promise<string | undefined> {
  return ((await database.local(dataNote)) as DataNote | undefined)?.root;
}
