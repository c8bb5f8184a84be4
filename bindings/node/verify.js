// Which names of contents are the hashes of these contents.

import { sha256 } from './native.js';

const encoder = new TextEncoder();
const mask = 2n ** 64n - 1n;
const [p1, p2, p3, p4, p5] = [
  0x9e3779b185ebca87n, 0xc2b2ae3d27d4eb4fn, 0x165667b19e3779f9n, 0x85ebca77c2b2ae63n, 0x27d4eb2f165667c5n,
];

const rotated = (value, by) => (((value & mask) << by) | ((value & mask) >> (64n - by))) & mask;
const round = (lane, word) => (rotated(lane + word * p2, 31n) * p1) & mask;

// XXH64, which JavaScript does not have.
export function xxh64(data, seed) {
  const view = new DataView(data.buffer, data.byteOffset, data.length);
  const end = data.length;
  let at = 0;
  let value = seed + p5;
  if (end >= 32) {
    const lanes = [seed + p1 + p2, seed + p2, seed, seed - p1];
    while (at + 32 <= end) {
      for (let lane = 0; lane < 4; lane += 1, at += 8) lanes[lane] = round(lanes[lane], view.getBigUint64(at, true));
    }
    value = [1n, 7n, 12n, 18n].reduce((sum, by, lane) => sum + rotated(lanes[lane], by), 0n);
    for (const lane of lanes) value = ((value ^ round(0n, lane)) & mask) * p1 + p4;
  }
  value = (value + BigInt(end)) & mask;
  for (; at + 8 <= end; at += 8) value = rotated(value ^ round(0n, view.getBigUint64(at, true)), 27n) * p1 + p4;
  if (at + 4 <= end) {
    value = rotated(value ^ (BigInt(view.getUint32(at, true)) * p1), 23n) * p2 + p3;
    at += 4;
  }
  for (; at < end; at += 1) value = rotated(value ^ (BigInt(data[at]) * p5), 11n) * p1;
  value &= mask;
  value = ((value ^ (value >> 33n)) * p2) & mask;
  value = ((value ^ (value >> 29n)) * p3) & mask;
  return value ^ (value >> 32n);
}

// Each content in a well-formed sync JSON with its name, both as written.
export function* contents(syncJson) {
  let part = '';
  let name = '';
  let depth = 0;
  let begin = 0;
  for (const { 0: token, index } of syncJson.matchAll(/"(?:[^"\\]|\\.)*"|[[\]{}]/gs)) {
    if (token[0] === '"') {
      if (depth === 1) part = token;
      else if (depth === 2) name = token.slice(1, -1);
    } else if (token === '{' || token === '[') {
      if (depth === 2) begin = index;
      depth += 1;
    } else {
      depth -= 1;
      if (depth === 2 && part === '"o"') yield [name, syncJson.slice(begin, index + 1)];
    }
  }
}

// Whether a content has this name. Kinds of names that the library does not make count as right.
export function isNamed(content, name) {
  if (/^[0-9a-f]{64}$/.test(name)) return sha256(content) === name;
  if (/^x[0-9]+$/.test(name)) return `x${xxh64(encoder.encode(content), 123456n) & 0xffffffffn}` === name;
  return true;
}
