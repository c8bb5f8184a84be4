// The module as a text in this file, compiled when it is first needed: no file to find, wherever bundlers for servers put
// this one.

import { Buffer } from 'node:buffer';
import { inflateRawSync } from 'node:zlib';
import deflated from './text.js';

export const compileNow = () => new WebAssembly.Module(inflateRawSync(Buffer.from(deflated, 'base64')));
export const compile = async () => compileNow();
