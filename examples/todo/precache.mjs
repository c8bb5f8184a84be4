// Names the files of the build in its service worker, so that all of them are there without a network.

import { createHash } from 'node:crypto';
import { readdirSync, readFileSync, writeFileSync } from 'node:fs';

const files = readdirSync('dist', { recursive: true, withFileTypes: true })
  .filter((entry) => entry.isFile() && entry.name !== 'sw.js')
  .map((entry) => `${entry.parentPath ?? entry.path}/${entry.name}`.replace(/^dist\//, ''))
  .sort();
const version = createHash('sha256').update(files.map((file) => readFileSync(`dist/${file}`)).join()).digest('hex').slice(0, 12);
const worker = readFileSync('dist/sw.js', 'utf8');
writeFileSync('dist/sw.js', worker.replace('[/* files */]', JSON.stringify(['./', ...files])).replace('development', version));
