// A small application that uses the package, typed strictly, bundled without plugins, and rendered on a server. Run with node
// --test.

import assert from 'node:assert/strict';
import { execFile, spawn } from 'node:child_process';
import { cpSync, mkdirSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { after, before, describe, test } from 'node:test';
import { promisify } from 'node:util';
import { isMissing, openBrowser, serve, strictPolicy } from './browser.mjs';

// Beside what is installed, as some bundlers follow no links.
const tools = process.env.ZENTADBPP_TOOLS;
const work = mkdtempSync(join(tools, 'work-'));
const modules = join(tools, 'node_modules');
const run = (name, ...values) =>
  promisify(execFile)(join(modules, '.bin', name), values, { cwd: work, env: { ...process.env, NODE_ENV: 'production', NEXT_TELEMETRY_DISABLED: '1' } })
    .catch((error) => assert.fail(`${name}: ${error.stdout}\n${error.stderr}`));
const files = (all) => {
  for (const [name, text] of Object.entries(all)) {
    mkdirSync(join(work, name, '..'), { recursive: true });
    writeFileSync(join(work, name), text);
  }
};

const application = (store, main) => `
import { openStore } from '${store}';
import { load, readObject, update } from '${main}';

async function run() {
  await load();
  const list = readObject(update({ list: [{ _id: '1' }] }, '{}')).list;
  const store = await openStore('bundled', { initial: { n: 0 }, worker: true });
  await store.update((data) => void (data.n += 1));
  document.title = list[0]._id + ' ' + store.read().n;
}
run().catch((error) => { document.title = String(error); });
`;

before(() => {
  cpSync(process.env.ZENTADBPP_PACKAGE, join(work, 'node_modules', 'zentadbpp'), { recursive: true });
  files({
    'package.json': '{"name": "application", "private": true, "type": "module"}',
    'app.js': application('zentadbpp/store', 'zentadbpp'),
    'by_path.js': application('./node_modules/zentadbpp/store.js', './node_modules/zentadbpp/index.js'),
    'index.html': '<!doctype html><title>-</title><script type="module" src="/app.js"></script>',
  });
});
after(() => rmSync(work, { recursive: true, force: true }));

test('the types are strict, for modules and CommonJS', async () => {
  const source = `
import { Handle, readObject, update, ZentadbError } from 'zentadbpp';
import { openStore, type Operation } from 'zentadbpp/store';
interface Board { list: { _id: string; text: string }[] }
export async function run() {
  const store = await openStore<Board>('board', { initial: { list: [] }, config: { instance_id: 'me' } });
  const text: string = store.read().list[0]!.text;
  await store.update((data) => void data.list.push({ _id: '1', text }));
  store.onChange(({ operations }) => operations.map((each: Operation) => each.path));
  // @ts-expect-error a board has no such member
  await store.update({ lists: [] });
  // @ts-expect-error nor has the configuration
  await openStore<Board>('board', { config: { instance: 'me' } });
  const handle = new Handle<Board>(update({ list: [] }, '{}'));
  const list: Board['list'] = handle.update({ list: [] }).readObject().list;
  const other: Board = readObject<Board>(handle.dump());
  // @ts-expect-error a handle of other data
  handle.update({ other: 1 });
  return [list, other, ZentadbError];
}
`;
  files({
    'types/index.mts': source,
    'types/index.cts': source,
    'types/tsconfig.json': JSON.stringify({
      compilerOptions: { strict: true, noEmit: true, target: 'es2022', lib: ['es2023', 'dom', 'esnext.disposable'], module: 'nodenext', types: [], noUncheckedIndexedAccess: true, exactOptionalPropertyTypes: true },
    }),
  });
  await run('tsc', '--project', 'types');
});

test('Node loads it both ways', async () => {
  files({
    'try.mjs': "import { update, read } from 'zentadbpp';\nimport { openStore } from 'zentadbpp/store';\nimport * as inline from 'zentadbpp/inline';\nconst s = await openStore('x', { initial: { a: 1 }, storage: 'memory' });\nconsole.log(read(update(s.read(), '{}')) === inline.read(update(s.read(), '{}')), s.read().a);",
    'try.cjs': "const { update, read } = require('zentadbpp');\nconst { openStore } = require('zentadbpp/store');\nopenStore('x', { initial: { a: 1 }, storage: 'memory' }).then((s) => console.log(read(update(s.read(), '{}')).length > 0, s.read().a));",
  });
  for (const name of ['try.mjs', 'try.cjs']) {
    const { stdout } = await promisify(execFile)(process.execPath, [name], { cwd: work });
    assert.equal(stdout, 'true 1\n', name);
  }
});

const bundlers = {
  vite: { entry: 'index.html', workers: 1, make: () => run('vite', 'build', '--outDir', 'out/vite') },
  webpack: {
    workers: 1,
    make: () => run('webpack', '--mode', 'production', '--entry', './app.js', '--output-path', join(work, 'out/webpack'), '--output-filename', 'app.js'),
  },
  esbuild: { workers: 0, make: () => run('esbuild', 'app.js', '--bundle', '--format=esm', '--splitting', '--outdir=out/esbuild') },
  'esbuild in one file': { workers: 0, make: () => run('esbuild', 'app.js', '--bundle', '--format=iife', '--outfile=out/esbuild in one file/app.js', '--log-level=error') },
  rollup: { workers: 0, make: () => run('rollup', 'by_path.js', '--dir', 'out/rollup', '--entryFileNames', 'app.js', '--silent') },
};

describe('bundled', { skip: isMissing }, () => {
  let browser;
  before(async () => {
    browser = await openBrowser();
  });
  after(() => browser?.close());

  async function titleOf(url) {
    const page = await browser.open(url);
    await page.waitForFunction(() => document.title !== '-', undefined, { timeout: 30_000 });
    const found = [await page.title(), page.workers().length];
    await page.close();
    return found;
  }

  for (const [name, { make, workers, entry }] of Object.entries(bundlers)) {
    test(`by ${name}`, async () => {
      await make();
      const out = join(work, 'out', name);
      if (!entry) writeFileSync(join(out, 'index.html'), '<!doctype html><title>-</title><script type="module" src="app.js"></script>');
      const site = await serve({ '/': out }, strictPolicy);
      assert.deepEqual(await titleOf(site.url), ['1 1', workers]);
      site.stop();
    });
  }

  test("by Vite's server for development", async () => {
    const { createServer } = await import(join(modules, 'vite/dist/node/index.js'));
    const server = await createServer({ root: work, server: { port: 0, host: '127.0.0.1' }, logLevel: 'silent' });
    await server.listen();
    const [title] = await titleOf(`http://127.0.0.1:${server.httpServer.address().port}/`);
    await server.close();
    assert.equal(title, '1 1');
  });

  test('by Next.js, which renders it on the server', async () => {
    files({
      'next.config.js': `export default { turbopack: { root: ${JSON.stringify(tools)} } };`,
      'app/layout.js': 'export default function Layout({ children }) { return <html lang="en"><body>{children}</body></html>; }',
      'app/page.js': "import { read, update } from 'zentadbpp';\nimport { Client } from './client.js';\nexport const dynamic = 'force-dynamic';\nexport default function Page() { return <main><p id=\"server\">{read(update({ a: 1 }, '{}'))}</p><Client /></main>; }",
      'app/client.js': `'use client';\nimport { useEffect, useState } from 'react';\nimport { openStore } from 'zentadbpp/store';\nexport function Client() { const [n, set] = useState(''); useEffect(() => { openStore('next', { initial: { n: 7 }, worker: true }).then((store) => set(store.read().n), (error) => set(String(error))); }, []); return <p id="client">{n}</p>; }`,
    });
    await run('next', 'build');
    const port = 20_000 + Math.floor(Math.random() * 20_000);
    const server = spawn(join(modules, '.bin', 'next'), ['start', '-p', `${port}`, '-H', '127.0.0.1'], { cwd: work, stdio: 'ignore', detached: true });
    try {
      const url = `http://127.0.0.1:${port}/`;
      for (let attempt = 0; attempt < 200 && !(await fetch(url).catch(() => undefined)); attempt += 1) await new Promise((resolve) => setTimeout(resolve, 100));
      assert((await (await fetch(url)).text()).includes('{&quot;_id&quot;: &quot;root&quot;, &quot;a&quot;: 1}'));
      const page = await browser.open(url);
      await page.waitForFunction(() => document.querySelector('#client').textContent !== '');
      assert.equal(await page.textContent('#client'), '7');
      await page.close();
    } finally {
      process.kill(-server.pid, 'SIGKILL');
    }
  });
});
