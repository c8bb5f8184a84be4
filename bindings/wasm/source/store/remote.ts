// A store's engine in a worker: calls go there as messages and come back as promises.

import type { Change, EngineOptions } from './engine.js';
import type { EngineLike } from './store.js';

/** What errors of the library and of an exchange have beside their message. */
export interface Failure {
  key?: string | undefined;
  args?: string | undefined;
  status?: number | undefined;
}

interface Answer {
  call?: number;
  result?: unknown;
  error?: Failure & { name: string; message: string };
  change?: Change;
}

const methods = ['snapshot', 'update', 'seen', 'merge', 'resolve', 'refresh', 'exchange', 'dump', 'conflicts', 'threeWay', 'history', 'close'] as const;

/** Undefined where no worker can be had: its file is not found, or a policy forbids it. */
export async function engineInWorker(
  make: true | (() => Worker),
  name: string,
  options: EngineOptions,
  emit: (change: Change) => void,
): Promise<EngineLike | undefined> {
  let worker: Worker;
  try {
    worker = make === true ? new Worker(new URL('./own-worker.js', import.meta.url), { type: 'module' }) : make();
  } catch {
    return undefined;
  }
  const waiting = new Map<number, { resolve: (result: unknown) => void; reject: (error: Error) => void }>();
  let calls = 0;
  const call = (method: string, values: unknown[]) =>
    new Promise<unknown>((resolve, reject) => {
      calls += 1;
      waiting.set(calls, { resolve, reject });
      worker.postMessage({ call: calls, method, values });
    });
  const started = new Promise<boolean>((resolve) => {
    worker.onmessage = ({ data }: MessageEvent<Answer | 'ready'>) => {
      if (data === 'ready') {
        resolve(true);
        return;
      }
      if (data.change) emit(data.change);
      const waits = data.call === undefined ? undefined : waiting.get(data.call);
      if (!waits) return;
      waiting.delete(data.call!);
      if (data.error) waits.reject(Object.assign(new Error(data.error.message), data.error));
      else waits.resolve(data.result);
    };
    worker.onerror = (event) => {
      event.preventDefault();
      resolve(false);
      for (const { reject } of waiting.values()) reject(new Error(`the worker failed: ${event.message}`));
      waiting.clear();
    };
  });
  if (!(await started)) {
    worker.terminate();
    return undefined;
  }
  try {
    await call('open', [name, options]);
  } catch (failure) {
    worker.terminate();
    if (make !== true) throw failure;
    return undefined; // what is wrong with the store itself shows again on the page
  }
  const engine = Object.fromEntries(methods.map((method) => [method, (...values: unknown[]) => call(method, values)]));
  const close = async () => {
    await call('close', []);
    worker.terminate();
  };
  return { ...engine, close } as unknown as EngineLike;
}
