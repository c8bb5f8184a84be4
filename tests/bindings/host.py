"""host.py FILE: what the Python package does beyond single calls, `check` and `three_way`, on the cases in the file."""

import json
import sys

import zentadbpp


def store_of(case):
    """What copies come to that made these updates one after the other, and were merged."""
    config = json.dumps(case.get("config", {}))
    store = zentadbpp.Handle("{}")
    for updates in case["copies"]:
        copy = zentadbpp.Handle("{}")
        for data in updates:
            copy = copy.update(json.dumps(data), config)
        store = zentadbpp.replicate(copy, store)
    return store


def given(case):
    store = store_of(case)
    if "three_way" in case:
        help = zentadbpp.three_way(store, case["three_way"])
        return {name: help[name] for name in case["json"]}
    data = case.get("check_text") or json.dumps(case["check"])
    return zentadbpp.check(data, json.dumps(case.get("config", {})), store)


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        cases = json.load(file)
    failures = 0
    for case in cases:
        found = given(case)
        if found != case["json"]:
            failures += 1
            print(f"{case['what']}: gives {json.dumps(found)}", file=sys.stderr)
    try:
        zentadbpp.check("[]")
        failures += 1
    except zentadbpp.Error as error:
        failures += error.key != "input_is_not_an_object"
    print(f"{len(cases)} cases checked, {failures} failures")
    sys.exit(failures > 0 or not cases)


main()
