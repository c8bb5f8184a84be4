// The application: a store, drawn on the page and kept in step with a database.

import { openStore } from 'zentadbpp/store';
import { added, initial, moved, removed, renamed, type Board } from './board.js';
import { keepInStep } from './sync.js';
import { draw, makeDraggable, type Actions } from './view.js';

const store = await openStore<Board>('board', { initial, config: { instance_id: 'board' }, worker: true });
const root = document.querySelector<HTMLElement>('#board')!;
const server = document.querySelector<HTMLFormElement>('#server')!;
const url = server.elements.namedItem('url') as HTMLInputElement;
const status = document.querySelector('#status')!;

const actions: Actions = {
  add: (list, text) => void store.update(added(list, text)),
  rename: (card, text) => void store.update(renamed(card, text)),
  remove: (card) => void store.update(removed(card)),
  move: (card, list, to) => void store.update(moved(card, list, to)),
  keep: (card, rev) => void store.resolve(card, rev),
};
const show = async () => draw(root, store.read(), await store.conflicts(), actions);
store.onChange(() => void show());
makeDraggable(root, actions.move);
await show();

url.value = localStorage.getItem('database') ?? '';
const sync = keepInStep(store, () => url.value.trim(), (text) => (status.textContent = text));
server.addEventListener('submit', (event) => {
  event.preventDefault();
  localStorage.setItem('database', url.value);
  sync();
});

if ('serviceWorker' in navigator && import.meta.env.PROD) void navigator.serviceWorker.register('./sw.js');
