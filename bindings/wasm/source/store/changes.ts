// What changed between two JSON values, as operations of a JSON Patch (RFC 6902), each with what was there before.

export type Operation =
  | { op: 'add'; path: string; value: unknown }
  | { op: 'remove'; path: string; before: unknown }
  | { op: 'replace'; path: string; value: unknown; before: unknown }
  | { op: 'move'; path: string; from: string };

type Members = Record<string, unknown>;

const isObject = (value: unknown): value is object => typeof value === 'object' && value !== null;
const isMembers = (value: unknown): value is Members => isObject(value) && !Array.isArray(value);
const escaped = (key: string) => key.replaceAll('~', '~0').replaceAll('/', '~1');
const unescaped = (key: string) => key.replaceAll('~1', '/').replaceAll('~0', '~');

// The ids of the elements of a list, if each has one and no two the same.
function idsOf(list: unknown[]): string[] | undefined {
  const ids: string[] = [];
  for (const element of list) {
    const id = isMembers(element) ? element['_id'] : undefined;
    if (typeof id !== 'string') return undefined;
    ids.push(id);
  }
  return new Set(ids).size === ids.length ? ids : undefined;
}

// Of the positions those that stay where they are while the others move: a longest ascending run.
function unmoved(positions: number[]): Set<number> {
  const ends: number[] = []; // the place in `positions` of the smallest end of a run of each length
  const previous: number[] = [];
  positions.forEach((position, place) => {
    let low = 0;
    let high = ends.length;
    while (low < high) {
      const middle = (low + high) >> 1;
      if (positions[ends[middle]!]! < position) low = middle + 1;
      else high = middle;
    }
    previous.push(low > 0 ? ends[low - 1]! : -1);
    ends[low] = place;
  });
  const kept = new Set<number>();
  for (let place = ends.at(-1) ?? -1; place >= 0; place = previous[place]!) kept.add(positions[place]!);
  return kept;
}

const mostMoves = 200; // more of them say less than the new list

function compareLists(before: unknown[], after: unknown[], path: string, out: Operation[]): void {
  const old = idsOf(before);
  const now = idsOf(after);
  if (!old || !now || old.length === 0) {
    if (!isEqual(before, after)) out.push({ op: 'replace', path, value: after, before });
    return;
  }
  const placeBefore = new Map(old.map((id, place) => [id, place]));
  const stays = new Set(now);
  const positions = now.flatMap((id) => placeBefore.get(id) ?? []);
  const fixed = unmoved(positions);
  if (positions.length - fixed.size > mostMoves) {
    out.push({ op: 'replace', path, value: after, before });
    return;
  }
  for (let place = old.length - 1; place >= 0; place -= 1) {
    if (!stays.has(old[place]!)) out.push({ op: 'remove', path: `${path}/${place}`, before: before[place] });
  }
  // Only with moves do elements lie between those that are in place already.
  const isMoving = positions.length > fixed.size;
  const current = isMoving ? old.filter((id) => stays.has(id)) : [];
  now.forEach((id, place) => {
    const was = placeBefore.get(id);
    if (was !== undefined && fixed.has(was)) return;
    if (!isMoving) {
      out.push({ op: 'add', path: `${path}/${place}`, value: after[place] });
      return;
    }
    const from = was === undefined ? -1 : current.indexOf(id);
    if (from >= 0) current.splice(from, 1);
    const to = place === 0 ? 0 : current.indexOf(now[place - 1]!) + 1;
    current.splice(to, 0, id);
    if (from < 0) out.push({ op: 'add', path: `${path}/${to}`, value: after[place] });
    else if (from !== to) out.push({ op: 'move', path: `${path}/${to}`, from: `${path}/${from}` });
  });
  now.forEach((id, place) => {
    const was = placeBefore.get(id);
    if (was !== undefined) compareValues(before[was], after[place], `${path}/${place}`, out);
  });
}

function compareValues(before: unknown, after: unknown, path: string, out: Operation[]): void {
  if (before === after) return;
  if (Array.isArray(before) && Array.isArray(after)) {
    compareLists(before, after, path, out);
  } else if (isMembers(before) && isMembers(after)) {
    for (const key of Object.keys(before)) {
      if (!Object.hasOwn(after, key)) out.push({ op: 'remove', path: `${path}/${escaped(key)}`, before: before[key] });
    }
    for (const [key, value] of Object.entries(after)) {
      const at = `${path}/${escaped(key)}`;
      if (Object.hasOwn(before, key)) compareValues(before[key], value, at, out);
      else out.push({ op: 'add', path: at, value });
    }
  } else if (!isEqual(before, after)) {
    out.push({ op: 'replace', path, value: after, before });
  }
}

export function isEqual(left: unknown, right: unknown): boolean {
  if (left === right) return true;
  if (!isObject(left) || !isObject(right) || Array.isArray(left) !== Array.isArray(right)) return false;
  const [a, b] = [left as Members, right as Members];
  const keys = Object.keys(a);
  return keys.length === Object.keys(b).length && keys.every((key) => Object.hasOwn(b, key) && isEqual(a[key], b[key]));
}

/** The operations that make `after` of `before`. */
export function changesBetween(before: unknown, after: unknown): Operation[] {
  const operations: Operation[] = [];
  compareValues(before, after, '', operations);
  return operations;
}

const setMember = (target: Members, key: string, value: unknown) =>
  Object.defineProperty(target, key, { value, writable: true, enumerable: true, configurable: true });

/** The value after the operations. The given one stays as it is; what did not change is shared with it. */
export function applied(before: unknown, operations: readonly Operation[]): unknown {
  const fresh = new Set<object>(); // made here, so that it may be changed here
  let root: unknown = before;
  const own = (value: unknown): Members => {
    if (!isObject(value)) throw new Error('an operation leads into a value without members');
    if (fresh.has(value)) return value as Members;
    const copy = Array.isArray(value) ? value.slice() : { ...value };
    fresh.add(copy);
    return copy as Members;
  };
  const parentOf = (path: string): [Members, string] => {
    const keys = path.split('/').slice(1).map(unescaped);
    const last = keys.pop()!;
    let at = own(root);
    root = at;
    for (const key of keys) {
      const next = own(Object.hasOwn(at, key) ? at[key] : undefined);
      setMember(at, key, next);
      at = next;
    }
    return [at, last];
  };
  const remove = (path: string): unknown => {
    const [parent, key] = parentOf(path);
    if (Array.isArray(parent)) return parent.splice(Number(key), 1)[0];
    const value = parent[key];
    delete parent[key];
    return value;
  };
  const add = (path: string, value: unknown, isNew: boolean): void => {
    if (path === '') {
      root = value;
      return;
    }
    const [parent, key] = parentOf(path);
    if (Array.isArray(parent) && isNew) parent.splice(key === '-' ? parent.length : Number(key), 0, value);
    else setMember(parent, key, value);
  };
  for (const operation of operations) {
    if (operation.op === 'remove') remove(operation.path);
    else if (operation.op === 'move') add(operation.path, remove(operation.from), true);
    else add(operation.path, operation.value, operation.op === 'add');
  }
  return root;
}
