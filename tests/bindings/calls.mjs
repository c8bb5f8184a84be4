// Makes the calls of vectors through a package, in Node or on a page.

// Where the package has another name for a function, or another order of arguments.
const calls = ({ Handle, ...zentadbpp }) => ({
  dump_sync_json_ptr: (handle) => handle.dump(),
  free_sync_json_ptr: (handle) => handle.close(),
  json_array_unflatten: zentadbpp.unflatten,
  json_object_flatten: zentadbpp.flatten,
  new_sync_json_ptr: (text) => new Handle(text),
  read_sync_json_ptr: (handle, config) => handle.read(config),
  replicate_sync_json_ptr: zentadbpp.replicate,
  sync_json_lib_version: zentadbpp.version,
  sync_json_ptr_from_bulk_get: Handle.fromBulkGet,
  update_sync_json_ptr: (input, handle, config) => handle.update(input, config),
});
const camel = (name) => name.replace(/_(\w)/g, (_, letter) => letter.toUpperCase());

function callOf(zentadbpp, name) {
  const named = calls(zentadbpp);
  if (name in named) return named[name];
  const twin = /^sync_json_ptr_(.*)/.exec(name);
  if (twin) return (handle, ...values) => handle[camel(twin[1])](...values);
  return zentadbpp[camel(name.replace(/^sync_json_|_sync_json$/, ''))];
}

function nothing({ Handle }) {
  const handle = new Handle('{}');
  handle.close();
  return handle;
}

function argument(zentadbpp, value, name, saved) {
  if (value?.json !== undefined) return JSON.stringify(value.json);
  if (value?.set === undefined) return value;
  const takesHandles = name.includes('_ptr') && name !== 'new_sync_json_ptr';
  if (value.set === null) return takesHandles ? nothing(zentadbpp) : null;
  const found = saved[value.set];
  return takesHandles && typeof found === 'string' ? new zentadbpp.Handle(found) : found;
}

// What each call of each vector gives: a value, with what a handle dumps, or the failure.
export function outcomes(zentadbpp, { given: sets, vectors }) {
  const saved = Object.fromEntries(Object.entries(sets).map(([name, value]) => [name, JSON.stringify(value)]));
  return vectors.map((vector) =>
    vector.call.map((name) => {
      try {
        const given = callOf(zentadbpp, name)(...vector.args.map((each) => argument(zentadbpp, each, name, saved)));
        if (vector.save && name === vector.call[0]) saved[vector.save] = given;
        return { value: given instanceof zentadbpp.Handle ? given.dump() : given };
      } catch (error) {
        if (!(error instanceof zentadbpp.ZentadbError)) throw error;
        const { key, message, function: from, args, line, filename } = error;
        return { error: { key, message, function: from, args, line, filename } };
      }
    }),
  );
}
