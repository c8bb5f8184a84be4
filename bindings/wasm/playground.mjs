// playground.mjs TOOLS PACKAGE FILE: makes the playground, one page with all that it needs in it.

import { mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';

const [tools, packageDirectory, file] = process.argv.slice(2).map((path) => resolve(path));
const { build } = createRequire(join(tools, 'package.json'))('esbuild');
const source = join(dirname(fileURLToPath(import.meta.url)), '..', '..', 'docs', 'playground');

const { outputFiles } = await build({
  entryPoints: [join(source, 'playground.js')],
  alias: { 'zentadbpp/inline': join(packageDirectory, 'inline.js') },
  bundle: true,
  write: false,
  minify: true,
  format: 'esm',
  target: 'es2022',
});
const script = outputFiles[0].text.replaceAll('</script', '<\\/script');
const style = readFileSync(join(source, 'style.css'), 'utf8');
const page = readFileSync(join(source, 'index.html'), 'utf8')
  .replace('/* style */', () => style)
  .replace('<script>/* script */', () => `<script type="module">${script}`);
mkdirSync(dirname(file), { recursive: true });
writeFileSync(file, page);
