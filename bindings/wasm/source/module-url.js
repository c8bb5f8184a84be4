// The module as a file beside this one. Bundlers that know `new URL(..., import.meta.url)` take the file along. Where it is
// not found all the same, as with other bundlers, it comes from the text, which is loaded only then.

export const compileNow = undefined;

async function fromFile() {
  const response = await fetch(new URL('./zentadbpp.wasm', import.meta.url));
  if (!response.ok) throw new Error(`${response.url}: ${response.status}`);
  return response.headers.get('Content-Type') === 'application/wasm'
    ? WebAssembly.compileStreaming(response)
    : WebAssembly.compile(await response.arrayBuffer());
}

export async function compile() {
  try {
    return await fromFile();
  } catch {
    return (await import('./inline-module.js')).compile();
  }
}
