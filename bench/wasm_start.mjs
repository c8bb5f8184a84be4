// What a page loads of the npm package, and how long it waits for the first call: wasm_start.mjs PACKAGE.

import { readFileSync } from 'node:fs';
import { join, resolve } from 'node:path';
import { brotliCompressSync, gzipSync } from 'node:zlib';
import { isMissing, openBrowser, serve } from '../tests/wasm/browser.mjs';

const home = resolve(process.argv[2]);
const wasm = readFileSync(join(home, 'zentadbpp.wasm'));
const script = readFileSync(join(home, 'index.js'));
console.log(`to load: module ${wasm.length}, ${gzipSync(wasm, { level: 9 }).length} with gzip, ${brotliCompressSync(wasm).length} with brotli; script ${script.length}, ${gzipSync(script).length}`);

// From the import in an open page to the result of the first call.
if (!isMissing) {
  const site = await serve({ '/package': home, '/': '<!doctype html><title>Start</title>' });
  const browser = await openBrowser();
  const starts = [];
  for (let turn = 0; turn < 5; turn += 1) {
    const page = await browser.open(site.url);
    starts.push(
      await page.evaluate(async () => {
        const begin = performance.now();
        const library = await import('/package/index.js');
        await library.load();
        library.update({ list: [{ _id: '1' }] }, '{}');
        return performance.now() - begin;
      }),
    );
    await page.close();
  }
  starts.sort((a, b) => a - b);
  console.log(`in Chromium, from the import to the result of the first call: ${starts[2].toFixed(0)} ms`);
  await browser.close();
  site.stop();
}
