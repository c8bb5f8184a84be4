// What the page can begin with: the data that all devices have, and the edits that each of them then makes.

const item = (_id, text) => ({ _id, text, done: false });
const trip = () => ({ title: 'Trip', list: [item('t1', 'pack'), item('t2', 'book')] });
const journey = () => ({ title: 'Trip', list: [item('a', 'tickets'), item('b', 'passport'), item('c', 'sun cream'), item('d', 'charger')] });
const by = (list, id) => list.find((entry) => entry._id === id);
const moved = (list, id, to) => list.splice(to, 0, ...list.splice(list.indexOf(by(list, id)), 1));

// The first ones are the examples of the walkthrough.
export const presets = [
  {
    name: 'Branches and a conflict',
    about: 'The laptop changed “pack” twice. The phone changed it once, and booked. Sync them: the longer history wins.',
    data: trip(),
    steps: [
      [({ list }) => void (by(list, 't1').text = 'pack light'), ({ list }) => void (by(list, 't1').text = 'pack very light')],
      [({ list }) => void ((by(list, 't1').text = 'pack everything'), (by(list, 't2').done = true))],
    ],
  },
  {
    name: 'A deletion against an edit',
    about: 'The laptop removed “pack” while the phone changed it. Sync them: the edit is kept, whichever of the two wins.',
    data: trip(),
    steps: [[({ list }) => void list.splice(0, 1)], [({ list }) => void (by(list, 't1').text = 'pack light')]],
  },
  {
    name: 'Lists merge without conflicts',
    about: 'The laptop swapped the entries, the phone added “rest”. Sync them.',
    data: trip(),
    steps: [[({ list }) => void moved(list, 't2', 0)], [({ list }) => void list.push(item('t3', 'rest'))]],
  },
  {
    name: 'Three devices',
    about: 'Each device did something else. Switch two of them online, or sync all.',
    data: journey(),
    steps: [
      [({ list }) => void (by(list, 'a').done = true)],
      [({ list }) => void ((by(list, 'a').text = 'train tickets'), moved(list, 'b', 0))],
      [({ list }) => void ((by(list, 'a').text = 'boat tickets'), list.push(item('f', 'book')))],
    ],
  },
];
