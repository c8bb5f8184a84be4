// writer.mjs FILE NAME: adds elements to the store in that file, and reports each one that is kept to its parent, until it is killed.

import { join } from 'node:path';
import { pathToFileURL } from 'node:url';

const [file, name] = process.argv.slice(2);
const { openStore } = await import(pathToFileURL(join(process.env.ZENTADBPP_PACKAGE, 'store.node.js')));
const store = await openStore(file);
for (let count = 0; ; count += 1) {
  await store.update((data) => void data.list.push({ _id: `${name}${count}`, text: 'x'.repeat(200) }));
  process.send(`${name}${count}`);
}
