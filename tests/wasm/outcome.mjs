/** What a call gives, or how it fails but for the line, which compilers may number differently. Loaded by pages as well. */
export function outcomeOf(library, name, args) {
  try {
    return library[name](...args);
  } catch (error) {
    if (!error.key) throw error;
    return { failed: [error.key, error.function ?? null, error.args ?? null] };
  }
}
