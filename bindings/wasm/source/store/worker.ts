// The script of a store's worker.

import { Engine, type EngineOptions } from './engine.js';
import type { Failure } from './remote.js';

interface Call {
  call: number;
  method: string;
  values: unknown[];
}

const scope = self as unknown as { postMessage(message: unknown): void; onmessage: unknown };
let engine: Engine | undefined;

async function run({ method, values }: Call): Promise<unknown> {
  if (method === 'open') {
    const [name, options] = values as [string, EngineOptions];
    engine = await Engine.open(name, options, (change) => scope.postMessage({ change }));
    return undefined;
  }
  const work = engine as unknown as Record<string, (...values: unknown[]) => unknown>;
  return work[method]!(...values);
}

scope.onmessage = async ({ data }: MessageEvent<Call>) => {
  try {
    scope.postMessage({ call: data.call, result: await run(data) });
  } catch (failure) {
    const { name, message, key, args, status } = failure as Error & Failure;
    scope.postMessage({ call: data.call, error: { name, message, key, args, status } });
  }
};
scope.postMessage('ready');
