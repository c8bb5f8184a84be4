// What the board holds, and what is done to it.

export interface Card {
  _id: string;
  text: string;
}

export interface List {
  _id: string;
  title: string;
  cards: Card[];
}

export interface Board {
  lists: List[];
}

// Every copy begins with the same lists, so that copies can be merged.
export const initial: Board = {
  lists: [
    { _id: 'list-todo', title: 'To do', cards: [] },
    { _id: 'list-doing', title: 'Doing', cards: [] },
    { _id: 'list-done', title: 'Done', cards: [] },
  ],
};

const listOf = (board: Board, id: string) => board.lists.find(({ _id }) => _id === id);

export const placeOf = (board: Board, card: string) => {
  for (const list of board.lists) {
    const at = list.cards.findIndex(({ _id }) => _id === card);
    if (at >= 0) return { list, at };
  }
  return undefined;
};

export const added = (list: string, text: string) => (board: Board) =>
  void listOf(board, list)?.cards.push({ _id: crypto.randomUUID(), text });

export const renamed = (card: string, text: string) => (board: Board) => {
  const place = placeOf(board, card);
  if (place) place.list.cards[place.at]!.text = text;
};

export const removed = (card: string) => (board: Board) => {
  const place = placeOf(board, card);
  place?.list.cards.splice(place.at, 1);
};

/** Moves a card before the one at that place of a list, counted without the card itself. */
export const moved = (card: string, list: string, to: number) => (board: Board) => {
  const place = placeOf(board, card);
  const target = listOf(board, list);
  if (!place || !target) return;
  const [taken] = place.list.cards.splice(place.at, 1);
  target.cards.splice(to, 0, taken!);
};
