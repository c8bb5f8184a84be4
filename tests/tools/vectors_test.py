"""vectors_test.py FILE...: makes the calls of the vectors with zentadb, each as a process on files, and checks what it gives.

From the environment: ZENTADB (program)."""

import functools
import json
import os
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "bindings"))
from replay import Set, calls_of, matches  # noqa: E402

ZENTADB = os.path.abspath(os.environ["ZENTADB"])
LEAST_CALLS = 145

# What hosts do that have the library in their process, and a user of the program has no use for.
NO_COMMAND = {
    "all_winning", "dump", "flatten", "free", "from_bulk_get", "prune that keeps nothing of the winner", "to_bulk_docs", "resolve that changes nothing", "unflatten",
    "what has no name on a command line",
}
NOTHING_TO_NAME = ("invalid_sync_json_ptr", "empty_revision", "root_id_cannot_be_empty")
# How a run ends that fails; else with 3, as for anything that is not there or not what it should be.
DAMAGED, UNMERGEABLE = 4, 5
EXIT_CODES = {
    "config_is_not_an_object": 2,
    "invalid string_view position": DAMAGED,
    "unexpected end of input": DAMAGED,
    "failed_to_uncompress_obj": DAMAGED,
    "failed_to_uncompress_data": DAMAGED,
    "invalid_syncdata_data_node": DAMAGED,
    "invalid_data_object": DAMAGED,
    "mismatching_root_document_identifiers": UNMERGEABLE,
    "cannot_replace_first_revision": UNMERGEABLE,
}


class Refused(Exception):
    """The program did not do it."""

    def __init__(self, code, told):
        super().__init__(f"exit code {code}: {told}")
        self.code, self.told = code, told


class NoCommand(Exception):
    """The program has no command for it."""


def run(*arguments):
    done = subprocess.run([ZENTADB, *arguments], capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise Refused(done.returncode, done.stderr)
    return done.stdout.removesuffix("\n")


@functools.cache
def file(text):
    name = tempfile.mkstemp(dir=".")[1]
    with open(name, "w", encoding="utf-8") as out:
        out.write(text)
    return name


def made(*arguments):
    run(*arguments, "-o", "made")
    with open("made", encoding="utf-8") as given:
        return given.read()


def told(*arguments):
    return json.loads(run(*arguments, "--json"))


def operations(text):
    """The program's patches tell more than the library's: the root, and the hashes of both stores."""
    return json.dumps({key: value for key, value in json.loads(text).items() if key in "do"})


def log(text, id):
    return {each["revision"]: each for each in told("log", file(text), id)}


def states(text, id, *wanted):
    return sorted(name for name, each in log(text, id).items() if each["state"].split(",")[0] in wanted)


def parent(text, id, revision):
    run("show", file(text), id, revision)
    return log(text, id)[revision]["parent"]


def siblings(text, id, revision):
    before = parent(text, id, revision)
    return sorted(name for name, each in log(text, id).items() if each["parent"] == before and name != revision)


def history(text, id, revision):
    path = [revision]
    while (before := parent(text, id, path[-1])) is not None:
        path.append(before)
    return path


def available(text, revision):
    documents = {each["id"]: each["winning"] for each in told("docs", file(text), "--all")}
    revision = documents.get(revision, revision)
    return any(log(text, id).get(revision, {}).get("available", False) for id in documents)


def resolve(text, id, closed):
    """The library closes a branch, the program keeps one."""
    open_leafs = states(text, id, "wins", "conflict")
    if len(open_leafs) == 1 and closed in log(text, id):
        raise NoCommand("resolve that changes nothing")
    kept = [name for name in open_leafs if name != closed]
    return made("resolve", file(text), id, kept[0] if closed in open_leafs else closed)


def prune(text, ids, keep, skip_winning):
    if skip_winning:
        raise NoCommand("prune that keeps nothing of the winner")
    # Such a call takes the order of arrays as it is.
    return made("prune", file(text), *ids, "--keep", str(keep), "--force", "--config", '{"preserve_old_ordering": true}')


def changes(*kinds):
    return lambda new, old: sorted(id for kind in kinds for id in told("changes", file(old), file(new), "--all")[kind])


COMMANDS = {
    "all_docs": lambda text: [each["id"] for each in told("docs", file(text), "--all")],
    "ancestor": lambda text, id, revision: parent(text, id, revision) or "",
    "available": available,
    "compress": lambda text: made("compress", file(text)),
    "conflicting": lambda text, id: states(text, id, "conflict"),
    "created": changes("created"),
    "data": lambda text, id, revision, config: run("show", file(text), id, revision, "--config", file(config)),
    "deleted": changes("deleted"),
    "diff": lambda old, new, config: operations(made("diff", file(old), file(new))),
    "history": history,
    "instances": lambda text: told("status", file(text))["instances"],
    "leafs": lambda text, id: states(text, id, "wins", "conflict", "deleted"),
    "lib_version": lambda: run("--version").split()[-1],
    "new": lambda text: made("merge", "nothing", file(text)),  # what is opened and written is a copy
    "patch": lambda text, patch: operations(made("patch", file(text), file(patch))),
    "prune": lambda text, *how: prune(text, (), *how),
    "prune_ids": lambda text, ids, *how: prune(text, json.loads(ids), *how),
    "read": lambda text, config: run("read", file(text), "--config", file(config)),
    "replicate": lambda source, target, _: made("merge", file(target), file(source)),
    "resolve": resolve,
    "root": lambda text: told("status", file(text))["root"],
    "siblings": siblings,
    "uncompress": lambda text: made("uncompress", file(text)),
    "unresolved": lambda text: [each["id"] for each in told("conflicts", file(text))],
    "update": lambda data, text, config: made("update", file(text), file(data), "--config", file(config), "--force"),
    # A deletion is an update as well, to the library.
    "updated": changes("updated", "deleted"),
    "winning": lambda text, id: states(text, id, "wins")[0],
}


@functools.cache  # a function and its twin have the same command
def call(function, *arguments):
    if function not in COMMANDS:
        raise NoCommand(function)
    return COMMANDS[function](*arguments)


def function_of(name):
    for noise in ("json_object_", "json_array_", "_sync_json", "sync_json", "_ptr"):
        name = name.replace(noise, "")
    return name.strip("_")


def main(files):
    calls, failures, covered, without = 0, 0, set(), set()
    for place, name, vector, arguments, keep in calls_of(files):
        error = vector.get("error")
        key = error["error"] if isinstance(error, dict) else error
        function = function_of(name)
        try:
            is_nothing = any(each is None or isinstance(each, Set) and not each.there for each in arguments)
            if key in NOTHING_TO_NAME or (is_nothing and function != "unflatten"):
                raise NoCommand("what has no name on a command line")
            given = call(function, *arguments)
            keep(given)
            right = matches(vector, given)
        except NoCommand as what:
            without.add(str(what))
            continue
        except Refused as given_up:
            given = given_up
            about = error.get("args", "") if isinstance(error, dict) else ""
            right = error is not None and given.code == EXIT_CODES.get(key, 3) and "zentadb: " in given.told and about in given.told
        calls += 1
        covered.add(function)
        if not right:
            failures += 1
            print(f"{place} gives {given}", file=sys.stderr)
    print(f"{calls} calls checked, {failures} failures; no command for: {', '.join(sorted(without))}")
    assert calls >= LEAST_CALLS and covered == set(COMMANDS) and without == NO_COMMAND, (calls, covered ^ set(COMMANDS), without)
    return failures > 0


if __name__ == "__main__":
    vectors = [os.path.abspath(name) for name in sys.argv[1:]]
    with tempfile.TemporaryDirectory() as home:
        os.chdir(home)
        sys.exit(main(vectors))
