// The module as a text in this file.

import deflated from './text.js';

export const compileNow = undefined;

export async function compile() {
  const bytes = Uint8Array.from(atob(deflated), (character) => character.charCodeAt(0));
  const inflated = new Blob([bytes]).stream().pipeThrough(new DecompressionStream('deflate-raw'));
  return WebAssembly.compile(await new Response(inflated).arrayBuffer());
}
