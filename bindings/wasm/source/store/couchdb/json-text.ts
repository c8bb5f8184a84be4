// The members and elements of a JSON text, as they are written: numbers keep their digits, which JSON.parse would round.
// The text has been read by JSON.parse before.

const [quote, backslash, comma, colon] = [...'"\\,:'].map((character) => character.charCodeAt(0));
const opening = new Set([...'[{'].map((character) => character.charCodeAt(0)));
const closing = new Set([...']}'].map((character) => character.charCodeAt(0)));

// The place after the string that begins at `begin`.
function endOfString(text: string, begin: number): number {
  for (let at = begin + 1; ; at += 1) {
    at = text.indexOf('"', at);
    let escapes = at;
    while (text.charCodeAt(escapes - 1) === backslash) escapes -= 1;
    if ((at - escapes) % 2 === 0) return at + 1;
  }
}

// What is between the brackets and commas of the outermost object or array.
function* parts(text: string): Generator<string> {
  let depth = 0;
  let begin = 0;
  for (let at = 0; at < text.length; at += 1) {
    const code = text.charCodeAt(at);
    const isEnd = closing.has(code);
    if (code === quote) at = endOfString(text, at) - 1;
    else if (opening.has(code)) depth += 1;
    else if (isEnd) depth -= 1;
    if (opening.has(code) && depth === 1) begin = at + 1;
    if (!(isEnd && depth === 0) && !(code === comma && depth === 1)) continue;
    const part = text.slice(begin, at).trim();
    if (part !== '') yield part;
    begin = at + 1;
  }
}

/** None of what is not an array. */
export const elementsOf = (text: string): string[] => (text.startsWith('[') ? [...parts(text)] : []);

/** None of what is not an object. */
export function membersOf(text: string): Map<string, string> {
  const members = new Map<string, string>();
  if (!text.startsWith('{')) return members;
  for (const part of parts(text)) {
    const end = endOfString(part, 0);
    let at = end;
    while (part.charCodeAt(at) !== colon) at += 1;
    members.set(JSON.parse(part.slice(0, end)), part.slice(at + 1).trim());
  }
  return members;
}

export const objectText = (members: Iterable<readonly [string, string]>): string =>
  `{${Array.from(members, ([key, value]) => `${JSON.stringify(key)}: ${value}`).join(', ')}}`;
