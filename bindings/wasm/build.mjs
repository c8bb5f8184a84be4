// build.mjs WASM TOOLS DIRECTORY: makes the package in that directory, around the module in that file, with what is installed
// in the directory of the tools.

import { createRequire } from 'node:module';
import { execFileSync } from 'node:child_process';
import { copyFileSync, cpSync, mkdirSync, readdirSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { dirname, join, relative, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';
import { deflateRawSync } from 'node:zlib';

const here = dirname(fileURLToPath(import.meta.url));
const [wasm, tools, out] = process.argv.slice(2).map((path) => resolve(path));
const { build } = createRequire(join(tools, 'package.json'))('esbuild');
const node = join(here, '..', 'node');

rmSync(out, { recursive: true, force: true });
mkdirSync(out, { recursive: true });
cpSync(join(here, 'package'), out, { recursive: true });
copyFileSync(join(here, '..', '..', 'LICENSE'), join(out, 'LICENSE'));
copyFileSync(wasm, join(out, 'zentadbpp.wasm'));

const text = JSON.stringify(deflateRawSync(readFileSync(wasm), { level: 9 }).toString('base64'));
writeFileSync(join(out, 'text.js'), `export default ${text};\n`);
writeFileSync(join(out, 'text.cjs'), `module.exports = ${text};\n`);

// The interface is that of the package for Node; here another module is behind it.
for (const name of ['index.d.ts', 'index.d.cts']) copyFileSync(join(node, 'index.d.ts'), join(out, name));

// What imports are in the package: the name in the sources, and the file of the package for it.
const places = (names) => ({
  name: 'places',
  setup({ onResolve }) {
    for (const [name, place] of Object.entries(names)) {
      const filter = new RegExp(`^${name.replaceAll('.', '\\.')}$`);
      onResolve({ filter }, () => (place.startsWith('./') ? { path: place, external: true } : { path: place }));
    }
  },
});

const source = (name) => join(here, 'source', name);
const bundle = (entry, file, format, names) =>
  build({
    entryPoints: [entry],
    outfile: join(out, file),
    bundle: true,
    format,
    platform: 'neutral',
    target: 'es2022',
    external: ['node:*'],
    legalComments: 'none',
    minifyWhitespace: true, // and names as they are, for messages and profiles
    minifySyntax: true,
    logOverride: { 'empty-import-meta': 'silent' },
    plugins: [places(names)],
  });

const common = { './native.js': source('native.js'), './library.js': join(node, 'library.js') };
const store = (name) => join(here, 'source', 'store', `${name}.ts`);
const storeOn = (library, storage) => ({
  '#library': library,
  './default-storage.js': store(`storage-${storage}`),
});
const index = join(node, 'index.js');
const variant = (name, extension = 'js') => ({
  ...common,
  './module.js': source(`module-${name}.js`),
  './text.js': `./text.${extension}`,
  './inline-module.js': './inline-module.js',
});
await Promise.all([
  bundle(index, 'index.js', 'esm', variant('url')),
  bundle(index, 'inline.js', 'esm', { ...variant('text'), './module.js': './inline-module.js' }),
  bundle(source('module-text.js'), 'inline-module.js', 'esm', variant('text')),
  bundle(index, 'inline.cjs', 'cjs', variant('text', 'cjs')),
  bundle(index, 'node.js', 'esm', variant('node')),
  bundle(index, 'node.cjs', 'cjs', variant('node', 'cjs')),
  bundle(store('store'), 'store.js', 'esm', storeOn('./index.js', 'browser')),
  bundle(store('worker'), 'store-worker.js', 'esm', storeOn('./index.js', 'browser')),
  // The one that the store starts by itself: bundlers put all of it into one file, so it has no text of the module.
  bundle(store('worker'), 'own-worker.js', 'esm', {
    ...variant('url'),
    ...storeOn(index, 'browser'),
    './inline-module.js': source('module-none.js'),
  }),
  bundle(store('store'), 'store.cjs', 'cjs', storeOn('./inline.cjs', 'browser')),
  bundle(store('store'), 'store.node.js', 'esm', storeOn('./node.js', 'node')),
  bundle(store('store'), 'store.node.cjs', 'cjs', storeOn('./node.cjs', 'node')),
]);

// The types of the store, checked on the way.
execFileSync(
  process.execPath,
  [join(tools, 'node_modules', 'typescript', 'bin', 'tsc'), '--project', join(here, 'tsconfig.json'), '--typeRoots', join(tools, 'node_modules', '@types'), '--outDir', join(out, 'types')],
  { stdio: 'inherit' },
);
const types = join(out, 'types');
for (const name of readdirSync(types, { recursive: true }).filter((each) => each.endsWith('.d.ts'))) {
  const path = join(types, name);
  const toPackage = relative(dirname(path), out);
  const text = readFileSync(path, 'utf8').replaceAll('#library', `${toPackage}/index.js`);
  writeFileSync(path, text);
  writeFileSync(path.replace(/\.d\.ts$/, '.d.cts'), text.replace(/(from '\.[^']*)\.js'/g, "$1.cjs'"));
}
