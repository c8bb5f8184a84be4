// A thin layer over zentadbpp.h, which documents every function; index.d.ts has the types.

import { given } from './library.js';
import * as native from './native.js';

export { ZentadbError, load } from './native.js';

const { text, list, truth } = native;

// Unclosed handles are freed when they are collected.
const forgotten = new FinalizationRegistry(native.freeHandle);

class Made {
  constructor(name, ...values) {
    this.pointer = native.handle(name, ...values);
  }
}

export class Handle {
  #pointer;

  constructor(syncJson) {
    const { pointer } = syncJson instanceof Made ? syncJson : new Made('new_sync_json_ptr', syncJson);
    this.#pointer = pointer;
    forgotten.register(this, pointer, this);
  }

  static fromBulkGet(bulkGet, config = '{}') {
    return new Handle(new Made('sync_json_ptr_from_bulk_get', bulkGet, config));
  }

  static replicate(source, target, config) {
    return new Handle(new Made('replicate_sync_json_ptr', source.#pointer, target.#pointer, config));
  }

  get closed() {
    return this.#pointer === null;
  }

  close() {
    const pointer = this.#pointer;
    this.#pointer = null;
    forgotten.unregister(this);
    native.freeHandle(pointer);
  }

  // A handle is not an object for JSON.stringify.
  toJSON() {
    throw new TypeError('a Handle cannot be used as JSON; dump() gives its text');
  }

  dump() {
    return native.dump(this.#pointer);
  }

  read(config = '{}') {
    return text('read_sync_json_ptr', this.#pointer, config);
  }

  readObject(config = '{}') {
    return JSON.parse(this.read(config));
  }

  data(id, rev, config = '{}') {
    return text('sync_json_ptr_data', this.#pointer, id, rev, config);
  }

  dataObject(id, rev, config = '{}') {
    return JSON.parse(this.data(id, rev, config));
  }

  update(input, config = '{}') {
    return new Handle(new Made('update_sync_json_ptr', input, this.#pointer, config));
  }

  resolve(id, rev) {
    return new Handle(new Made('sync_json_ptr_resolve', this.#pointer, id, rev));
  }

  allWinning() {
    return new Handle(new Made('sync_json_ptr_all_winning', this.#pointer));
  }

  prune(depth, skipWinning = false) {
    return new Handle(new Made('sync_json_ptr_prune', this.#pointer, depth, skipWinning));
  }

  pruneIds(ids, depth, skipWinning = false) {
    return new Handle(new Made('sync_json_ptr_prune_ids', this.#pointer, ids, depth, skipWinning));
  }

  winning(id) {
    return text('sync_json_ptr_winning', this.#pointer, id);
  }

  leafs(id) {
    return list('sync_json_ptr_leafs', this.#pointer, id);
  }

  conflicting(id) {
    return list('sync_json_ptr_conflicting', this.#pointer, id);
  }

  ancestor(id, rev) {
    return text('sync_json_ptr_ancestor', this.#pointer, id, rev);
  }

  siblings(id, rev) {
    return list('sync_json_ptr_siblings', this.#pointer, id, rev);
  }

  history(id, rev) {
    return text('sync_json_ptr_history', this.#pointer, id, rev);
  }

  available(revOrId) {
    return truth('sync_json_ptr_available', this.#pointer, revOrId);
  }

  root() {
    return text('sync_json_ptr_root', this.#pointer);
  }

  allDocs() {
    return text('sync_json_ptr_all_docs', this.#pointer);
  }

  instances() {
    return list('sync_json_ptr_instances', this.#pointer);
  }

  unresolved() {
    return list('sync_json_ptr_unresolved', this.#pointer);
  }

  created(old) {
    return list('sync_json_ptr_created', this.#pointer, old.#pointer);
  }

  updated(old) {
    return list('sync_json_ptr_updated', this.#pointer, old.#pointer);
  }

  deleted(old) {
    return list('sync_json_ptr_deleted', this.#pointer, old.#pointer);
  }

  toBulkDocs() {
    return text('sync_json_ptr_to_bulk_docs', this.#pointer);
  }
}

if (Symbol.dispose) Handle.prototype[Symbol.dispose] = Handle.prototype.close;

export const version = () => native.version();

export const update = (input, syncJson, config = '{}') => text('update_sync_json', input, syncJson, config);
export const read = (syncJson, config = '{}') => text('read_sync_json', syncJson, config);
export const readObject = (syncJson, config = '{}') => JSON.parse(read(syncJson, config));
export const data = (syncJson, id, rev, config = '{}') => text('sync_json_data', syncJson, id, rev, config);
export const dataObject = (syncJson, id, rev, config = '{}') => JSON.parse(data(syncJson, id, rev, config));
export const flatten = (input, config = '{}') => text('json_object_flatten', input, config);
export const unflatten = (input, config = '{}', rootId = null) => text('json_array_unflatten', input, config, rootId);

export const replicate = (source, target, config = '{}') =>
  source instanceof Handle && target instanceof Handle
    ? Handle.replicate(source, target, config)
    : text('replicate_sync_json', source, target, config);
export const resolve = (syncJson, id, rev) => text('sync_json_resolve', syncJson, id, rev);

export const winning = (syncJson, id) => text('sync_json_winning', syncJson, id);
export const leafs = (syncJson, id) => list('sync_json_leafs', syncJson, id);
export const conflicting = (syncJson, id) => list('sync_json_conflicting', syncJson, id);
export const ancestor = (syncJson, id, rev) => text('sync_json_ancestor', syncJson, id, rev);
export const siblings = (syncJson, id, rev) => list('sync_json_siblings', syncJson, id, rev);
export const history = (syncJson, id, rev) => text('sync_json_history', syncJson, id, rev);
export const available = (syncJson, revOrId) => truth('sync_json_available', syncJson, revOrId);

export const root = (syncJson) => text('sync_json_root', syncJson);
export const allDocs = (syncJson) => text('sync_json_all_docs', syncJson);
export const allWinning = (syncJson) => text('sync_json_all_winning', syncJson);
export const instances = (syncJson) => list('sync_json_instances', syncJson);
export const unresolved = (syncJson) => list('sync_json_unresolved', syncJson);
export const created = (syncJson, oldSyncJson) => list('sync_json_created', syncJson, oldSyncJson);
export const updated = (syncJson, oldSyncJson) => list('sync_json_updated', syncJson, oldSyncJson);
export const deleted = (syncJson, oldSyncJson) => list('sync_json_deleted', syncJson, oldSyncJson);

export const prune = (syncJson, depth, skipWinning = false) => text('sync_json_prune', syncJson, depth, skipWinning);
export const pruneIds = (syncJson, ids, depth, skipWinning = false) =>
  text('sync_json_prune_ids', syncJson, ids, depth, skipWinning);

export const toBulkDocs = (syncJson) => text('sync_json_to_bulk_docs', syncJson);
export const fromBulkGet = (bulkGet, config = '{}') => text('sync_json_from_bulk_get', bulkGet, config);
export const diff = (before, after, config = '{}') => text('sync_json_diff', before, after, config);
export const patch = (before, operations) => text('sync_json_patch', before, operations);
export const compress = (object) => text('sync_json_compress', object);
export const uncompress = (object) => text('sync_json_uncompress', object);

export const verify = (syncJson, known = '{}') => JSON.parse(text('zentadbpp_verify', syncJson, known));

const dumped = (store) => (store instanceof Handle ? store.dump() : store);

export const check = (data, config = '{}', store = '{}') =>
  JSON.parse(text('zentadbpp_check', data, config, dumped(store)));
export const threeWay = (store, id, config = '{}') =>
  JSON.parse(text('zentadbpp_three_way', dumped(store), id, config));
