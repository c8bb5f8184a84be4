// The example application, built by Vite, in two browsers with a CouchDB-compatible server in between. Run with node --test.

import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { cpSync, mkdirSync, mkdtempSync, readdirSync, rmSync, symlinkSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, describe, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { accessibilityProblems, isMissing, openBrowser, serve } from './browser.mjs';
import { startServer } from './server.mjs';

const example = fileURLToPath(new URL('../../examples/todo', import.meta.url));
const modules = join(process.env.ZENTADBPP_TOOLS, 'node_modules');

function built(work) {
  cpSync(example, work, { recursive: true, filter: (path) => !/node_modules|dist$/.test(path) });
  mkdirSync(join(work, 'node_modules'));
  for (const name of readdirSync(modules)) symlinkSync(join(modules, name), join(work, 'node_modules', name));
  cpSync(process.env.ZENTADBPP_PACKAGE, join(work, 'node_modules', 'zentadbpp'), { recursive: true });
  execFileSync('npm', ['run', 'build'], { cwd: work, stdio: ['ignore', 'ignore', 'inherit'] });
  return join(work, 'dist');
}

describe('the to-do board', { skip: isMissing }, () => {
  const work = mkdtempSync(join(tmpdir(), 'zentadbpp-todo-'));
  let server;
  let site;
  const people = [];
  before(async () => {
    server = await startServer();
    const policy = "default-src 'self'; script-src 'self' 'wasm-unsafe-eval'; connect-src 'self' http://127.0.0.1:*";
    site = await serve({ '/': built(work) }, policy);
    for (const width of [1200, 390]) {
      const browser = await openBrowser(undefined, { viewport: { width, height: 800 }, hasTouch: width < 500 });
      people.push({ browser, page: await browser.open(site.url) });
    }
    for (const { page } of people) {
      await page.waitForSelector('.list');
      await page.fill('[name="url"]', server.url('board'));
      await page.click('#server button');
      await page.waitForFunction(() => /^Synced/.test(document.querySelector('#status').textContent));
    }
  });
  after(async () => {
    for (const { browser } of people) await browser.close();
    site?.stop();
    await server?.stop();
    rmSync(work, { recursive: true, force: true });
  });

  const listed = (page) => page.$$eval('.list', (lists) => lists.map((list) => [...list.querySelectorAll('.card > input')].map(({ value }) => value).join(', ')).join(' | '));
  const add = async (page, list, text) => {
    await page.fill(`[data-key="${list} add"]`, text);
    await page.keyboard.press('Enter');
    await page.waitForSelector(`[aria-label="Text of ${text}"]`);
  };
  const becomes = (page, wanted) =>
    page.waitForFunction(
      (text) => [...document.querySelectorAll('.list')].map((list) => [...list.querySelectorAll('.card > input')].map(({ value }) => value).join(', ')).join(' | ') === text,
      wanted,
      { timeout: 20_000 },
    ).catch(async () => assert.equal(await listed(page), wanted));
  const drag = async (page, text, list) => {
    const grip = await page.locator('.card', { has: page.locator(`[aria-label="Text of ${text}"]`) }).locator('.grip').boundingBox();
    const to = await page.locator(`[data-list="${list}"] h2`).boundingBox();
    await page.mouse.move(grip.x + grip.width / 2, grip.y + grip.height / 2);
    await page.mouse.down();
    await page.mouse.move(to.x + 40, to.y + 10, { steps: 8 });
    await page.mouse.up();
  };

  test('cards get from one browser to the other, dragged ones too', async () => {
    const [ann, ben] = people.map(({ page }) => page);
    await add(ann, 'list-todo', 'paint');
    await add(ann, 'list-todo', 'saw');
    await becomes(ben, 'paint, saw |  | ');
    await drag(ann, 'paint', 'list-doing');
    await becomes(ann, 'saw | paint | ');
    await becomes(ben, 'saw | paint | ');
  });

  test('what is done offline on both sides comes together, and a conflict is resolved', async () => {
    const [ann, ben] = people.map(({ page }) => page);
    server.setDown(true);
    for (const { browser } of people) await browser.context.setOffline(true);
    await ann.fill('[aria-label="Text of saw"]', 'saw the boards');
    await ann.keyboard.press('Tab');
    await add(ann, 'list-done', 'measure');
    await ben.fill('[aria-label="Text of saw"]', 'sew');
    await ben.keyboard.press('Tab');
    await ben.selectOption('[aria-label="List of paint"]', 'list-done');
    await becomes(ben, 'sew |  | paint');
    // It starts without a network, and has kept everything.
    await ben.reload();
    await becomes(ben, 'sew |  | paint');
    server.setDown(false);
    for (const { browser } of people) await browser.context.setOffline(false);
    for (const { page } of people) await page.click('#server button');
    await ann.waitForSelector('.conflict');
    await ben.waitForSelector('.conflict');
    await ben.click('.choice button:has-text("saw the boards")');
    for (const { page } of people) await page.waitForFunction(() => document.querySelector('.conflict') === null);
    const both = await Promise.all([listed(ann), listed(ben)]);
    assert.equal(both[0], both[1]);
    for (const text of ['saw the boards', 'measure', 'paint']) assert(both[0].includes(text), both[0]);
  });

  test('it can be installed, fits a phone, and is there for everybody', async () => {
    for (const { page, browser } of people) {
      const session = await browser.context.newCDPSession(page);
      const { installabilityErrors } = await session.send('Page.getInstallabilityErrors');
      assert.deepEqual(installabilityErrors.map(({ errorId }) => errorId).filter((id) => id !== 'in-incognito'), []);
      for (const colorScheme of ['light', 'dark']) {
        await page.emulateMedia({ colorScheme });
        assert.deepEqual(await accessibilityProblems(page), []);
      }
      assert.equal(await page.evaluate(() => document.documentElement.scrollWidth <= innerWidth), true);
    }
  });
});
