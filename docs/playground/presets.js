// What the page can begin with: the data that all devices have, and what each of them then does to it.

const item = (_id, text) => ({ _id, text, done: false });
const shopping = () => ({ title: 'Shopping', list: [item('1', 'milk'), item('2', 'tea')] });
const trip = () => ({ title: 'Trip', list: [item('a', 'tickets'), item('b', 'passport'), item('c', 'sun cream'), item('d', 'charger')] });
const by = (list, id) => list.find((entry) => entry._id === id);
const moved = (list, id, to) => list.splice(to, 0, ...list.splice(list.indexOf(by(list, id)), 1));

export const presets = [
  {
    name: 'A conflict, and two edits that fit',
    about: 'Both devices changed “milk”, the laptop also “tea”, and the phone added “bread”. Sync them.',
    data: shopping(),
    steps: [
      ({ list }) => void ((by(list, '1').text = '2 l of milk'), (by(list, '2').text = 'green tea')),
      ({ list }) => void ((by(list, '1').text = 'oat milk'), list.push(item('3', 'bread'))),
    ],
  },
  {
    name: 'Moves and additions in one list',
    about: 'The laptop moved “charger” to the top and the phone added “umbrella” after “passport”. Sync them.',
    data: trip(),
    steps: [({ list }) => void moved(list, 'd', 0), ({ list }) => void list.splice(2, 0, item('e', 'umbrella'))],
  },
  {
    name: 'A deletion against an edit',
    about: 'The laptop removed “sun cream” while the phone changed it. Sync them: the edit is not lost without a trace.',
    data: trip(),
    steps: [
      (data) => void (data.list = data.list.filter(({ _id }) => _id !== 'c')),
      ({ list }) => void ((by(list, 'c').text = 'sun cream, factor 50'), (by(list, 'c').done = true)),
    ],
  },
  {
    name: 'Three devices',
    about: 'Each device did something else. Switch two of them online, or sync all.',
    data: trip(),
    steps: [
      ({ list }) => void (by(list, 'a').done = true),
      ({ list }) => void ((by(list, 'a').text = 'train tickets'), moved(list, 'b', 0)),
      ({ list }) => void ((by(list, 'a').text = 'boat tickets'), list.push(item('f', 'book'))),
    ],
  },
];
