"""Prints how the library's medians stand to what the machine must do anyway: ratios.py NOTES RESULT.json..."""

import json
import sys

medians = {}
per_byte = {}
for file in sys.argv[2:]:
    for run in json.load(open(file))["benchmarks"]:
        if run.get("aggregate_name") == "median":
            name = run["run_name"].replace("/iterations:1", "")
            medians[name] = run["cpu_time"]  # others may be using the machine
            if "per_byte" in run:
                per_byte[name] = run["per_byte"]
n = sys.argv[1]


def us(name, size=n):
    return medians.get(f"{name}/{size}")


def together(*names):
    times = [us(name) for name in names]
    return None if None in times else sum(times)


missed = 0


def row(what, value, limit, unit=""):
    global missed
    if value is None:
        return
    good = value <= limit
    missed += not good
    print(f"{what:<58}{value:>10.3f} {unit:<3}{limit:>8} {'' if good else 'missed'}")


def ratio(what, name, limit, *yards):
    yard = together(*yards)
    if us(name) and yard:
        row(what, us(name) / yard, limit)


print(f"medians at {n} notes, microseconds of the processor")
for name in sorted(name for name in medians if name.endswith("/" + n)):
    print(f"  {name:<56}{medians[name]:>14.1f}")
print(f"\n{'work':<58}{'measured':>10} {'':<3}{'at most':>8}")
parse_host, parse_sync = "yard_rapidjson_parse_host", "yard_rapidjson_parse_sync"
ratio("open / parse of the sync JSON", "open_handle", 0.5, parse_sync)
ratio("open + dump / parse + write", "open_dump", 0.4, "yard_rapidjson_parse_write_sync")
ratio("first update / (parse of the host text + SHA-256)", "first_update", 1.5, parse_host, "yard_sha256")
ratio("update of a handle, unchanged / parse of the host text", "update_unchanged_handle", 1.5, parse_host)
ratio("update, 1 % changed / parse of both texts", "update_1_percent", 1.0, parse_host, parse_sync)
ratio("read of a handle / write of the host text", "read_handle", 1.0, "yard_rapidjson_write_host")
ratio("read / parse of the sync JSON", "read_text", 1.0, parse_sync)
ratio("replicate handles, 1 % / parse of the sync JSON", "replicate_handle", 0.15, parse_sync)
ratio("replicate / parse of both texts", "replicate_text", 0.6, parse_sync, parse_sync)
for size in ("1000", "10000", "100000"):
    row(f"winning, {size} notes", us("winning_handle", size), 1.0, "us")
    row(f"conflicting, {size} notes", us("conflicting_handle", size), 2.0, "us")
if us("resolve_handle", "1000") and us("resolve_handle", "100000"):
    row("resolve, 100000 notes / 1000", us("resolve_handle", "100000") / us("resolve_handle", "1000"), 2.0)
row("memory of a handle / its text", per_byte.get(f"memory_of_handle/{n}"), 2.5)
row("peak of an update by text / its texts", per_byte.get(f"peak_of_update/{n}"), 4.0)
for name in ("open_handle", "first_update", "update_1_percent", "read_handle", "replicate_handle", "replicate_text"):
    if us(name, "1000") and us(name, "100000"):
        row(f"time per document, 100000 / 1000: {name}", us(name, "100000") / us(name, "1000") / 100, 1.3)
for name, size in (("chain_of_revisions", 100000), ("fan_of_branches", 10000), ("array_of_elements", 100000)):
    if us(name, size) and us(name, size // 2):
        row(f"twice the size: {name}", us(name, size) / us(name, size // 2), 2.2)
print(f"\n{missed} missed" if missed else "\nall reached")
