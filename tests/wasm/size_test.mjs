// What a page has to load. Run with node --test.

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';
import { brotliCompressSync, gzipSync } from 'node:zlib';

const limit = 200_000; // bytes, compressed with brotli
const files = ['index.js', 'store.js', 'zentadbpp.wasm'].map((name) => readFileSync(join(process.env.ZENTADBPP_PACKAGE, name)));
const compressed = (compress) => files.reduce((sum, file) => sum + compress(file).length, 0);

test('with the store and the module, a page loads less than 200 kB', () => {
  const [brotli, gzip] = [compressed(brotliCompressSync), compressed(gzipSync)];
  console.log(`${brotli} bytes with brotli, ${gzip} with gzip`);
  assert(brotli < limit, `${brotli} bytes`);
});
