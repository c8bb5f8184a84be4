// Keeps the store and a database in step: soon after every change, now and then, and as soon as there is a network again.

import type { Store } from 'zentadbpp/store';

const afterChange = 300;
const betweenChecks = 5000;

export function keepInStep<T>(store: Store<T>, url: () => string, report: (text: string) => void): () => void {
  let timer: ReturnType<typeof setTimeout> | undefined;
  let isRunning = false;

  async function run(): Promise<void> {
    clearTimeout(timer);
    if (isRunning) return;
    if (url() === '') {
      report('Not synced: no database is named.');
      return;
    }
    isRunning = true;
    try {
      await store.exchange(url(), { create: true, retries: 0 });
      report(`Synced at ${new Date().toLocaleTimeString()}.`);
    } catch (error) {
      report(navigator.onLine ? `Not synced: ${(error as Error).message}` : 'Offline. All is kept here and synced later.');
    }
    isRunning = false;
    timer = setTimeout(run, betweenChecks);
  }

  store.onChange(({ origin }) => {
    if (origin === 'exchange' || isRunning) return;
    clearTimeout(timer);
    timer = setTimeout(run, afterChange);
  });
  addEventListener('online', () => void run());
  addEventListener('offline', () => report('Offline. All is kept here and synced later.'));
  void run();
  return () => void run();
}
