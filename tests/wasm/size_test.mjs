// What a page has to load. Run with node --test.

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';
import { brotliCompressSync, gzipSync } from 'node:zlib';

const limit = 200_000; // bytes
const loaded = (names, compress) =>
  names.reduce((sum, name) => sum + compress(readFileSync(join(process.env.ZENTADBPP_PACKAGE, name))).length, 0);

test('a page loads less than 200 kB: the library with gzip, and with the store as well with brotli', () => {
  const gzip = loaded(['index.js', 'zentadbpp.wasm'], (file) => gzipSync(file, { level: 9 }));
  const brotli = loaded(['index.js', 'store.js', 'zentadbpp.wasm'], brotliCompressSync);
  console.log(`the library: ${gzip} bytes with gzip; with the store: ${brotli} bytes with brotli`);
  assert(gzip < limit && brotli < limit, `${gzip}, ${brotli}`);
});
