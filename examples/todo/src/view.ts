// The board on the page. It is drawn anew after every change; the card that has the focus keeps it.

import type { Conflict } from 'zentadbpp/store';
import type { Board, Card, List } from './board.js';

export interface Actions {
  add(list: string, text: string): void;
  rename(card: string, text: string): void;
  remove(card: string): void;
  move(card: string, list: string, to: number): void;
  keep(card: string, rev: string): void;
}

function element<K extends keyof HTMLElementTagNameMap>(name: K, members: Partial<HTMLElementTagNameMap[K]> & { label?: string; key?: string } = {}, ...inside: (Node | string)[]): HTMLElementTagNameMap[K] {
  const { label, key, ...rest } = members;
  const made = Object.assign(document.createElement(name), rest);
  if (label) made.setAttribute('aria-label', label);
  if (key) made.dataset['key'] = key;
  made.append(...inside);
  return made;
}

function cardView(card: Card, list: List, at: number, board: Board, conflict: Conflict | undefined, actions: Actions): HTMLElement {
  const input = element('input', { value: card.text, key: `${card._id} text`, label: `Text of ${card.text}` });
  input.onchange = () => actions.rename(card._id, input.value);
  const place = element('select', { key: `${card._id} list`, label: `List of ${card.text}` });
  for (const each of board.lists) place.add(new Option(each.title, each._id, false, each._id === list._id));
  place.onchange = () => actions.move(card._id, place.value, 0);
  const button = (text: string, what: string, run: () => void, disabled = false) =>
    element('button', { textContent: text, onclick: run, disabled, key: `${card._id} ${what}`, label: `${what} ${card.text}` });
  const view = element(
    'li',
    { className: conflict ? 'card conflict' : 'card' },
    element('span', { className: 'grip', textContent: '⠿', ariaHidden: 'true' }),
    input,
    button('×', 'Remove', () => actions.remove(card._id)),
    element(
      'div',
      { className: 'tools' },
      place,
      button('↑', 'Move up', () => actions.move(card._id, list._id, at - 1), at === 0),
      button('↓', 'Move down', () => actions.move(card._id, list._id, at + 1), at === list.cards.length - 1),
    ),
  );
  view.dataset['card'] = card._id;
  if (conflict) {
    const choice = element('div', { className: 'choice' }, 'Edited twice. Keep ');
    for (const { rev, value } of [conflict.winning, ...conflict.others]) {
      const text = (value as Card | undefined)?.text ?? 'the version that was deleted';
      choice.append(button(text, `Keep ${text} for`, () => actions.keep(card._id, rev)));
    }
    view.append(choice);
  }
  return view;
}

function listView(list: List, board: Board, conflicts: Map<string, Conflict>, actions: Actions): HTMLElement {
  const cards = element('ol', {}, ...list.cards.map((card, at) => cardView(card, list, at, board, conflicts.get(card._id), actions)));
  const input = element('input', { placeholder: 'New card', key: `${list._id} add`, label: `New card in ${list.title}` });
  const form = element('form', { className: 'add' }, input, element('button', { textContent: 'Add', label: `Add to ${list.title}` }));
  form.onsubmit = (event) => {
    event.preventDefault();
    if (input.value.trim() !== '') actions.add(list._id, input.value.trim());
    input.value = '';
  };
  const view = element('section', { className: 'list', label: list.title }, element('h2', { textContent: `${list.title} (${list.cards.length})` }), cards, form);
  view.dataset['list'] = list._id;
  return view;
}

export function draw(root: HTMLElement, board: Board, conflicts: readonly Conflict[], actions: Actions): void {
  const focused = document.activeElement as HTMLInputElement | null;
  const key = root.contains(focused) ? focused?.dataset['key'] : undefined;
  const byCard = new Map(conflicts.map((conflict) => [conflict.id, conflict]));
  const typed = key?.endsWith(' add') || key?.endsWith(' text') ? focused?.value : undefined;
  root.replaceChildren(...board.lists.map((list) => listView(list, board, byCard, actions)));
  const again = key && ([...root.querySelectorAll<HTMLInputElement>('[data-key]')].find(({ dataset }) => dataset['key'] === key));
  if (!again) return;
  if (typed !== undefined) again.value = typed;
  again.focus();
}

/** Lets cards be dragged, by mouse, pen or finger. */
export function makeDraggable(root: HTMLElement, move: Actions['move']): void {
  root.addEventListener('pointerdown', (start) => {
    const grip = (start.target as HTMLElement).closest<HTMLElement>('.grip');
    const card = grip?.closest<HTMLElement>('.card');
    if (!grip || !card || start.button !== 0) return;
    start.preventDefault();
    grip.setPointerCapture(start.pointerId);
    card.classList.add('dragged');
    let target: { list: HTMLElement; to: number } | undefined;
    const marker = document.createElement('li');
    marker.className = 'marker';

    const follow = ({ clientX, clientY }: PointerEvent) => {
      card.style.translate = `${clientX - start.clientX}px ${clientY - start.clientY}px`;
      const list = document.elementsFromPoint(clientX, clientY).map((each) => each.closest<HTMLElement>('.list')).find((each) => each && root.contains(each));
      if (!list) return;
      const others = [...list.querySelectorAll<HTMLElement>('.card')].filter((each) => each !== card);
      const before = others.findIndex((each) => clientY < each.getBoundingClientRect().top + each.offsetHeight / 2);
      target = { list, to: before < 0 ? others.length : before };
      list.querySelector('ol')!.insertBefore(marker, others[target.to] ?? null);
    };
    const finish = (drop: boolean) => {
      ended.abort();
      marker.remove();
      card.classList.remove('dragged');
      card.style.translate = '';
      if (drop && target) move(card.dataset['card']!, target.list.dataset['list']!, target.to);
    };
    const ended = new AbortController();
    grip.addEventListener('pointermove', follow, { signal: ended.signal });
    grip.addEventListener('pointerup', () => finish(true), { signal: ended.signal });
    grip.addEventListener('pointercancel', () => finish(false), { signal: ended.signal });
  });
}
