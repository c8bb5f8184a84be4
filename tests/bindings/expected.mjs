// Whether what a call gave is what its vector expects.

import assert from 'node:assert/strict';

export function check(vector, name, { value, error }) {
  if (error) {
    checkError(vector, name, error);
    return;
  }
  assert(!('error' in vector), `gives ${value}`);
  if ('list' in vector) assert.deepEqual(value, vector.list);
  if ('text' in vector) assert.equal(value, vector.text);
  if ('json' in vector) assert.deepEqual(typeof value === 'boolean' ? value : JSON.parse(value), vector.json);
}

function checkError(vector, name, error) {
  assert('error' in vector, error.message);
  const expected = vector.error;
  if (expected === null) return;
  if (typeof expected === 'string') {
    assert.deepEqual([error.key, error.message, error.function], [expected, expected, undefined]);
    return;
  }
  const from = expected.function === '*' ? name : expected.function;
  assert.deepEqual([error.function, error.key, error.args], [from, expected.error, expected.args]);
  assert(error.line > 0 && error.filename.startsWith('src/'));
}
