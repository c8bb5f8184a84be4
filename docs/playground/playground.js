// The page: devices with a copy of the data each, what is done on them, and what is drawn of it.

import * as zentadbpp from 'zentadbpp/inline';
import { drawOrder, drawTree, escaped } from './drawing.js';
import { presets } from './presets.js';

const config = { instance_id: 'playground' };
const names = ['Laptop', 'Phone', 'Tablet'];
const inWords = new Intl.ListFormat('en');
const find = (selector, inside = document) => inside.querySelector(selector);

let devices = []; // { name, handle, online }
let selected;

const dataOf = ({ handle }) => handle.readObject(config);
const entriesOf = (data) => (Array.isArray(data.list) ? data.list : []);
const wordsFor = (value) =>
  value === undefined ? 'pruned' : value._deleted ? 'deleted' : typeof value.text === 'string' ? `“${value.text}”${value.done ? ' (done)' : ''}` : JSON.stringify(value);
const tell = (text) => void (find('#told').textContent = text);

function change(device, data) {
  const before = device.handle;
  device.handle = before.update(data, config);
  before.close();
  if (device.online) syncOnline();
}

// Every device learns what every other one knows.
function sync(group) {
  for (const target of [...group, ...group]) {
    for (const source of group) {
      if (source === target) continue;
      const merged = zentadbpp.replicate(source.handle, target.handle, config);
      merged.read(config); // which stores the order of the list
      target.handle.close();
      target.handle = merged;
    }
  }
  const open = new Set(group.flatMap(({ handle }) => handle.unresolved())).size;
  tell(`${inWords.format(group.map(({ name }) => name))} synced. ${open === 0 ? 'No conflict.' : `${open === 1 ? 'One entry is' : `${open} entries are`} in conflict: all devices show the same version and keep the other.`}`);
}

function syncOnline() {
  const online = devices.filter((device) => device.online);
  if (online.length > 1) sync(online);
}

// ---------------------------------------------------------------------------------------------------------------------

function entryView(device, entry, place, count) {
  const { handle } = device;
  const isKnown = typeof entry._id === 'string';
  const conflicting = isKnown ? handle.conflicting(entry._id) : [];
  const text = typeof entry.text === 'string' ? entry.text : JSON.stringify(entry);
  const about = (what) => escaped(`${what} ${text} on ${device.name}`);
  const choices = conflicting.length === 0 ? '' : `<div class="resolve"><span>Versions:</span>${[handle.winning(entry._id), ...conflicting]
    .map((rev) => `<button data-do="resolve" data-rev="${escaped(rev)}">Keep ${escaped(wordsFor(handle.available(rev) ? handle.dataObject(entry._id, rev, config) : undefined))}</button>`)
    .join('')}</div>`;
  return `<li data-entry="${escaped(entry._id)}" class="${conflicting.length > 0 ? 'conflict' : ''}">
    <input type="checkbox" data-do="done" data-key="done" ${entry.done ? 'checked' : ''} aria-label="${about('Done:')}">
    <input type="text" data-do="text" data-key="text" value="${escaped(text)}" class="${entry.done ? 'done' : ''}" aria-label="${about('Text of')}">
    <button data-do="up" data-key="up" ${place === 0 ? 'disabled' : ''} aria-label="${about('Move up')}">↑</button>
    <button data-do="down" data-key="down" ${place === count - 1 ? 'disabled' : ''} aria-label="${about('Move down')}">↓</button>
    <button data-do="remove" data-key="remove" aria-label="${about('Remove')}">×</button>${choices}</li>`;
}

function deviceView(device, number) {
  const data = dataOf(device);
  const entries = entriesOf(data);
  return `<article class="device ${device.online ? '' : 'offline'}" data-device="${number}" aria-label="${device.name}">
    <header><h2>${device.name}</h2>
      <label class="switch"><input type="checkbox" role="switch" data-do="online" data-key="online" ${device.online ? 'checked' : ''}>${device.online ? 'online' : 'offline'}</label>
    </header>
    <ul class="entries">${entries.map((entry, place) => entryView(device, entry, place, entries.length)).join('')}</ul>
    <form class="add" data-do="add"><input name="text" data-key="add" placeholder="New entry" aria-label="New entry on ${device.name}" autocomplete="off"><button>Add</button></form>
    <p><button data-do="sync" data-key="sync">Sync with the others</button></p>
    <details ${device.isOpen ? 'open' : ''}><summary>JSON</summary>
      <textarea data-key="json" spellcheck="false" aria-label="JSON of ${device.name}">${escaped(JSON.stringify(data, null, 2))}</textarea>
      <p><button data-do="json">Apply</button></p></details>
  </article>`;
}

// All that the devices know together of each entry that any of them shows.
function trees() {
  const union = devices.map(({ handle }) => handle).reduce((a, b) => zentadbpp.replicate(a, b, config));
  const shown = JSON.parse(union.allDocs()).filter((id) => !id.startsWith('ord-') && id !== union.root());
  const conflicts = new Set(union.unresolved());
  return shown
    .sort((a, b) => conflicts.has(b) - conflicts.has(a))
    .map((id) => {
      const wins = union.winning(id);
      const leafs = new Set(union.conflicting(id));
      const revisions = revisionsOf(JSON.parse(union.dump()).d[id]).map(({ rev, parent }) => {
        const isEnded = /-(deleted|resolved)_/.test(rev);
        const kind = isEnded ? 'ended' : rev === wins ? 'wins' : leafs.has(rev) ? 'conflict' : 'old';
        const value = union.available(rev) ? union.dataObject(id, rev, config) : undefined;
        const state = { wins: 'wins', conflict: 'in conflict', old: 'older', ended: rev.includes('deleted') ? 'deleted' : 'resolved' }[kind];
        return { rev, parent, kind, label: `${state}: ${isEnded ? state : wordsFor(value)}`, value };
      });
      const title = revisions.find(({ rev }) => rev === wins).value;
      return { id, title: wordsFor(title), revisions };
    });
}

function revisionsOf(history, parent = '', generation = 0) {
  const revisions = [];
  for (const each of history) {
    if (typeof each !== 'string') {
      for (const branch of each) revisions.push(...revisionsOf([branch].flat(), parent, generation));
      return revisions;
    }
    generation += 1;
    revisions.push({ rev: `${generation}-${each}`, parent });
    parent = `${generation}-${each}`;
  }
  return revisions;
}

function render() {
  const focused = document.activeElement;
  const key = focused?.dataset?.key;
  const where = key && [focused.closest('[data-device]')?.dataset.device, focused.closest('[data-entry]')?.dataset.entry];
  find('#devices').innerHTML = devices.map(deviceView).join('');
  find('#order').innerHTML = drawOrder(devices.map((device) => ({ name: device.name, entries: entriesOf(dataOf(device)).map((entry) => ({ id: entry._id, text: typeof entry.text === 'string' ? entry.text : JSON.stringify(entry) })) })));
  const all = trees();
  find('#trees').innerHTML = all.map(({ id, title, revisions }) => `<div class="tree"><h3>${escaped(title)}</h3>${drawTree(id, revisions)}</div>`).join('');
  const node = selected && all.find(({ id }) => id === selected.id)?.revisions.find(({ rev }) => rev === selected.rev);
  find('#content').textContent = node ? `${node.rev}\n${node.label}\n${JSON.stringify(node.value, null, 2)}` : 'No revision is selected.';
  find('#count').value = devices.length;
  if (key) {
    const device = find(`[data-device="${where[0]}"]`);
    const inside = where[1] ? [...(device?.querySelectorAll('[data-entry]') ?? [])].find((each) => each.dataset.entry === where[1]) : device;
    inside && find(`[data-key="${key}"]`, inside)?.focus();
  }
}

// ---------------------------------------------------------------------------------------------------------------------

function edit(device, make) {
  const data = dataOf(device);
  data.list = entriesOf(data);
  make(data);
  change(device, data);
}

const actions = {
  online(device, _, element) {
    device.online = element.checked;
    tell(`${device.name} is ${device.online ? 'online' : 'offline'}.`);
    if (device.online) syncOnline();
  },
  sync: () => sync(devices),
  done: (device, id, { checked }) => edit(device, ({ list }) => void (list.find((entry) => entry._id === id).done = checked)),
  text: (device, id, { value }) => edit(device, ({ list }) => void (list.find((entry) => entry._id === id).text = value)),
  remove: (device, id) => edit(device, (data) => void (data.list = data.list.filter((entry) => entry._id !== id))),
  up: (device, id) => move(device, id, -1),
  down: (device, id) => move(device, id, 1),
  add(device, _, form) {
    const text = new FormData(form).get('text').trim();
    if (text !== '') edit(device, ({ list }) => void list.push({ _id: crypto.randomUUID?.() ?? `e${Date.now()}${Math.random()}`, text, done: false }));
  },
  resolve(device, id, { dataset }) {
    const losing = [device.handle.winning(id), ...device.handle.conflicting(id)].filter((rev) => rev !== dataset.rev);
    for (const rev of losing) device.handle = device.handle.resolve(id, rev);
    tell(`Resolved on ${device.name}. The others learn of it with the next sync.`);
    if (device.online) syncOnline();
  },
  json(device, _, button) {
    change(device, find('textarea', button.closest('details')).value);
  },
};

function move(device, id, by) {
  edit(device, ({ list }) => {
    const at = list.findIndex((entry) => entry._id === id);
    list.splice(at + by, 0, ...list.splice(at, 1));
  });
}

function act(element) {
  const device = devices[element.closest('[data-device]')?.dataset.device];
  const id = element.closest('[data-entry]')?.dataset.entry;
  for (const details of document.querySelectorAll('[data-device] details')) {
    devices[details.closest('[data-device]').dataset.device].isOpen = details.open;
  }
  try {
    actions[element.dataset.do](device, id, element);
  } catch (error) {
    tell(`That did not work: ${error.message}`);
    return;
  }
  render();
}

function select(node) {
  selected = { ...node.dataset };
  render();
  [...document.querySelectorAll('.node')].find((each) => each.dataset.id === selected.id && each.dataset.rev === selected.rev)?.focus();
}

document.addEventListener('click', (event) => {
  const button = event.target.closest('button[data-do]');
  const node = event.target.closest('.node');
  if (button) act(button);
  else if (node) select(node);
});
document.addEventListener('keydown', (event) => {
  const node = event.target.closest('.node');
  if (!node || !['Enter', ' '].includes(event.key)) return;
  event.preventDefault();
  select(node);
});
document.addEventListener('change', (event) => {
  if (event.target.matches('input[data-do]')) act(event.target);
});
document.addEventListener('submit', (event) => {
  event.preventDefault();
  act(event.target);
});

// ---------------------------------------------------------------------------------------------------------------------

const newDevice = (number, syncJson) => ({ name: names[number], handle: new zentadbpp.Handle(syncJson), online: false });

function start(preset) {
  const first = zentadbpp.update(preset.data, '{}', config);
  devices = names.slice(0, preset.steps.length).map((_, number) => newDevice(number, first));
  preset.steps.forEach((edits, number) => edits.forEach((each) => edit(devices[number], each)));
  selected = undefined;
  tell(preset.about);
  render();
}

async function piped(bytes, stream) {
  return new Uint8Array(await new Response(new Blob([bytes]).stream().pipeThrough(stream)).arrayBuffer());
}

async function shareLink() {
  const state = JSON.stringify(devices.map(({ handle, online }) => ({ online, set: JSON.parse(handle.dump()) })));
  const bytes = await piped(new TextEncoder().encode(state), new CompressionStream('deflate-raw'));
  const text = btoa(Array.from(bytes, (byte) => String.fromCharCode(byte)).join(''));
  return `${location.href.split('#')[0]}#${text.replaceAll('+', '-').replaceAll('/', '_').replace(/=+$/, '')}`;
}

async function restore(text) {
  const bytes = Uint8Array.from(atob(text.replaceAll('-', '+').replaceAll('_', '/')), (character) => character.charCodeAt(0));
  const state = JSON.parse(new TextDecoder().decode(await piped(bytes, new DecompressionStream('deflate-raw'))));
  devices = state.slice(0, names.length).map(({ online, set }, number) => ({ ...newDevice(number, set), online }));
  tell('This is the state that somebody shared.');
  render();
}

find('#sync-all').addEventListener('click', () => {
  sync(devices);
  render();
});
find('#share').addEventListener('click', async () => {
  const link = await shareLink();
  history.replaceState(null, '', link);
  await navigator.clipboard?.writeText(link).then(
    () => tell('The link to this state is copied, and in the address bar.'),
    () => tell('The link to this state is in the address bar.'),
  );
});
find('#preset').innerHTML = presets.map(({ name }, number) => `<option value="${number}">${escaped(name)}</option>`).join('');
find('#preset').addEventListener('change', (event) => {
  history.replaceState(null, '', location.href.split('#')[0]);
  start(presets[event.target.value]);
});
find('#count').addEventListener('change', (event) => {
  const count = Number(event.target.value);
  if (count < devices.length) devices.length = count;
  else devices.push(newDevice(devices.length, devices[0].handle.dump()));
  render();
});

await zentadbpp.load();
try {
  if (location.hash.length > 1) await restore(location.hash.slice(1));
  else start(presets[0]);
} catch (error) {
  start(presets[0]);
  tell(`The link does not hold a state: ${error.message}`);
}
