// A database on a server that speaks the replication protocol of CouchDB, by fetch.

import { elementsOf, membersOf } from './json-text.js';

export interface DatabaseOptions {
  /** Makes the database if it is not there. */
  create?: boolean;
  /** How often a request is repeated that fails for the moment; 5 if left out. */
  retries?: number;
  /** Seconds that a request may take, with its repetitions; 600 if left out. */
  timeout?: number;
  /** Sent with every request, such as Authorization. */
  headers?: Record<string, string>;
  credentials?: RequestCredentials;
}

/** What the server refuses, or that it cannot be reached, or that its data cannot be merged. */
export class ExchangeError extends Error {
  override name = 'ExchangeError';
  constructor(
    message: string,
    readonly status?: number,
    options?: ErrorOptions,
  ) {
    super(message, options);
  }
}

export type Json = any; // eslint-disable-line -- the shape of a server's answers is checked where it matters

interface Answer {
  status: number;
  json: Json;
  text: string;
}

/** One of the documents of a bulk-get answer: its members as they are written, or why it is not given out. */
export type Given = { members: Map<string, string> } | { error: Json };

export interface Named {
  id: string;
  rev: string;
}

const tooLarge = 413;
const temporary = [408, 425, 429, 500, 502, 503, 504];
const pause = (milliseconds: number) => new Promise((resolve) => setTimeout(resolve, milliseconds));

// A number, or one and what only the server understands: "12-g1AAAA".
const numberOf = (seq: unknown) => (typeof seq === 'string' ? Number.parseInt(seq, 10) || 0 : Number(seq) || 0);

export class Database {
  readonly url: string;
  readonly #headers: Record<string, string>;
  #updateSeq: unknown;

  constructor(
    url: string,
    private readonly options: DatabaseOptions,
  ) {
    const parsed = new URL(url);
    const { username, password } = parsed;
    this.#headers = { 'Content-Type': 'application/json', Accept: 'application/json' };
    // fetch refuses credentials in a URL.
    if (username !== '') {
      const bytes = new TextEncoder().encode(`${decodeURIComponent(username)}:${decodeURIComponent(password)}`);
      this.#headers['Authorization'] = `Basic ${btoa(String.fromCharCode(...bytes))}`;
    }
    Object.assign(this.#headers, options.headers);
    parsed.username = '';
    parsed.password = '';
    this.url = parsed.href.replace(/\/+$/, '');
  }

  /** Makes sure that the database is there, as all else takes for granted. */
  async open(): Promise<void> {
    const answer = await this.#send('GET', '');
    if (answer.status === 404 && this.options.create) {
      const made = await this.#send('PUT', '');
      if (made.status !== 412) this.#read(made, () => {}); // 412: another copy was faster
      return;
    }
    const json = this.#read(answer, (each) => each.json);
    if (json?.db_name === undefined) throw new ExchangeError(`${this.url} is not a database of a CouchDB server`);
    this.#updateSeq = json.update_seq;
  }

  /** Whether the server has come as far as where its changes are said to have been read. */
  hasReached(since: unknown): boolean {
    return this.#updateSeq === undefined || numberOf(since) <= numberOf(this.#updateSeq);
  }

  /** A document that only this server keeps, and that counts for no data. */
  async local(name: string): Promise<Json | undefined> {
    const answer = await this.#send('GET', `/_local/${encodeURIComponent(name)}`);
    return answer.status === 404 ? undefined : this.#read(answer, ({ json }) => json);
  }

  /** False if another copy wrote it since `document` was read, or the server does not allow it. */
  async putLocal(name: string, document: Json): Promise<boolean> {
    const { status } = await this.#send('PUT', `/_local/${encodeURIComponent(name)}`, JSON.stringify(document));
    return status >= 200 && status < 300;
  }

  /** How many revisions of a document the server keeps; undefined if it does not say. */
  async revsLimit(): Promise<number | undefined> {
    const { status, json } = await this.#send('GET', '/_revs_limit');
    return status === 200 && typeof json === 'number' ? json : undefined;
  }

  async changes(since: unknown, limit: number): Promise<{ results: Json[]; last_seq: unknown }> {
    const seq = encodeURIComponent(typeof since === 'string' ? since : JSON.stringify(since));
    const answer = await this.#send('GET', `/_changes?style=all_docs&limit=${limit}&since=${seq}`);
    return this.#read(answer, ({ json }) => {
      if (json.results.length < limit || json.last_seq !== since) return json;
      throw new ExchangeError(`${this.url}: the same changes come again and again`);
    });
  }

  bulkGet(wanted: Named[]): Promise<Given[]> {
    return this.#inParts('/_bulk_get?revs=true', wanted, (docs) => JSON.stringify({ docs }), ({ text }) =>
      elementsOf(membersOf(text).get('results') ?? '[]').flatMap((result) =>
        elementsOf(membersOf(result).get('docs') ?? '[]').map((entry) => {
          const given = membersOf(entry);
          const ok = given.get('ok');
          if (ok !== undefined) return { members: membersOf(ok) };
          const error = JSON.parse(given.get('error') ?? 'null');
          return { error: error?.error ?? error };
        }),
      ),
    );
  }

  /** Those of some documents that are there, deleted ones too, each with its leading revision. */
  leadingRevs(ids: string[]): Promise<Named[]> {
    return this.#inParts('/_all_docs', ids, (keys) => JSON.stringify({ keys }), ({ json }) =>
      json.rows.flatMap(({ id, value }: Json) => (value?.rev ? [{ id, rev: value.rev }] : [])),
    );
  }

  /** Which of the revisions of some documents the server lacks. */
  async missing(revisions: [id: string, revs: string[]][]): Promise<Map<string, Set<string>>> {
    const lacks = await this.#inParts('/_revs_diff', revisions, (part) => JSON.stringify(Object.fromEntries(part)), ({ json }) => {
      if (Array.isArray(json)) throw new TypeError('what is missing is not in an object');
      return Object.entries(json as Record<string, { missing: string[] }>);
    });
    return new Map(lacks.map(([id, { missing }]) => [id, new Set(missing)]));
  }

  /** What the server says against documents, which are texts with their ids. */
  bulkDocs(docs: { id: string; text: string }[]): Promise<{ id: string; problem: string }[]> {
    const bodyOf = (part: typeof docs) => `{"docs": [${part.map(({ text }) => text).join(', ')}], "new_edits": false}`;
    return this.#inParts(
      '/_bulk_docs',
      docs,
      bodyOf,
      ({ json }) => json.filter(({ error }: Json) => error).map(({ id, error, reason }: Json) => ({ id, problem: `${error}, ${reason}` })),
      ({ id }) => [{ id, problem: 'it is larger than the server allows' }],
    );
  }

  // In halves when the server finds the request too large.
  async #inParts<E, R>(
    path: string,
    all: E[],
    bodyOf: (part: E[]) => string,
    resultOf: (answer: Answer) => R[],
    ofTooLarge?: (one: E) => R[],
  ): Promise<R[]> {
    if (all.length === 0) return [];
    const answer = await this.#send('POST', path, bodyOf(all));
    if (answer.status === tooLarge && all.length === 1 && ofTooLarge) return ofTooLarge(all[0]!);
    if (answer.status !== tooLarge || all.length === 1) return this.#read(answer, resultOf);
    const middle = all.length >> 1;
    const first = await this.#inParts(path, all.slice(0, middle), bodyOf, resultOf, ofTooLarge);
    return first.concat(await this.#inParts(path, all.slice(middle), bodyOf, resultOf, ofTooLarge));
  }

  #read<R>(answer: Answer, take: (answer: Answer) => R): R {
    const { status, json } = answer;
    if (status >= 200 && status < 300) return this.shaped(() => take(answer));
    const why = [json?.error, json?.reason].filter((each) => typeof each === 'string').join(', ');
    throw new ExchangeError(`${this.url}: the server refuses, with status ${status}: ${why}`, status);
  }

  /** What `look` makes of an answer. It fails if the answer does not have the shape that it should. */
  shaped<R>(look: () => R): R {
    try {
      return look();
    } catch (error) {
      if (!(error instanceof TypeError || error instanceof SyntaxError)) throw error;
      throw new ExchangeError(`${this.url}: the answer is not one of a CouchDB server`, undefined, { cause: error });
    }
  }

  async #send(method: string, path: string, body?: string): Promise<Answer> {
    const { retries = 5, timeout = 600, credentials } = this.options;
    const deadline = Date.now() + timeout * 1000;
    for (let attempt = 0; ; attempt += 1) {
      let problem: string;
      let wait = Math.min(30_000, 500 * 2 ** attempt) * (0.75 + Math.random() / 4);
      const late = new AbortController();
      const timer = setTimeout(() => late.abort(), deadline - Date.now());
      try {
        const response = await fetch(this.url + path, {
          method,
          headers: this.#headers,
          signal: late.signal,
          ...(credentials && { credentials }),
          ...(body !== undefined && { body }),
        });
        const text = await response.text();
        if (!temporary.includes(response.status)) return this.#answer(response, text.trim());
        problem = `it answers with status ${response.status}`;
        wait = Math.max(wait, Math.min(60, Number(response.headers.get('Retry-After')) || 0) * 1000);
      } catch (error) {
        if (error instanceof ExchangeError) throw error;
        problem = late.signal.aborted ? `no answer in ${timeout} seconds` : (error as Error).message;
      } finally {
        clearTimeout(timer);
      }
      if (attempt >= retries || Date.now() + wait > deadline) {
        throw new ExchangeError(`${this.url}: the server cannot be reached: ${problem}`);
      }
      await pause(wait);
    }
  }

  #answer({ status, ok }: Response, text: string): Answer {
    try {
      return { status, json: JSON.parse(text), text };
    } catch {
      if (!ok) return { status, json: undefined, text }; // a proxy may explain itself in HTML
      throw new ExchangeError(`${this.url}: the answer is not JSON; is this a database of a CouchDB server?`);
    }
  }
}
