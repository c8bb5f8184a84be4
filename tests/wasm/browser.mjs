// A headless Chromium for tests, and pages for it: files of directories, under a strict content security policy.

import { existsSync, mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { createServer } from 'node:http';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { extname, join, normalize } from 'node:path';

const path = process.env.CHROMIUM ?? '/usr/bin/chromium';
export const isMissing = existsSync(path) ? false : 'there is no Chromium';

const quiet = ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
  '--disable-component-update', '--disable-sync', '--disable-dev-shm-usage'];

/** A browser with a profile of its own, which may be opened again after the browser was killed. */
export async function openBrowser(profile = mkdtempSync(join(tmpdir(), 'zentadbpp-profile-')), options = {}) {
  const { chromium } = createRequire(join(process.env.ZENTADBPP_TOOLS, 'package.json'))('playwright-core');
  const context = await chromium.launchPersistentContext(profile, { executablePath: path, headless: true, args: quiet, ...options });
  const open = async (url) => {
    const page = await context.newPage();
    page.problems = [];
    page.on('pageerror', (error) => page.problems.push(error.message));
    page.on('console', (message) => message.type() === 'error' && page.problems.push(message.text()));
    await page.goto(url);
    return page;
  };
  const close = async () => {
    await context.close().catch(() => {});
    rmSync(profile, { recursive: true, force: true, maxRetries: 5 });
  };
  return { context, open, close, profile };
}

const types = { '.js': 'text/javascript', '.mjs': 'text/javascript', '.css': 'text/css', '.html': 'text/html', '.wasm': 'application/wasm',
  '.json': 'application/json', '.svg': 'image/svg+xml', '.webmanifest': 'application/manifest+json', '.png': 'image/png' };

export const strictPolicy = "default-src 'self'; script-src 'self' 'wasm-unsafe-eval'";

/** Serves directories, { '/prefix': directory }; a text in place of a directory is a page. */
export async function serve(places, policy = strictPolicy) {
  const server = createServer((request, response) => {
    const wanted = normalize(decodeURIComponent(new URL(request.url, 'http://x').pathname));
    const prefix = Object.keys(places).filter((each) => wanted.startsWith(each)).sort((a, b) => b.length - a.length)[0];
    const place = places[prefix];
    const file = place?.startsWith('<') ? undefined : join(place ?? '/nowhere', wanted.slice(prefix?.length).replace(/\/$|^$/, '/index.html'));
    if (file && !existsSync(file)) return response.writeHead(404).end();
    const headers = { 'Content-Type': file ? (types[extname(file)] ?? 'application/octet-stream') : 'text/html', 'Cache-Control': 'no-store' };
    if (policy) headers['Content-Security-Policy'] = policy;
    response.writeHead(200, headers).end(file ? readFileSync(file) : place);
  });
  await new Promise((ready) => server.listen(0, '127.0.0.1', ready));
  return {
    url: `http://127.0.0.1:${server.address().port}`,
    stop: () => (server.closeAllConnections(), server.close()),
  };
}

/** What axe-core finds wrong on the page. */
export async function accessibilityProblems(page) {
  await page.evaluate(readFileSync(createRequire(join(process.env.ZENTADBPP_TOOLS, 'package.json')).resolve('axe-core/axe.min.js'), 'utf8'));
  const { violations } = await page.evaluate(() => globalThis.axe.run());
  return violations.map(({ id, nodes }) => `${id}: ${nodes.map(({ html }) => html).join(' ')}`);
}
