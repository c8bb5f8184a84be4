"""vectors.py FILE...: makes the calls of the vectors through the Python package and checks what they give."""

import copy
import gc
import json
import pathlib
import pickle
import resource
import sys
import threading
import warnings

import zentadbpp
from replay import Set, calls_of, matches
from zentadbpp import Error, Handle

# Where the package has another name for a function, or another order of arguments.
CALLS = {
    "dump_sync_json_ptr": lambda handle: handle.dump(),
    "free_sync_json_ptr": lambda handle: handle.close(),
    "json_array_unflatten": zentadbpp.unflatten,
    "json_object_flatten": zentadbpp.flatten,
    "new_sync_json_ptr": Handle,
    "read_sync_json_ptr": lambda handle, config: handle.read(config),
    "replicate_sync_json_ptr": zentadbpp.replicate,
    "sync_json_lib_version": zentadbpp.version,
    "sync_json_ptr_from_bulk_get": Handle.from_bulk_get,
    "update_sync_json_ptr": lambda input, handle, config: handle.update(input, config),
}


def call_of(name):
    if name in CALLS:
        return CALLS[name]
    if name.startswith("sync_json_ptr_"):
        return lambda handle, *arguments: getattr(handle, name.removeprefix("sync_json_ptr_"))(*arguments)
    return getattr(zentadbpp, name.removeprefix("sync_json_").removesuffix("_sync_json"))


def prepared(value, name):
    """A document set as the function takes it: as a handle, or as the text that it is."""
    if not isinstance(value, Set):
        return value
    if "_ptr" not in name or name == "new_sync_json_ptr":
        return value if value.there else None
    handle = Handle(value if value.there else "{}")
    if not value.there:
        handle.close()
    return handle


def fails_so(expected, name, error):
    if expected is None:
        return True
    if isinstance(expected, str):
        return error.key == error.text == expected and error.function is None
    function = name if expected["function"] == "*" else expected["function"]
    told = (error.function, error.key, error.details)
    return told == (function, expected["error"], expected.get("args")) and error.line > 0 and str(error) == error.text


def run(files):
    calls = failures = 0
    for place, name, vector, arguments, keep in calls_of(files):
        calls += 1
        try:
            given = call_of(name)(*(prepared(value, name) for value in arguments))
            right = matches(vector, given)
            keep(given)
        except Error as error:
            given = error
            right = "error" in vector and fails_so(vector["error"], name, error)
        if not right:
            failures += 1
            print(f"{place} gives {given}", file=sys.stderr)
    return calls, failures


def fails(kind, call):
    try:
        call()
    except kind:
        return True
    return False


def what_no_vector_tells():
    """What the package itself has to see to."""
    for case in json.loads(pathlib.Path(__file__).with_name("verify.json").read_text(encoding="utf-8")):
        yield f"verify: {case['case']}", zentadbpp.verify(case["sync_json"], case.get("known", "{}")) == case["found"]
    branch = '{"d": {"a": ["A_first"]}, "o": {"A": {}}, "r": "a"}'
    with Handle(branch) as handle:
        inside = handle.closed
    yield "a handle is open in its with, and closed after it", not inside and handle.closed
    yield "a handle is not copied", fails(TypeError, lambda: copy.copy(handle)) and fails(TypeError, lambda: pickle.dumps(handle))
    yield "a text with a NUL byte", fails(Error, lambda: zentadbpp.read("{}\0"))
    yield "bytes", zentadbpp.root(branch.encode()) == "a"
    yield "bytes that are no UTF-8", zentadbpp.root(b'{"d": {"\xff": ["A_first"]}, "r": "\xff"}') == "\udcff"
    with warnings.catch_warnings(record=True) as told:
        warnings.simplefilter("always")
        zentadbpp.read(branch, '{"instance_id": "a", "discard_ids": true, "": 1}')
        zentadbpp.replicate(branch, branch, "{}")
        with Handle(branch) as opened:
            opened.read('{"Compressed": true}')
    yield "a key that no configuration has", [(str(each.message).partition(": ")[2], each.filename) for each in told] == [
        (", discard_ids", __file__), ("Compressed", __file__)]
    yield "a number for a text", fails(Exception, lambda: zentadbpp.read(5))
    yield "a text for a handle", fails(Exception, lambda: zentadbpp.replicate(handle, "{}"))
    yield "a number that is too large", fails(OverflowError, lambda: zentadbpp.prune(branch, 2**32))
    yield "a negative number", fails(OverflowError, lambda: zentadbpp.prune(branch, -1))

    shared = Handle(branch)
    found = []
    threads = [threading.Thread(target=lambda: found.append(shared.root())) for _ in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    yield "threads share a handle", found == ["a"] * 8


def all_memory_is_freed():
    """Each kind of result and of failure, a megabyte at a time, until keeping them would be seen."""
    large = "x" * 1_000_000
    content = json.dumps({"d": {"a": ["A_first"]}, "o": {"A": {"t": "!" + large}}, "r": "a"})
    handle = Handle(content)

    def failing(call):
        try:
            call()
        except Error:
            pass

    kinds = {
        "text": lambda: zentadbpp.read(content),
        "error": lambda: failing(lambda: zentadbpp.winning("{}", large)),
        "flattened": lambda: zentadbpp.flatten(json.dumps({"t": large})),
        "handle": lambda: Handle(content),
        "error for a handle": lambda: failing(lambda: handle.resolve(large, "1-A_first")),
        "dump": handle.dump,
    }
    for name, call in kinds.items():
        for _ in range(10):
            call()
        gc.collect()
        before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
        for _ in range(150):
            call()
        grown = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before
        yield f"{name}: grew by {grown} KiB", grown < 60_000


def main():
    calls, failures = run(sys.argv[1:])
    for what, holds in (*what_no_vector_tells(), *all_memory_is_freed()):
        if not holds:
            failures += 1
            print(f"not so: {what}", file=sys.stderr)
    print(f"{calls} calls checked, {failures} failures")
    sys.exit(failures > 0 or calls == 0)


main()
