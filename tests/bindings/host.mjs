// host.mjs PACKAGE FILE: what the Node package does beyond single calls, on the cases in the file.

import assert from 'node:assert/strict';
import { existsSync, readFileSync } from 'node:fs';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';

const [directory, file] = process.argv.slice(2);
const entry = ['node.js', 'index.js'].find((name) => existsSync(join(directory, name)));
const { Handle, check, replicate, threeWay } = await import(pathToFileURL(join(directory, entry)));

// What copies come to that made these updates one after the other, and were merged.
function storeOf(copies, config) {
  let store = new Handle('{}');
  for (const updates of copies) {
    let copy = new Handle('{}');
    for (const data of updates) copy = copy.update(JSON.stringify(data), config);
    store = replicate(copy, store);
  }
  return store;
}

const cases = JSON.parse(readFileSync(file, 'utf8'));
for (const each of cases) {
  const config = JSON.stringify(each.config ?? {});
  const store = storeOf(each.copies, config);
  if (each.three_way) {
    const help = threeWay(store.dump(), each.three_way);
    for (const [name, value] of Object.entries(each.json)) assert.deepEqual(help[name], value, each.what);
  } else {
    assert.deepEqual(check(each.check_text ?? JSON.stringify(each.check), config, store), each.json, each.what);
  }
}
assert.throws(() => check('[]'), { key: 'input_is_not_an_object' });
console.log(`${cases.length} cases checked`);
