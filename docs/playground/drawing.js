// Revision trees and the order of lists, drawn.

const escaped = (text) => String(text).replace(/[&<>"']/g, (character) => `&#${character.charCodeAt(0)};`);
const shortened = (text, length) => ([...text].length > length ? `${[...text].slice(0, length - 1).join('')}…` : text);

const signs = { wins: '✓', conflict: '!', old: '', ended: '×' }; // colour alone does not say it to everybody

/** A tree of revisions, [{ rev, parent, kind, label }], parents first: generations to the right, branches below each other. */
export function drawTree(id, revisions) {
  const [step, row, margin] = [46, 34, 22];
  const places = new Map();
  let rows = 0;
  const children = (rev) => revisions.filter(({ parent }) => parent === rev);
  // Depth first, the longest branch on the line of its parent. Trees here are small.
  const depthOf = (rev) => 1 + Math.max(0, ...children(rev).map((child) => depthOf(child.rev)));
  const place = (revision, column, line) => {
    places.set(revision.rev, { x: margin + column * step, y: margin + line * row });
    const ordered = children(revision.rev).sort((a, b) => depthOf(b.rev) - depthOf(a.rev));
    ordered.forEach((child, number) => place(child, column + 1, number === 0 ? line : (rows += 1)));
  };
  revisions.filter(({ parent }) => parent === '').forEach((first, number) => place(first, 0, number === 0 ? 0 : (rows += 1)));
  const width = Math.max(...[...places.values()].map(({ x }) => x)) + margin + 4;
  const height = margin * 2 + rows * row;
  const edges = revisions
    .filter(({ parent }) => places.has(parent))
    .map(({ rev, parent }) => {
      const [a, b] = [places.get(parent), places.get(rev)];
      const middle = (a.x + b.x) / 2;
      return `<path class="edge" d="M${a.x},${a.y} C${middle},${a.y} ${middle},${b.y} ${b.x},${b.y}"/>`;
    });
  const nodes = revisions.map(({ rev, kind, label }) => {
    const { x, y } = places.get(rev);
    const name = escaped(`${rev.slice(0, rev.indexOf('-') + 5)}, ${label}`);
    return `<g class="node ${kind}" tabindex="0" role="button" aria-label="${name}" data-id="${escaped(id)}" data-rev="${escaped(rev)}"><title>${name}</title><circle cx="${x}" cy="${y}" r="11"/><text x="${x}" y="${y + 4.5}" text-anchor="middle" aria-hidden="true">${signs[kind]}</text></g>`;
  });
  return `<svg role="group" aria-label="Revisions of ${escaped(id)}" viewBox="0 0 ${width} ${height}" width="${width}" height="${height}">${edges.join('')}${nodes.join('')}</svg>`;
}

/** The lists of several devices, [{ name, entries: [{ id, text }] }], side by side. */
export function drawOrder(devices) {
  const [box, gap, row, top] = [170, 70, 34, 30];
  const height = top + Math.max(1, ...devices.map(({ entries }) => entries.length)) * row + 6;
  const width = devices.length * box + (devices.length - 1) * gap + 4;
  const left = (column) => 2 + column * (box + gap);
  const parts = [];
  devices.forEach(({ name, entries }, column) => {
    const next = devices[column + 1];
    entries.forEach(({ id }, line) => {
      const to = next ? next.entries.findIndex((each) => each.id === id) : -1;
      if (to < 0) return;
      const [x, y, u, v] = [left(column) + box, top + line * row + 14, left(column + 1), top + to * row + 14];
      parts.push(`<path class="lane" d="M${x},${y} C${x + gap / 2},${y} ${u - gap / 2},${v} ${u},${v}"/>`);
    });
    parts.push(`<text x="${left(column)}" y="18" font-weight="600">${escaped(name)}</text>`);
    entries.forEach(({ text }, line) => {
      parts.push(`<rect class="box" x="${left(column)}" y="${top + line * row}" width="${box}" height="28" rx="7"/>`);
      parts.push(`<text x="${left(column) + 10}" y="${top + line * row + 19}">${escaped(shortened(text, 21))}</text>`);
    });
  });
  const description = devices.map(({ name, entries }) => `${name}: ${entries.map(({ text }) => text).join(', ') || 'empty'}`).join('. ');
  return `<svg role="img" aria-label="${escaped(description)}" viewBox="0 0 ${width} ${height}" width="${width}">${parts.join('')}</svg>`;
}

export { escaped };
