// The playground in Chromium, opened from the file. Run with node --test.

import assert from 'node:assert/strict';
import { join } from 'node:path';
import { after, before, describe, test } from 'node:test';
import { pathToFileURL } from 'node:url';
import { accessibilityProblems, isMissing, openBrowser } from './browser.mjs';

const url = pathToFileURL(join(process.env.ZENTADBPP_PLAYGROUND, 'index.html')).href;
const device = (name) => `.device[aria-label="${name}"]`;
const texts = (page, name) => page.$$eval(`${device(name)} input[data-do="text"]`, (inputs) => inputs.map(({ value }) => value));

describe('the playground', { skip: isMissing }, () => {
  let browser;
  let page;
  before(async () => {
    browser = await openBrowser(undefined, { permissions: ['clipboard-write'] });
    page = await browser.open(url);
    await page.waitForSelector('.device');
  });
  after(() => browser?.close());

  test('a conflict is shown on both devices, and resolved by a click', async () => {
    assert.notDeepEqual(await texts(page, 'Laptop'), await texts(page, 'Phone'));
    await page.click('#sync-all');
    assert.deepEqual(await texts(page, 'Laptop'), await texts(page, 'Phone'));
    assert.match(await page.textContent('#told'), /One entry is in conflict/);
    const buttons = await page.$$(`${device('Laptop')} [data-do="resolve"]`);
    const kept = (await buttons[1].textContent()).match(/“(.*)”/)[1];
    await buttons[1].click();
    await page.click(`${device('Phone')} [data-do="sync"]`);
    assert.equal((await texts(page, 'Phone'))[0], kept);
    assert.equal(await page.$('[data-do="resolve"]'), null);
    assert.equal(await page.$$eval('.node.conflict', (nodes) => nodes.length), 0);
  });

  test('devices that are online see each other at once, and keep the focus', async () => {
    for (const name of ['Laptop', 'Phone']) await page.check(`${device(name)} [role="switch"]`);
    await page.fill(`${device('Laptop')} [name="text"]`, '<b>jam</b>');
    await page.keyboard.press('Enter');
    assert.equal((await texts(page, 'Phone')).at(-1), '<b>jam</b>');
    assert.equal(await page.evaluate(() => document.activeElement.name), 'text');
    await page.uncheck(`${device('Phone')} [role="switch"]`);
    await page.click(`${device('Laptop')} li:last-child [data-do="up"]`);
    assert.equal((await texts(page, 'Phone')).at(-1), '<b>jam</b>');
    assert.equal((await texts(page, 'Laptop')).at(-2), '<b>jam</b>');
  });

  test('a revision is reached and opened by keyboard', async () => {
    await page.focus('.node');
    await page.keyboard.press('Enter');
    assert.match(await page.textContent('#content'), /^\d+-[0-9a-f]{64}_/);
    assert.match(await page.evaluate(() => document.activeElement.getAttribute('aria-label')), /:/);
  });

  test('JSON is edited, and what is not JSON is refused', async () => {
    await page.click(`${device('Phone')} summary`);
    await page.fill(`${device('Phone')} textarea`, '{"list": [');
    await page.click(`${device('Phone')} [data-do="json"]`);
    assert.match(await page.textContent('#told'), /did not work/);
    await page.fill(`${device('Phone')} textarea`, '{"_id": "root", "list": [{"_id": "x", "text": "from JSON"}]}');
    await page.click(`${device('Phone')} [data-do="json"]`);
    assert.deepEqual(await texts(page, 'Phone'), ['from JSON']);
  });

  test('the link brings the state back', async () => {
    const shown = [await texts(page, 'Laptop'), await texts(page, 'Phone')];
    await page.click('#share');
    await page.waitForFunction(() => location.hash.length > 10);
    const other = await browser.open(page.url());
    await other.waitForSelector('.device');
    assert.deepEqual([await texts(other, 'Laptop'), await texts(other, 'Phone')], shown);
    await other.close();
  });

  test('every example syncs, on any screen, for everybody', async () => {
    const count = await page.$$eval('#preset option', (options) => options.length);
    for (let preset = 0; preset < count; preset += 1) {
      await page.selectOption('#preset', `${preset}`);
      await page.click('#sync-all');
      const [first, ...others] = await page.$$eval('.device', (all) => all.map((each) => [...each.querySelectorAll('input[data-do="text"]')].map(({ value }) => value).join()));
      for (const each of others) assert.equal(each, first);
      for (const colorScheme of ['light', 'dark']) {
        await page.emulateMedia({ colorScheme });
        await page.setViewportSize({ width: 360, height: 780 });
        assert.deepEqual(await accessibilityProblems(page), []);
        assert((await page.evaluate(() => document.documentElement.scrollWidth)) <= 360, 'it is wider than a phone');
      }
    }
    assert.deepEqual(page.problems, []);
  });
});
